#include "core/Graphemes.h"

#include "core/Unicode.h"

#include <cstdint>
#include <unicode/uniset.h>
#include <unicode/utf8.h>

namespace norrow {
namespace {

// An Indic conjunct stays one character across a virama: a consonant, then joining marks of
// which at least one links, then a consonant. ICU from 74 on has this as Unicode's rule GB9c
// (the Indic_Conjunct_Break property); ICU before it has the same rule from CLDR over its own
// sets, which its iterator's rules spell as below. The sets are the ones this ICU knows.
struct ConjunctSets {
    icu::UnicodeSet consonant;
    icu::UnicodeSet linker;
    // Marks that may stand between the consonant, the linker and the next consonant.
    icu::UnicodeSet extend;
    bool active = false;

    static const ConjunctSets& get() {
        static const ConjunctSets sets = [] {
            ConjunctSets made;
            if (!made.load(u"[\\p{InCB=Consonant}]", u"[\\p{InCB=Linker}]", u"[\\p{InCB=Extend}]"))
                made.load(u"[\\p{Gujr}\\p{sc=Telu}\\p{sc=Mlym}\\p{sc=Orya}\\p{sc=Beng}\\p{sc=Deva}"
                          u"&\\p{Indic_Syllabic_Category=Consonant}]",
                          u"[\\p{Gujr}\\p{sc=Telu}\\p{sc=Mlym}\\p{sc=Orya}\\p{sc=Beng}\\p{sc=Deva}"
                          u"&\\p{Indic_Syllabic_Category=Virama}]",
                          u"[[\\p{gcb=Extend}-\\p{ccc=0}]\\p{gcb=ZWJ}]");
            return made;
        }();
        return sets;
    }

private:
    bool load(std::u16string_view consonants, std::u16string_view linkers,
              std::u16string_view extending) {
        active = set(consonant, consonants) && set(linker, linkers) && set(extend, extending);
        return active;
    }

    static bool set(icu::UnicodeSet& set, std::u16string_view pattern) {
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeSet made(
            icu::UnicodeString(pattern.data(), static_cast<int32_t>(pattern.size())), status);
        if (U_FAILURE(status) || made.isEmpty()) return false;
        set = made;
        set.freeze();
        return true;
    }
};

// The extended grapheme cluster rules, fed one scalar at a time. The rules that look further
// back than one scalar (emoji ZWJ sequences, flag pairs, Indic conjuncts) keep what they need
// as they go, so the whole text is segmented in one forward pass.
class Segmenter {
public:
    // Whether a character ends before `c`, given every scalar fed before it; then feeds `c`.
    bool breaksBefore(char32_t c) {
        if (c < 0x80) return breaksBeforeAscii(c);
        const UGraphemeClusterBreak kind = unicode::graphemeBreak(c);
        const bool consonant = conjuncts_.active && conjuncts_.consonant.contains(c);
        const bool breaks = started_ && decide(kind, c, consonant);
        feed(kind, c, consonant);
        return breaks;
    }

    // Feeds an ASCII character whose break before it is already known.
    void feedAscii(char32_t c) {
        started_ = true;
        previous_ = asciiKind(c);
        regionalIndicators_ = 0;
        base_ = c;
        conjunct_ = Conjunct::none;
    }

private:
    enum class Conjunct { none, consonant, linked };

    static UGraphemeClusterBreak asciiKind(char32_t c) {
        if (c == '\r') return U_GCB_CR;
        if (c == '\n') return U_GCB_LF;
        return c < 0x20 || c == 0x7F ? U_GCB_CONTROL : U_GCB_OTHER;
    }

    // No ASCII character extends, links, pictures or flags anything, so of all the rules only
    // CR LF and a preceding Prepend can join one to what comes before.
    bool breaksBeforeAscii(char32_t c) {
        const UGraphemeClusterBreak kind = asciiKind(c);
        const bool breaks =
            started_ && (previous_ == U_GCB_CR ? kind != U_GCB_LF
                                               : previous_ != U_GCB_PREPEND || kind != U_GCB_OTHER);
        feedAscii(c);
        return breaks;
    }

