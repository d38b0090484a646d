// The stripper's pattern table and its linear-time replacement.
//
// ICU's find() tries every start position and scans onward from each, so on adversarial text
// (a megabyte of "[", many "<!--" without "-->") some patterns cost quadratic time; ICU keeps a
// backtracking state for each unit that a loop such as \S+ or \s* consumes, so one long match
// is slow and, past about half a megabyte, overflows ICU's stack and fails; and each call into
// ICU costs far more than the few units most matches span. Here a forward scan finds each
// leftmost match and decides it, its end and its group by the pattern's own (simple) rules,
// including the order in which ICU's backtracking tries the alternatives. The patterns are still
// compiled, so that one which does not compile skips its step, and the tests hold every scan to
// ICU's own replaceAll.
#include "core/MarkdownStripper.h"
#include "core/Unicode.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

namespace norrow {
namespace {

using Name = MarkdownStripper::Regexes::Name;

constexpr std::u16string_view kGroup = u"$1";
constexpr std::u16string_view kSpace = u" ";
constexpr std::size_t kCount = std::size(MarkdownStripper::Regexes::all);

struct Entry {
    std::u16string_view source;
    std::u16string_view replacement;
};

constexpr std::array<Entry, kCount> kTable = {{
    {uR"re(<!--[\s\S]*?-->)re", kSpace},
    {uR"re(<[a-zA-Z][a-zA-Z0-9+.-]*:[^>\s]*>)re", kSpace},
    {uR"re(</?[A-Za-z][^<>]*>)re", kSpace},
    {uR"re(!\[([^\]]*)\]\([^)]*\))re", kGroup},
    {uR"re(\[([^\]]*)\]\([^)]*\))re", kGroup},
    {uR"re(\[([^\]]*)\]\[[^\]]*\])re", kGroup},
    {uR"re((?i)(?:[a-z][a-z0-9+.-]*://|www\.)\S+)re", kSpace},
    {uR"re(~~(\S(?:[^~]*\S)?)~~)re", kGroup},
    {uR"re(\*{1,3}(\S(?:[^*]*\S)?)\*{1,3})re", kGroup},
    {uR"re((?<![A-Za-z0-9_])_{1,2}(\S(?:[^_]*\S)?)_{1,2}(?![A-Za-z0-9_]))re", kGroup},
    {uR"re([\(\[]\s*[\)\]])re", kSpace},
}};

std::size_t indexOf(Name name) {
    return static_cast<std::size_t>(name);
}

} // namespace

std::unique_ptr<icu::RegexPattern> MarkdownStripper::Regexes::compile(std::u16string_view source) {
    const icu::UnicodeString text(source.data(), static_cast<int32_t>(source.size()));
    UParseError where;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(text, 0, where, status));
    if (U_FAILURE(status)) compiled.reset();
    return compiled;
}

namespace {

const std::array<std::unique_ptr<icu::RegexPattern>, kCount>& compiledPatterns() {
    static const auto patterns = [] {
        std::array<std::unique_ptr<icu::RegexPattern>, kCount> compiled;
        for (std::size_t i = 0; i < kCount; ++i)
            compiled[i] = MarkdownStripper::Regexes::compile(kTable[i].source);
        return compiled;
    }();
    return patterns;
}

// The UTF-16 units of the text being matched; reading past the end gives U+0000, which no
// test below accepts, so lookahead by a few units needs no bounds checks.
struct Units {
    const char16_t* data;
    int32_t size;

