// The stripper's pattern table and its linear-time replacement.
//
// ICU's find() tries every start position and scans onward from each, so on adversarial text
// (a megabyte of "[", many "<!--" without "-->") some patterns cost quadratic time. Here the
// compiled pattern still decides every match, but it is only run, anchored (lookingAt) on a
// bounded region, at start positions that a cheap forward scan has not ruled out; the result
// is the same sequence of leftmost matches that ICU's replaceAll produces.
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

// Matchers hold per-match state, so each thread keeps its own, made once per pattern.
icu::RegexMatcher* matcherFor(Name name) {
    thread_local std::array<std::unique_ptr<icu::RegexMatcher>, kCount> matchers;
    auto& matcher = matchers[indexOf(name)];
    if (!matcher) {
        UErrorCode status = U_ZERO_ERROR;
        matcher.reset(MarkdownStripper::Regexes::pattern(name)->matcher(status));
        if (U_FAILURE(status)) matcher.reset();
    }
    return matcher.get();
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

// A start position that may match, and a region end that no match from it can pass.
struct Candidate {
    int32_t start;
    int32_t limit;
};

// Replaces the matches found by anchoring the pattern at each candidate that `next(from)`
// offers (the first possible start at or after `from`). `next` may offer starts that fail;
// it must never skip one that could match.
template <typename Next>
icu::UnicodeString replaceCandidates(Name name, const icu::UnicodeString& text, Next next) {
    std::optional<Candidate> candidate = next(0);
    if (!candidate) return text;
    icu::RegexMatcher* matcher = matcherFor(name);
    if (matcher == nullptr) return text;
    matcher->reset(text);
    matcher->useTransparentBounds(true); // lookbehind and lookahead see past the region
    matcher->useAnchoringBounds(false);
    const bool byGroup = kTable[indexOf(name)].replacement == kGroup;

    icu::UnicodeString out;
    int32_t copied = 0;
    while (candidate) {
        UErrorCode status = U_ZERO_ERROR;
        int32_t resume = candidate->start + 1;
        matcher->region(candidate->start, candidate->limit, status);
        if (U_SUCCESS(status) && matcher->lookingAt(status) && U_SUCCESS(status)) {
            out.append(text, copied, candidate->start - copied);
            if (byGroup) {
                const int32_t from = matcher->start(1, status);
                const int32_t to = matcher->end(1, status);
                if (U_SUCCESS(status) && from >= 0) out.append(text, from, to - from);
            } else {
                out.append(u' ');
            }
            copied = resume = matcher->end(status);
        }
        candidate = next(resume);
    }
    out.append(text, copied, text.length() - copied);
    return out;
}

icu::UnicodeString replaceComments(const icu::UnicodeString& text, const Units& u) {
    NextIndex arrow(
        u, [&u](int32_t i) { return u[i] == u'-' && u[i + 1] == u'-' && u[i + 2] == u'>'; });
    return replaceCandidates(Name::htmlComment, text,
                             [&](int32_t from) -> std::optional<Candidate> {
                                 const int32_t start = u.find(u"<!--", from);
                                 if (start == u.size) return std::nullopt;
                                 // The lazy body ends at the first "-->" after the opener; without
                                 // one, no later opener can close either.
                                 const int32_t close = arrow(start + 4);
                                 if (close == u.size) return std::nullopt;
                                 return Candidate{start, close + 3};
                             });
}

icu::UnicodeString replaceAutolinks(const icu::UnicodeString& text, const Units& u) {
    NextIndex stop(u, [&u](int32_t i) { return u[i] == u'>' || isSpaceUnit(u[i]); });
    return replaceCandidates(Name::autolink, text, [&](int32_t from) -> std::optional<Candidate> {
        for (int32_t start = u.find(u"<", from); start < u.size; start = u.find(u"<", start + 1)) {
            if (!isAsciiLetter(u[start + 1])) continue;
            // The scheme cannot hold ":", so the colon must end the scheme run.
            int32_t colon = start + 2;
            while (isSchemeUnit(u[colon]))
                ++colon;
            if (u[colon] != u':') continue;
            // The body runs to the first ">" or white space, and only a ">" closes it.
            const int32_t close = stop(colon + 1);
            if (u[close] == u'>') return Candidate{start, close + 1};
        }
        return std::nullopt;
    });
}

icu::UnicodeString replaceTags(const icu::UnicodeString& text, const Units& u) {
    NextIndex angle(u, [&u](int32_t i) { return u[i] == u'<' || u[i] == u'>'; });
    return replaceCandidates(Name::htmlTag, text, [&](int32_t from) -> std::optional<Candidate> {
        for (int32_t start = u.find(u"<", from); start < u.size; start = u.find(u"<", start + 1)) {
            const int32_t letter = u[start + 1] == u'/' ? start + 2 : start + 1;
            if (!isAsciiLetter(u[letter])) continue;
            const int32_t close = angle(letter + 1);
            if (u[close] == u'>') return Candidate{start, close + 1};
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
    return replaceCandidates(name, text, [&](int32_t from) -> std::optional<Candidate> {
        for (int32_t start = u.find(opener, from); start < u.size;
             start = u.find(opener, start + 1)) {
            const int32_t bracket = labelEnd(start + static_cast<int32_t>(opener.size()));
            if (bracket == u.size) return std::nullopt;
            if (u[bracket + 1] != targetOpen) continue;
            const int32_t close = targetEnd(bracket + 2);
            if (close == u.size) return std::nullopt;
            return Candidate{start, close + 1};
        }
        return std::nullopt;
    });
}

// Every start inside one run of scheme characters shares the run's end, so a run either
// holds an "x://" match at its first letter or only "www." matches; each run is read once.
icu::UnicodeString replaceRawURLs(const icu::UnicodeString& text, const Units& u) {
    NextIndex space(u, [&u](int32_t i) { return isSpaceUnit(u[i]); });
    const auto bodyAt = [&u](int32_t i) { return i < u.size && !isSpaceUnit(u[i]); };
    return replaceCandidates(Name::rawURL, text, [&](int32_t from) -> std::optional<Candidate> {
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
                    if (isFoldedLetter(u[letter])) return Candidate{letter, space(end + 3)};
            }
            for (int32_t w = start; w + 4 <= end; ++w) {
                if (isW(u[w]) && isW(u[w + 1]) && isW(u[w + 2]) && u[w + 3] == u'.' &&
                    bodyAt(w + 4))
                    return Candidate{w, space(w + 4)};
            }
            start = end;
        }
        return std::nullopt;
    });
}

// Patterns whose failed attempts stop at the next occurrence of their own delimiter, so trying
// every start that begins like them is linear already; `startAt(from)` finds the next one.
template <typename StartAt>
icu::UnicodeString replaceDelimited(Name name, const icu::UnicodeString& text, const Units& u,
                                    StartAt startAt) {
    return replaceCandidates(name, text, [&](int32_t from) -> std::optional<Candidate> {
        const int32_t start = startAt(from);
        if (start >= u.size) return std::nullopt;
        return Candidate{start, u.size};
    });
}

// An opening bracket, white space only, then a closing one; runs of white space after
// different openers never overlap, so skipping them costs linear time in all.
icu::UnicodeString replaceEmptyBrackets(const icu::UnicodeString& text, const Units& u) {
    return replaceCandidates(Name::emptyBrackets, text,
                             [&](int32_t from) -> std::optional<Candidate> {
                                 for (int32_t start = from; start < u.size; ++start) {
                                     if (u[start] != u'(' && u[start] != u'[') continue;
                                     int32_t close = start + 1;
                                     while (isSpaceUnit(u[close]))
                                         ++close;
                                     if (u[close] == u')' || u[close] == u']')
                                         return Candidate{start, close + 1};
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
        return replaceDelimited(name, text, units,
                                [&units](int32_t from) { return units.find(u"~~", from); });
    case Name::starEmphasis:
        return replaceDelimited(name, text, units,
                                [&units](int32_t from) { return units.find(u"*", from); });
    case Name::underscoreEmphasis:
        return replaceDelimited(name, text, units, [&units](int32_t from) {
            // The lookbehind rules out an underscore right after a word character.
            int32_t start = units.find(u"_", from);
            while (start < units.size && start > 0 && isWordUnit(units[start - 1]))
                start = units.find(u"_", start + 1);
            return start;
        });
    case Name::emptyBrackets:
        break;
    }
    return replaceEmptyBrackets(text, units);
}

} // namespace norrow
