#pragma once

#include <string>
#include <string_view>

namespace norrow::unicode {

// Code point tests on Unicode properties (ICU), used on the first scalar of a character.
bool isWhitespace(char32_t c);
bool isLetter(char32_t c);
bool isNumber(char32_t c);
bool isEmoji(char32_t c);
bool isEmojiPresentation(char32_t c);

// Decodes the scalar starting at `offset`; `length` receives its byte count (at least 1).
// A malformed sequence decodes as U+FFFD of length 1.
char32_t decode(std::string_view utf8, std::size_t offset, std::size_t& length);

void append(std::string& out, char32_t c);

// The text with every malformed UTF-8 sequence replaced by U+FFFD.
std::string toValidUtf8(std::string_view bytes);
bool isValidUtf8(std::string_view bytes);

// Full Unicode case mapping (root locale).
std::string lowercased(std::string_view utf8);
std::string uppercased(std::string_view utf8);

} // namespace norrow::unicode
