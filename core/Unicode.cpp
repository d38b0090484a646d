#include "core/Unicode.h"

#include <memory>
#include <unicode/locid.h>
#include <unicode/ucptrie.h>
#include <unicode/umutablecptrie.h>
#include <unicode/unistr.h>
#include <unicode/uset.h>

namespace norrow::unicode {

bool isWhitespace(char32_t c) {
    if (c < 0x80) return c == ' ' || (c >= '\t' && c <= '\r');
    return u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_WHITE_SPACE);
}

bool isLetter(char32_t c) {
    if (c < 0x80) return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_ALPHABETIC);
}

bool isNumber(char32_t c) {
    if (c < 0x80) return c >= '0' && c <= '9';
    return u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_NUMERIC_TYPE) != U_NT_NONE;
}

bool isEmoji(char32_t c) {
    return u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_EMOJI);
}

bool isEmojiPresentation(char32_t c) {
    return u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_EMOJI_PRESENTATION);
}

namespace {

// Grapheme_Cluster_Break in the low five bits and Extended_Pictographic in the next, in one
// fast trie built once: the two properties that segmenting asks about for every character.
constexpr uint8_t kBreakBits = 0x1F;
constexpr uint8_t kPictographic = 0x20;

struct TrieDeleter {
    void operator()(UCPTrie* trie) const { ucptrie_close(trie); }
};
struct MutableTrieDeleter {
    void operator()(UMutableCPTrie* trie) const { umutablecptrie_close(trie); }
};

std::unique_ptr<UCPTrie, TrieDeleter> buildBreakTrie() {
    UErrorCode status = U_ZERO_ERROR;
    const UCPMap* breaks = u_getIntPropertyMap(UCHAR_GRAPHEME_CLUSTER_BREAK, &status);
    const USet* pictographs = u_getBinaryPropertySet(UCHAR_EXTENDED_PICTOGRAPHIC, &status);
    if (U_FAILURE(status)) return nullptr;
    std::unique_ptr<UMutableCPTrie, MutableTrieDeleter> building(
        umutablecptrie_fromUCPMap(breaks, &status));
    for (int32_t i = 0; U_SUCCESS(status) && i < uset_getItemCount(pictographs); ++i) {
        UChar32 start = 0;
        UChar32 end = 0;
        uset_getItem(pictographs, i, &start, &end, nullptr, 0, &status);
        for (UChar32 c = start; U_SUCCESS(status) && c <= end; ++c)
            umutablecptrie_set(building.get(), c,
                               umutablecptrie_get(building.get(), c) | kPictographic, &status);
    }
    std::unique_ptr<UCPTrie, TrieDeleter> built(umutablecptrie_buildImmutable(
        building.get(), UCPTRIE_TYPE_FAST, UCPTRIE_VALUE_BITS_8, &status));
    if (U_FAILURE(status)) return nullptr;
    return built;
}

const UCPTrie* breakTrie() {
    static const std::unique_ptr<UCPTrie, TrieDeleter> trie = buildBreakTrie();
    return trie.get();
}

} // namespace

GraphemeProperties graphemeProperties(char32_t c) {
    const auto scalar = static_cast<UChar32>(c);
    const UCPTrie* trie = breakTrie();
    if (trie == nullptr)
        return {static_cast<UGraphemeClusterBreak>(
                    u_getIntPropertyValue(scalar, UCHAR_GRAPHEME_CLUSTER_BREAK)),
                u_hasBinaryProperty(scalar, UCHAR_EXTENDED_PICTOGRAPHIC) != 0};
    const uint8_t value = UCPTRIE_FAST_GET(trie, UCPTRIE_8, scalar);
    return {static_cast<UGraphemeClusterBreak>(value & kBreakBits), (value & kPictographic) != 0};
}

bool alwaysBreaksBetween(char32_t before, char32_t after) {
    switch (graphemeProperties(before).kind) {
    case U_GCB_CR:
        return after != U'\n';
    case U_GCB_LF:
    case U_GCB_CONTROL:
        return true;
    case U_GCB_OTHER: {
        const UGraphemeClusterBreak next = graphemeProperties(after).kind;
        return next != U_GCB_EXTEND && next != U_GCB_ZWJ && next != U_GCB_SPACING_MARK;
    }
    default:
        return false;
    }
}

char32_t decode(std::string_view s, std::size_t i, std::size_t& length) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char b0 = byte(i);
    length = 1;
    if (b0 < 0x80) return b0;
    std::size_t need = 0;
    char32_t c = 0;
    char32_t min = 0;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        need = 1, c = b0 & 0x1F, min = 0x80;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        need = 2, c = b0 & 0x0F, min = 0x800;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        need = 3, c = b0 & 0x07, min = 0x10000;
    } else {
        return 0xFFFD;
    }
    if (i + need >= s.size()) return 0xFFFD;
    for (std::size_t k = 1; k <= need; ++k) {
        const unsigned char b = byte(i + k);
        if ((b & 0xC0) != 0x80) return 0xFFFD;
        c = (c << 6) | (b & 0x3F);
    }
    if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0xFFFD;
    length = need + 1;
    return c;
}

void append(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

bool isValidUtf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        std::size_t length = 0;
        if (decode(s, i, length) == 0xFFFD && length == 1) return false;
        i += length;
    }
    return true;
}

std::string toValidUtf8(std::string_view s) {
    if (isValidUtf8(s)) return std::string(s);
    std::string out;
    out.reserve(s.size() + 8);
    for (std::size_t i = 0; i < s.size();) {
        std::size_t length = 0;
        append(out, decode(s, i, length));
        i += length;
    }
    return out;
}

namespace {

enum class Case { lower, upper };

std::string mapCase(std::string_view s, Case to) {
    bool ascii = true;
    for (char ch : s)
        ascii = ascii && static_cast<unsigned char>(ch) < 0x80;
    std::string out;
    if (ascii) {
        out.reserve(s.size());
        for (char ch : s) {
            if (to == Case::lower && ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
            if (to == Case::upper && ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
            out += ch;
        }
        return out;
    }
    icu::UnicodeString u =
        icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
    if (to == Case::lower)
        u.toLower(icu::Locale::getRoot());
    else
        u.toUpper(icu::Locale::getRoot());
    u.toUTF8String(out);
    return out;
}

} // namespace

std::string lowercased(std::string_view s) {
    return mapCase(s, Case::lower);
}
std::string uppercased(std::string_view s) {
    return mapCase(s, Case::upper);
}

} // namespace norrow::unicode