    bool decide(UGraphemeClusterBreak kind, char32_t c, bool consonant) const {
        const UGraphemeClusterBreak before = previous_;
        if (before == U_GCB_CR) return kind != U_GCB_LF;                                // GB3, GB4
        if (before == U_GCB_LF || before == U_GCB_CONTROL) return true;                 // GB4
        if (kind == U_GCB_CONTROL || kind == U_GCB_CR || kind == U_GCB_LF) return true; // GB5
        if (before == U_GCB_L &&
            (kind == U_GCB_L || kind == U_GCB_V || kind == U_GCB_LV || kind == U_GCB_LVT))
            return false; // GB6
        if ((before == U_GCB_LV || before == U_GCB_V) && (kind == U_GCB_V || kind == U_GCB_T))
            return false;                                                                // GB7
        if ((before == U_GCB_LVT || before == U_GCB_T) && kind == U_GCB_T) return false; // GB8
        if (kind == U_GCB_EXTEND || kind == U_GCB_ZWJ || kind == U_GCB_SPACING_MARK)
            return false;                                             // GB9, GB9a
        if (before == U_GCB_PREPEND) return false;                    // GB9b
        if (consonant && conjunct_ == Conjunct::linked) return false; // GB9c
        if (before == U_GCB_ZWJ && unicode::isExtendedPictographic(c) &&
            unicode::isExtendedPictographic(zwjBase_))
            return false; // GB11
        if (before == U_GCB_REGIONAL_INDICATOR && kind == U_GCB_REGIONAL_INDICATOR &&
            regionalIndicators_ % 2 == 1)
            return false; // GB12, GB13
        return true;      // GB999
    }

    void feed(UGraphemeClusterBreak kind, char32_t c, bool consonant) {
        started_ = true;
        previous_ = kind;
        regionalIndicators_ = kind == U_GCB_REGIONAL_INDICATOR ? regionalIndicators_ + 1 : 0;
        // GB11 asks what came before a ZWJ and the extending marks before it.
        if (kind == U_GCB_ZWJ) zwjBase_ = base_;
        if (kind != U_GCB_EXTEND) base_ = c;
        if (consonant)
            conjunct_ = Conjunct::consonant;
        else if (conjunct_ != Conjunct::none && conjuncts_.linker.contains(c))
            conjunct_ = Conjunct::linked;
        else if (conjunct_ != Conjunct::none && !conjuncts_.extend.contains(c))
            conjunct_ = Conjunct::none;
    }

    const ConjunctSets& conjuncts_ = ConjunctSets::get();
    bool started_ = false;
    UGraphemeClusterBreak previous_ = U_GCB_OTHER;
    std::size_t regionalIndicators_ = 0;
    char32_t base_ = 0;
    char32_t zwjBase_ = 0;
    Conjunct conjunct_ = Conjunct::none;
};

bool isAscii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

// Calls `visit` with every boundary after the text's start, in order, until it returns false.
// Malformed UTF-8 reads as U+FFFD per maximal ill-formed subsequence, as ICU reads it.
template <typename Visit> void forEachBoundary(std::string_view text, Visit visit) {
    const auto n = static_cast<int64_t>(text.size());
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    Segmenter segmenter;
    for (int64_t p = 0; p < n;) {
        const int64_t at = p;
        UChar32 c = 0;
        U8_NEXT_OR_FFFD(bytes, p, n, c);
        if (segmenter.breaksBefore(static_cast<char32_t>(c)) && at > 0 &&
            !visit(static_cast<std::size_t>(at)))
            return;
        if (c >= 0x80) continue;
        // Between two ASCII characters there is always a break, but inside CR LF.
        while (p < n && isAscii(text[p]) && text[p - 1] != '\r')
            if (!visit(static_cast<std::size_t>(p++))) return;
        segmenter.feedAscii(static_cast<char32_t>(text[p - 1]));
    }
    if (n > 0) visit(text.size());
}

} // namespace

Graphemes::Graphemes(std::string_view utf8) : text_(utf8) {
    starts_.reserve(utf8.size() + 1);
    starts_.push_back(0);
    forEachBoundary(utf8, [this](std::size_t boundary) {
        starts_.push_back(boundary);
        return true;
    });
}

char32_t Graphemes::scalar(std::size_t i) const {
    std::size_t length = 0;
    return unicode::decode(text_, starts_[i], length);
}

bool Graphemes::isWhitespace(std::size_t i) const {
    return unicode::isWhitespace(scalar(i));
}
bool Graphemes::isLetter(std::size_t i) const {
    return unicode::isLetter(scalar(i));
}
bool Graphemes::isNumber(std::size_t i) const {
    return unicode::isNumber(scalar(i));
}

std::size_t Graphemes::count(std::string_view utf8) {
    std::size_t n = 0;
    forEachBoundary(utf8, [&n](std::size_t) {
        ++n;
        return true;
    });
    return n;
}

void Graphemes::visitEach(std::string_view utf8, bool (*visit)(void*, std::string_view),
                          void* context) {
    std::size_t from = 0;
    forEachBoundary(utf8, [&](std::size_t to) {
        const std::string_view character = utf8.substr(from, to - from);
        from = to;
        return visit(context, character);
    });
}

} // namespace norrow
