#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <vector>

// Turns an agent's Markdown message into plain one-line paragraphs that fit a banner: no
// Markdown syntax, no code, no tables, no URLs, no leading decoration. Never fails.
namespace norrow::MarkdownStripper {

// The paragraphs of `text`, each cleaned, empty ones dropped, joined by a blank line.
std::string strip(std::string_view text);
// The paragraph blocks of `text`, each on one line, still holding inline Markdown.
std::vector<std::string> rawBlocks(std::string_view text);
// One block cleaned of inline Markdown. Named so because `inline` is a C++ keyword.
std::string inlineText(std::string_view block);
// Whether a character is decoration that a summary does not begin or end with: dashes,
// bullets, colons, emoji, arrows, dingbats and the joiners and selectors around them.
bool isOrnament(std::string_view character);

// The cleaning patterns. Each is compiled once per process (ICU syntax, no options); one
// that fails to compile is absent and its step is skipped. replaceAll gives exactly what
// ICU's own replaceAll would, in time linear in the text whatever its shape.
namespace Regexes {

enum class Name {
    htmlComment,
    autolink,
    htmlTag,
    image,
    link,
    referenceLink,
    rawURL,
    strikethrough,
    starEmphasis,
    underscoreEmphasis,
    emptyBrackets
};
inline constexpr Name all[] = {
    Name::htmlComment,  Name::autolink,           Name::htmlTag,      Name::image,
    Name::link,         Name::referenceLink,      Name::rawURL,       Name::strikethrough,
    Name::starEmphasis, Name::underscoreEmphasis, Name::emptyBrackets};

std::u16string_view source(Name name);
// "$1" (the first group) or " ".
std::u16string_view replacement(Name name);
// Null when the pattern did not compile.
const icu::RegexPattern* pattern(Name name);
// Compiles ICU pattern text with no options; null when it does not compile.
std::unique_ptr<icu::RegexPattern> compile(std::u16string_view source);
// Every match, leftmost first and continuing after its end, replaced; `text` itself
// when it is empty or the pattern is absent.
icu::UnicodeString replaceAll(Name name, const icu::UnicodeString& text);

} // namespace Regexes

} // namespace norrow::MarkdownStripper
