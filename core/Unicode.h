#pragma once

#include <string>
#include <string_view>
#include <unicode/uchar.h>

namespace norrow::unicode {

// Code point tests on Unicode properties (ICU), used on the first scalar of a character.
bool isWhitespace(char32_t c);
bool isLetter(char32_t c);
bool isNumber(char32_t c);
bool isEmoji(char32_t c);
bool isEmojiPresentation(char32_t c);

// What segmenting into characters asks of a scalar, in one lookup.
struct GraphemeProperties {
    UGraphemeClusterBreak kind;
    bool pictographic; // Extended_Pictographic
};
GraphemeProperties graphemeProperties(char32_t c);

// Whether a user-perceived character ends between these two adjacent scalars whatever
// surrounds them: after a control, or between a plain character and one that does not attach
// to it.
bool alwaysBreaksBetween(char32_t before, char32_t after);

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
