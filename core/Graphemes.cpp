#include "core/Graphemes.h"

#include "core/Unicode.h"

#include <algorithm>
#include <cstdint>
#include <unicode/uniset.h>

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

} // namespace

bool Graphemes::Rules::breaksBeforeOther(char32_t c) {
    const ConjunctSets& conjuncts = ConjunctSets::get();
    const unicode::GraphemeProperties properties = unicode::graphemeProperties(c);
    const UGraphemeClusterBreak kind = properties.kind;
    const bool consonant = conjuncts.active && conjuncts.consonant.contains(c);
    const bool breaks = started_ && decide(kind, properties.pictographic, consonant);
    started_ = true;
    previous_ = kind;
    regionalIndicators_ = kind == U_GCB_REGIONAL_INDICATOR ? regionalIndicators_ + 1 : 0;
    // GB11 asks whether a pictograph came before a ZWJ and the extending marks before it.
    if (kind == U_GCB_ZWJ) zwjAfterPictograph_ = basePictographic_;
    if (kind != U_GCB_EXTEND) basePictographic_ = properties.pictographic;
    if (consonant)
        conjunct_ = Conjunct::consonant;
    else if (conjunct_ != Conjunct::none && conjuncts.linker.contains(c))
        conjunct_ = Conjunct::linked;
    else if (conjunct_ != Conjunct::none && !conjuncts.extend.contains(c))
        conjunct_ = Conjunct::none;
    return breaks;
}

bool Graphemes::Rules::decide(UGraphemeClusterBreak kind, bool pictographic, bool consonant) const {
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
        return false;                                                             // GB9, GB9a
    if (before == U_GCB_PREPEND) return false;                                    // GB9b
    if (consonant && conjunct_ == Conjunct::linked) return false;                 // GB9c
    if (before == U_GCB_ZWJ && pictographic && zwjAfterPictograph_) return false; // GB11
    if (before == U_GCB_REGIONAL_INDICATOR && kind == U_GCB_REGIONAL_INDICATOR &&
        regionalIndicators_ % 2 == 1)
        return false; // GB12, GB13
    return true;      // GB999
}

Graphemes::Graphemes(std::string_view utf8) : Graphemes(utf8, utf8.size()) {}

Graphemes::Graphemes(std::string_view utf8, std::size_t limit) {
    starts_.reserve(std::min(utf8.size(), limit) + 1);
    starts_.push_back(0);
    forEachBoundary(utf8, [this, limit](std::size_t boundary) {
        starts_.push_back(boundary);
        return size() < limit;
    });
    text_ = utf8.substr(0, starts_.back());
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

bool Graphemes::joinsNoNeighbour(std::string_view utf8, std::size_t at) {
    if (at > 0) {
        std::size_t start = at - 1;
        while (start > 0 && (static_cast<unsigned char>(utf8[start]) & 0xC0) == 0x80)
            --start;
        std::size_t length = 0;
        const char32_t before = unicode::decode(utf8, start, length);
        if (start + length == at && unicode::graphemeProperties(before).kind == U_GCB_PREPEND)
            return false;
    }
    if (at + 1 >= utf8.size()) return true;
    std::size_t length = 0;
    const UGraphemeClusterBreak after =
        unicode::graphemeProperties(unicode::decode(utf8, at + 1, length)).kind;
    return after != U_GCB_EXTEND && after != U_GCB_ZWJ && after != U_GCB_SPACING_MARK;
}

std::size_t Graphemes::count(std::string_view utf8) {
    std::size_t n = 0;
    forEachBoundary(utf8, [&n](std::size_t) {
        ++n;
        return true;
    });
    return n;
}

} // namespace norrow