    char16_t operator[](int32_t i) const { return i < size ? data[i] : u'\0'; }
    // The first occurrence at or after `from`, or `size`.
    int32_t find(std::u16string_view what, int32_t from) const {
        const auto at = std::u16string_view(data, static_cast<std::size_t>(size))
                            .find(what, static_cast<std::size_t>(from));
        return at == std::u16string_view::npos ? size : static_cast<int32_t>(at);
    }
};

bool isAsciiLetter(char16_t u) {
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z');
}
bool isAsciiDigit(char16_t u) {
    return u >= u'0' && u <= u'9';
}
bool isSchemeUnit(char16_t u) {
    return isAsciiLetter(u) || isAsciiDigit(u) || u == u'+' || u == u'.' || u == u'-';
}
// Under (?i), [a-z] also matches U+017F LONG S and U+212A KELVIN SIGN, whose case folds are
// "s" and "k"; no other character folds onto an ASCII letter.
bool isFoldedLetter(char16_t u) {
    return isAsciiLetter(u) || u == 0x017F || u == 0x212A;
}
bool isFoldedSchemeUnit(char16_t u) {
    return isSchemeUnit(u) || u == 0x017F || u == 0x212A;
}
bool isW(char16_t u) {
    return u == u'w' || u == u'W';
}
bool isWordUnit(char16_t u) {
    return isAsciiLetter(u) || isAsciiDigit(u) || u == u'_';
}
// ICU's \s is the White_Space property, which has no character outside the BMP.
bool isSpaceUnit(char16_t u) {
    if (u < 0x80) return u == u' ' || (u >= u'\t' && u <= u'\r');
    return !U16_IS_SURROGATE(u) && unicode::isWhitespace(u);
}

// The first index at or after a query whose unit passes `test`, or the text's size. It
// remembers its last answer, so a series of non-decreasing queries costs linear time in all.
template <typename Test> class NextIndex {
public:
    NextIndex(const Units& units, Test test) : units_(units), test_(test) {}

    int32_t operator()(int32_t from) {
        if (from < from_ || from > found_) {
            from_ = from;
            found_ = from;
            while (found_ < units_.size && !test_(found_))
                ++found_;
        }
        return found_;
    }

private:
    const Units& units_;
    Test test_;
    int32_t from_ = 1; // from_ > found_: nothing remembered yet
    int32_t found_ = 0;
};

// One match: [start, end), and for a "$1" replacement the first group's range.
struct Match {
    int32_t start = 0;
    int32_t end = 0;
    int32_t groupStart = 0;
    int32_t groupEnd = 0;
};

// Replaces the matches that `next(from)` finds, each the leftmost one at or after `from`.
// No pattern matches the empty string, so the search goes on at each match's end.
template <typename Next>
icu::UnicodeString replaceMatches(Name name, const icu::UnicodeString& text, Next next) {
    std::optional<Match> match = next(0);
    if (!match) return text;
    const bool byGroup = kTable[indexOf(name)].replacement == kGroup;
    icu::UnicodeString out;
    int32_t copied = 0;
    for (; match; match = next(match->end)) {
        out.append(text, copied, match->start - copied);
        if (byGroup)
            out.append(text, match->groupStart, match->groupEnd - match->groupStart);
        else
            out.append(u' ');
        copied = match->end;
    }
    out.append(text, copied, text.length() - copied);
    return out;
}

icu::UnicodeString replaceComments(const icu::UnicodeString& text, const Units& u) {
    NextIndex arrow(
        u, [&u](int32_t i) { return u[i] == u'-' && u[i + 1] == u'-' && u[i + 2] == u'>'; });
    return replaceMatches(Name::htmlComment, text, [&](int32_t from) -> std::optional<Match> {
        const int32_t start = u.find(u"<!--", from);
        if (start == u.size) return std::nullopt;
        // The lazy body ends at the first "-->" after the opener; without one, no later opener
        // can close either.
        const int32_t close = arrow(start + 4);
        if (close == u.size) return std::nullopt;
        return Match{start, close + 3};
    });
}

icu::UnicodeString replaceAutolinks(const icu::UnicodeString& text, const Units& u) {
    NextIndex stop(u, [&u](int32_t i) { return u[i] == u'>' || isSpaceUnit(u[i]); });
    return replaceMatches(Name::autolink, text, [&](int32_t from) -> std::optional<Match> {
        for (int32_t start = u.find(u"<", from); start < u.size; start = u.find(u"<", start + 1)) {
            if (!isAsciiLetter(u[start + 1])) continue;
            // The scheme cannot hold ":", so the colon must end the scheme run.
            int32_t colon = start + 2;
            while (isSchemeUnit(u[colon]))
                ++colon;
            if (u[colon] != u':') continue;
            // The body runs to the first ">" or white space, and only a ">" closes it.
            const int32_t close = stop(colon + 1);
            if (u[close] == u'>') return Match{start, close + 1};
        }
        return std::nullopt;
    });
}

icu::UnicodeString replaceTags(const icu::UnicodeString& text, const Units& u) {
    NextIndex angle(u, [&u](int32_t i) { return u[i] == u'<' || u[i] == u'>'; });
    return replaceMatches(Name::htmlTag, text, [&](int32_t from) -> std::optional<Match> {
        for (int32_t start = u.find(u"<", from); start < u.size; start = u.find(u"<", start + 1)) {
            const int32_t letter = u[start + 1] == u'/' ? start + 2 : start + 1;
            if (!isAsciiLetter(u[letter])) continue;
            const int32_t close = angle(letter + 1);
            if (u[close] == u'>') return Match{start, close + 1};
        }
        return std::nullopt;
    });
}

// image, link and reference link: an opener, a label up to the first "]", then the target's
// opening character and a target up to its first closing one. Once no "]" or no closing
// character is left, no later opener can match either.
icu::UnicodeString replaceBracketed(Name name, const icu::UnicodeString& text, const Units& u) {
    const std::u16string_view opener = name == Name::image ? u"![" : u"[";
    const char16_t targetOpen = name == Name::referenceLink ? u'[' : u'(';
    const char16_t targetClose = name == Name::referenceLink ? u']' : u')';
    NextIndex labelEnd(u, [&u](int32_t i) { return u[i] == u']'; });
    NextIndex targetEnd(u, [&u, targetClose](int32_t i) { return u[i] == targetClose; });
    return replaceMatches(name, text, [&](int32_t from) -> std::optional<Match> {
        for (int32_t start = u.find(opener, from); start < u.size;
             start = u.find(opener, start + 1)) {
            const int32_t label = start + static_cast<int32_t>(opener.size());
            const int32_t bracket = labelEnd(label);
            if (bracket == u.size) return std::nullopt;
            if (u[bracket + 1] != targetOpen) continue;
            const int32_t close = targetEnd(bracket + 2);
            if (close == u.size) return std::nullopt;
            return Match{start, close + 1, label, bracket};
        }
        return std::nullopt;
    });
}

// Every start inside one run of scheme characters shares the run's end, so a run either
// holds an "x://" match at its first letter or only "www." matches; each run is read once.
// The body, \S+ at the pattern's end, runs to the next white space.
icu::UnicodeString replaceRawURLs(const icu::UnicodeString& text, const Units& u) {
    NextIndex space(u, [&u](int32_t i) { return isSpaceUnit(u[i]); });
    const auto bodyAt = [&u](int32_t i) { return i < u.size && !isSpaceUnit(u[i]); };
    return replaceMatches(Name::rawURL, text, [&](int32_t from) -> std::optional<Match> {
        for (int32_t start = from; start < u.size;) {
            if (!isFoldedSchemeUnit(u[start])) {
                ++start;
                continue;
            }
            int32_t end = start;
            while (isFoldedSchemeUnit(u[end]))
                ++end;
            if (u[end] == u':' && u[end + 1] == u'/' && u[end + 2] == u'/' && bodyAt(end + 3)) {
                for (int32_t letter = start; letter < end; ++letter)
                    if (isFoldedLetter(u[letter])) return Match{letter, space(end + 3)};
            }
            for (int32_t w = start; w + 4 <= end; ++w) {
                if (isW(u[w]) && isW(u[w + 1]) && isW(u[w + 2]) && u[w + 3] == u'.' &&
                    bodyAt(w + 4))
                    return Match{w, space(w + 4)};
            }
            start = end;
        }
        return std::nullopt;
    });
}

// The emphasis patterns: an opening run of delimiters, a body that starts and ends with a
// non-space and holds no delimiter but possibly as its last character, and a closing run. The
// body's end is thus one of at most three places around the first delimiter after its first
// character, which backtracking tries in a fixed order, longest opening first.
struct Emphasis {
    char16_t delimiter;
    int32_t shortestOpening;
    int32_t longestOpening;
    // Whether a match may start at `start`, given the units before it.
    bool (*opensAt)(const Units&, int32_t start);
    // The end of a closing run that begins at `at`, or 0 when none does.
    int32_t (*closingEnd)(const Units&, int32_t at);
};

bool opensAnywhere(const Units&, int32_t) {
    return true;
}
bool opensAfterNonWord(const Units& u, int32_t start) {
    return start == 0 || !isWordUnit(u[start - 1]);
}
// \*{1,3}
int32_t starsEnd(const Units& u, int32_t at) {
    int32_t end = at;
    while (end < at + 3 && u[end] == u'*')
        ++end;
    return end > at ? end : 0;
}
// ~~
int32_t tildesEnd(const Units& u, int32_t at) {
    return u[at] == u'~' && u[at + 1] == u'~' ? at + 2 : 0;
}
// _{1,2}(?![A-Za-z0-9_])
int32_t underscoresEnd(const Units& u, int32_t at) {
    if (u[at] != u'_') return 0;
    if (u[at + 1] == u'_' && !isWordUnit(u[at + 2])) return at + 2;
    return isWordUnit(u[at + 1]) ? 0 : at + 1;
}

constexpr Emphasis kStrikethrough{u'~', 2, 2, opensAnywhere, tildesEnd};
constexpr Emphasis kStar{u'*', 1, 3, opensAnywhere, starsEnd};
constexpr Emphasis kUnderscore{u'_', 1, 2, opensAfterNonWord, underscoresEnd};

int32_t codePointEnd(const Units& u, int32_t at) {
    return U16_IS_LEAD(u[at]) && U16_IS_TRAIL(u[at + 1]) ? at + 2 : at + 1;
}

icu::UnicodeString replaceEmphasis(Name name, const Emphasis& emphasis,
                                   const icu::UnicodeString& text, const Units& u) {
    const char16_t d = emphasis.delimiter;
    // Three scanners, each asked about non-decreasing positions only.
    NextIndex nextStart(u, [&u, d](int32_t i) { return u[i] == d; });
    NextIndex runEnd(u, [&u, d](int32_t i) { return u[i] != d; });
    NextIndex nextDelimiter(u, [&u, d](int32_t i) { return u[i] == d; });
    const auto matchAt = [&](int32_t start) -> std::optional<Match> {
        const int32_t run = runEnd(start);
        for (int32_t length = std::min(emphasis.longestOpening, run - start);
             length >= emphasis.shortestOpening; --length) {
            const int32_t body = start + length;
            if (body >= u.size || isSpaceUnit(u[body])) continue;
            const int32_t first = codePointEnd(u, body);
            // No delimiter lies between the body's first character and `close`.
            const int32_t close = first < run ? first : nextDelimiter(run);
            if (close == u.size) continue;
            // The body ends with the delimiter at `close`, with the last non-delimiter before
            // it, or (a body of one character) right before `close`.
            if (const int32_t end = emphasis.closingEnd(u, close + 1))
                return Match{start, end, body, close + 1};
            if (close == first || !isSpaceUnit(u[close - 1])) {
                if (const int32_t end = emphasis.closingEnd(u, close))
                    return Match{start, end, body, close};
            }
        }
        return std::nullopt;
    };
    return replaceMatches(name, text, [&](int32_t from) -> std::optional<Match> {
        for (int32_t start = nextStart(from); start < u.size; start = nextStart(start + 1)) {
            if (!emphasis.opensAt(u, start)) continue;
            if (auto match = matchAt(start)) return match;
        }
        return std::nullopt;
    });
}

// An opening bracket, white space only, then a closing one; runs of white space after
// different openers never overlap, so skipping them costs linear time in all.
icu::UnicodeString replaceEmptyBrackets(const icu::UnicodeString& text, const Units& u) {
    return replaceMatches(Name::emptyBrackets, text, [&](int32_t from) -> std::optional<Match> {
        for (int32_t start = from; start < u.size; ++start) {
            if (u[start] != u'(' && u[start] != u'[') continue;
            int32_t close = start + 1;
            while (isSpaceUnit(u[close]))
                ++close;
            if (u[close] == u')' || u[close] == u']') return Match{start, close + 1};
        }
        return std::nullopt;
    });
}

} // namespace

