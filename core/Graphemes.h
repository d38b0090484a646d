#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <vector>

namespace norrow {

// A UTF-8 text viewed as user-perceived characters (extended grapheme clusters).
// Index i names the i-th character; the text must outlive the view.
class Graphemes {
public:
    explicit Graphemes(std::string_view utf8);
    // The first `limit` characters of a text (all when it has fewer); text() is what they
    // cover, and no more of the text is segmented.
    Graphemes(std::string_view utf8, std::size_t limit);

    std::size_t size() const { return starts_.size() - 1; }
    bool empty() const { return size() == 0; }
    std::string_view text() const { return text_; }

    std::string_view operator[](std::size_t i) const {
        return text_.substr(starts_[i], starts_[i + 1] - starts_[i]);
    }
    // Byte offset of character i; offset(size()) is the text's byte length.
    std::size_t offset(std::size_t i) const { return starts_[i]; }
    // Characters [from, to) as text.
    std::string_view slice(std::size_t from, std::size_t to) const {
        return text_.substr(starts_[from], starts_[to] - starts_[from]);
    }
    // The first Unicode scalar of character i.
    char32_t scalar(std::size_t i) const;

    bool isWhitespace(std::size_t i) const;
    bool isLetter(std::size_t i) const;
    bool isNumber(std::size_t i) const;
    // True when character i is exactly the one-byte character `c`.
    bool is(std::size_t i, char c) const {
        return starts_[i + 1] - starts_[i] == 1 && text_[starts_[i]] == c;
    }
    bool is(std::size_t i, std::string_view character) const { return (*this)[i] == character; }

    // The number of characters in a text.
    static std::size_t count(std::string_view utf8);
    // Whether the ASCII byte at `at` is a character by itself, not joined to a Prepend before
    // it or to a mark after it (the only rules that can join an ASCII character but CR LF).
    static bool isOwnCharacter(std::string_view utf8, std::size_t at) {
        const auto isAscii = [utf8](std::size_t i) {
            return static_cast<unsigned char>(utf8[i]) < 0x80;
        };
        return ((at == 0 || isAscii(at - 1)) && (at + 1 >= utf8.size() || isAscii(at + 1))) ||
               joinsNoNeighbour(utf8, at);
    }
    // Calls `visit(character)` with each character of a text in order, as a slice of it,
    // without storing them; stops as soon as `visit` returns false.
    template <typename Visit> static void forEach(std::string_view utf8, Visit visit) {
        std::size_t from = 0;
        forEachBoundary(utf8, [&](std::size_t to) {
            const std::string_view character = utf8.substr(from, to - from);
            from = to;
            return visit(character);
        });
    }

private:
    // isOwnCharacter where a neighbour is beyond ASCII.
    static bool joinsNoNeighbour(std::string_view utf8, std::size_t at);

    // The extended grapheme cluster rules, fed one scalar at a time. The rules that look further
    // back than one scalar (emoji ZWJ sequences, flag pairs, Indic conjuncts) keep what they
    // need as they go, so a text is segmented in one forward pass.
    class Rules {
    public:
        // Whether a character ends before `c`, given every scalar fed before it; feeds `c`.
        bool breaksBefore(char32_t c) {
            return c < 0x80 ? breaksBeforeAscii(c) : breaksBeforeOther(c);
        }
        // Feeds an ASCII character whose break before it is already known.
        void feedAscii(char32_t c) {
            started_ = true;
            previous_ = asciiKind(c);
            regionalIndicators_ = 0;
            basePictographic_ = false;
            conjunct_ = Conjunct::none;
        }

    private:
        enum class Conjunct { none, consonant, linked };

        static UGraphemeClusterBreak asciiKind(char32_t c) {
            if (c == '\r') return U_GCB_CR;
            if (c == '\n') return U_GCB_LF;
            return c < 0x20 || c == 0x7F ? U_GCB_CONTROL : U_GCB_OTHER;
        }
        // No ASCII character extends, links, pictures or flags anything, so of all the rules
        // only CR LF and a preceding Prepend can join one to what comes before.
        bool breaksBeforeAscii(char32_t c) {
            const UGraphemeClusterBreak kind = asciiKind(c);
            const bool breaks = started_ && (previous_ == U_GCB_CR ? kind != U_GCB_LF
                                                                   : previous_ != U_GCB_PREPEND ||
                                                                         kind != U_GCB_OTHER);
            feedAscii(c);
            return breaks;
        }
        bool breaksBeforeOther(char32_t c);
        bool decide(UGraphemeClusterBreak kind, bool pictographic, bool consonant) const;

        bool started_ = false;
        UGraphemeClusterBreak previous_ = U_GCB_OTHER;
        std::size_t regionalIndicators_ = 0;
        bool basePictographic_ = false;
        bool zwjAfterPictograph_ = false;
        Conjunct conjunct_ = Conjunct::none;
    };

    // Calls `visit` with every boundary after the text's start, in order, until it returns
    // false. Malformed UTF-8 reads as U+FFFD per maximal ill-formed subsequence, as ICU reads it.
    template <typename Visit> static void forEachBoundary(std::string_view text, Visit visit) {
        const auto n = static_cast<int64_t>(text.size());
        const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
        Rules rules;
        for (int64_t p = 0; p < n;) {
            const int64_t at = p;
            UChar32 c = 0;
            U8_NEXT_OR_FFFD(bytes, p, n, c);
            if (rules.breaksBefore(static_cast<char32_t>(c)) && at > 0 &&
                !visit(static_cast<std::size_t>(at)))
                return;
            if (c >= 0x80) continue;
            // Between two ASCII characters there is always a break, but inside CR LF.
            while (p < n && bytes[p] < 0x80 && bytes[p - 1] != '\r')
                if (!visit(static_cast<std::size_t>(p++))) return;
            rules.feedAscii(bytes[p - 1]);
        }
        if (n > 0) visit(text.size());
    }

    std::string_view text_;
    std::vector<std::size_t> starts_;
};

// Whether a character (or any text) is one of a fixed set of texts.
template <std::size_t N>
bool isOneOf(const std::array<std::string_view, N>& set, std::string_view text) {
    return std::find(set.begin(), set.end(), text) != set.end();
}

} // namespace norrow
