#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <vector>

namespace norrow {

class Graphemes;

// Turns an agent's Markdown message into plain one-line paragraphs that fit a banner: no
// Markdown syntax, no code, no tables, no URLs, no leading decoration. Never fails.
class MarkdownStripper {
public:
    // The paragraphs of `text`, each cleaned, empty ones dropped, joined by a blank line.
    static std::string strip(std::string_view text);
    // The paragraph blocks of `text`, each on one line, still holding inline Markdown.
    static std::vector<std::string> rawBlocks(std::string_view text);
    // One block cleaned of inline Markdown. Named so because `inline` is a C++ keyword.
    static std::string inlineText(std::string_view block);
    // Whether a character is decoration that a summary does not begin or end with: dashes,
    // bullets, colons, emoji, arrows, dingbats and the joiners and selectors around them.
    static bool isOrnament(std::string_view character);

    // The cleaning patterns. Each is compiled once per process (ICU syntax, no options); one
    // that fails to compile is absent and its step is skipped. replaceAll gives exactly what
    // ICU's own replaceAll would, but visits only start positions that can match, so that no
    // input makes it quadratic.
    class Regexes {
    public:
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
        static constexpr Name all[] = {
            Name::htmlComment,  Name::autolink,           Name::htmlTag,      Name::image,
            Name::link,         Name::referenceLink,      Name::rawURL,       Name::strikethrough,
            Name::starEmphasis, Name::underscoreEmphasis, Name::emptyBrackets};

        static std::u16string_view source(Name name);
        // "$1" (the first group) or " ".
        static std::u16string_view replacement(Name name);
        // Null when the pattern did not compile.
        static const icu::RegexPattern* pattern(Name name);
        // Compiles ICU pattern text with no options; null when it does not compile.
        static std::unique_ptr<icu::RegexPattern> compile(std::u16string_view source);
        // Every match, leftmost first and continuing after its end, replaced; `text` itself
        // when it is empty or the pattern is absent.
        static icu::UnicodeString replaceAll(Name name, const icu::UnicodeString& text);
    };

private:
    // Characters [from, to) of a Graphemes view.
    struct Range {
        std::size_t from = 0;
        std::size_t to = 0;
        bool empty() const { return from >= to; }
        std::size_t size() const { return to - from; }
    };
    struct Fence {
        char marker = '`';
        std::size_t length = 0;
    };

    static std::optional<Fence> fenceRun(const Graphemes& g, Range line);
    static bool isHorizontalRule(const Graphemes& g, Range line);
    static bool isTableDelimiter(const Graphemes& g, Range line);
    static Range stripBlockquoteMarkers(const Graphemes& g, Range line);
    static std::optional<Range> strippedHeading(const Graphemes& g, Range line);
    static std::optional<Range> strippedListItem(const Graphemes& g, Range line);
    static Range trimmedWhitespace(const Graphemes& g, Range range);

    static std::string liftCodeSpans(std::string_view text, std::vector<std::string>& spans);
    static icu::UnicodeString restoreCodeSpans(const icu::UnicodeString& text,
                                               const std::vector<std::string>& spans);
    static icu::UnicodeString sanitizeCodeSpan(std::string_view content);
    static std::string collapseWhitespace(std::string_view text);
    static std::string_view stripLeadingOrnaments(std::string_view text);
};

} // namespace norrow
