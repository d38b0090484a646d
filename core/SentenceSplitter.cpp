#include "core/SentenceSplitter.h"

#include "core/Graphemes.h"
#include "core/Unicode.h"

#include <algorithm>
#include <array>

namespace norrow::SentenceSplitter {
namespace {

// ".", "!", "?", "…".
bool isTerminator(std::string_view c) {
    if (c.size() == 1) return c[0] == '.' || c[0] == '!' || c[0] == '?';
    return c == "\u2026";
}

// What may follow a terminator and still belong to its sentence: closing brackets and quotes.
bool isCloser(std::string_view c) {
    if (c.size() == 1)
        return c[0] == ')' || c[0] == ']' || c[0] == '}' || c[0] == '"' || c[0] == '\'';
    return c == "\u201D" || c == "\u2019" || c == "\u00BB";
}

constexpr std::array<std::string_view, 22> kAbbreviations = {
    "e.g", "i.e", "etc", "vs", "cf", "al", "approx", "fig", "no",  "ca",  "mr",
    "mrs", "ms",  "dr",  "sr", "jr", "st", "prof",   "inc", "ltd", "min", "max"};
// No abbreviation is longer than six ASCII letters, and a character that lower-cases to one
// of them takes at most four bytes.
constexpr std::size_t kLongestAbbreviationBytes = 6 * 4;

bool isSpaceOrTab(const Graphemes& g, std::size_t i) {
    return g.is(i, ' ') || g.is(i, '\t');
}

// Whether the dot at `dotIndex` ends an abbreviation ("e.g.", "Dr.", "J.") rather than a
// sentence. Only dots followed by white space get here, and the word before each such dot
// begins after the previous one's white space, so the backward walks never overlap.
bool isAbbreviation(const Graphemes& characters, std::size_t dotIndex) {
    const Graphemes& g = characters;
    std::size_t from = dotIndex;
    while (from > 0 && !g.isWhitespace(from - 1))
        --from;
    const std::size_t length = dotIndex - from;
    if (length == 0) return false;
    if (length == 1 && g.isLetter(from)) return true;

    bool innerDots = false;
    for (std::size_t i = from; i < dotIndex; ++i)
        innerDots = innerDots || g.is(i, '.');
    if (!innerDots) {
        const std::string_view word = g.slice(from, dotIndex);
        return word.size() <= kLongestAbbreviationBytes &&
               isOneOf(kAbbreviations, unicode::lowercased(word));
    }
    // "U.S", "e.g": every piece between dots is at most two letters.
    std::size_t piece = 0;
    for (std::size_t i = from; i < dotIndex; ++i) {
        if (g.is(i, '.')) {
            piece = 0;
        } else if (++piece > 2 || !g.isLetter(i)) {
            return false;
        }
    }
    return true;
}

} // namespace

std::vector<std::string> sentences(std::string_view text) {
    std::vector<std::string> found;
    const Graphemes g(text);
    const std::size_t n = g.size();
    const auto add = [&](std::size_t from, std::size_t to) {
        while (from < to && isSpaceOrTab(g, from))
            ++from;
        while (from < to && isSpaceOrTab(g, to - 1))
            --to;
        if (from < to) found.emplace_back(g.slice(from, to));
    };

    std::size_t start = 0;
    std::size_t i = 0;
    while (true) {
        while (i < n && !isTerminator(g[i]))
            ++i;
        if (i == n) break;
        const std::size_t terminator = i;
        std::size_t k = i;
        while (k < n && isTerminator(g[k]))
            ++k;
        while (k < n && isCloser(g[k]))
            ++k;
        // "3.14", "main.cpp" and "e.g.," continue; so does a known abbreviation.
        if ((k < n && !g.isWhitespace(k)) ||
            (g.is(terminator, '.') && isAbbreviation(g, terminator))) {
            i = k;
            continue;
        }
        add(start, k);
        while (k < n && g.isWhitespace(k))
            ++k;
        if (k == n) return found;
        start = i = k;
    }
    if (start < n) add(start, n);
    return found;
}

} // namespace norrow::SentenceSplitter