std::u16string_view MarkdownStripper::Regexes::source(Name name) {
    return kTable[indexOf(name)].source;
}

std::u16string_view MarkdownStripper::Regexes::replacement(Name name) {
    return kTable[indexOf(name)].replacement;
}

const icu::RegexPattern* MarkdownStripper::Regexes::pattern(Name name) {
    return compiledPatterns()[indexOf(name)].get();
}

icu::UnicodeString MarkdownStripper::Regexes::replaceAll(Name name,
                                                         const icu::UnicodeString& text) {
    if (text.isEmpty() || pattern(name) == nullptr) return text;
    const Units units{text.getBuffer(), text.length()};
    switch (name) {
    case Name::htmlComment:
        return replaceComments(text, units);
    case Name::autolink:
        return replaceAutolinks(text, units);
    case Name::htmlTag:
        return replaceTags(text, units);
    case Name::image:
    case Name::link:
    case Name::referenceLink:
        return replaceBracketed(name, text, units);
    case Name::rawURL:
        return replaceRawURLs(text, units);
    case Name::strikethrough:
        return replaceEmphasis(name, kStrikethrough, text, units);
    case Name::starEmphasis:
        return replaceEmphasis(name, kStar, text, units);
    case Name::underscoreEmphasis:
        return replaceEmphasis(name, kUnderscore, text, units);
    case Name::emptyBrackets:
        break;
    }
    return replaceEmptyBrackets(text, units);
}

} // namespace norrow
