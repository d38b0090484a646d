#include "core/Graphemes.h"

#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <unicode/brkiter.h>
#include <unicode/utext.h>

namespace norrow {
namespace {

std::vector<std::size_t> icuBoundaries(const std::string& text) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> it(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    UText utext = UTEXT_INITIALIZER;
    utext_openUTF8(&utext, text.data(), static_cast<int64_t>(text.size()), &status);
    it->setText(&utext, status);
    std::vector<std::size_t> boundaries;
    for (int32_t at = it->first(); at != icu::BreakIterator::DONE; at = it->next())
        boundaries.push_back(static_cast<std::size_t>(at));
    utext_close(&utext);
    EXPECT_TRUE(U_SUCCESS(status));
    return boundaries;
}

// Whatever the mix, the characters must be ICU's, and an ASCII byte must be told a character
// by itself exactly when it is one.
TEST(Graphemes, SplitsLikeIcu) {
    const std::string pieces[] = {
        "a",      " ",          "\r",         "\n",         "\t",     "\u00E9", "\u0301",
        "\u200D", "\u0600",     "\U0001F1EB", "\U0001F1F7", "\u1100", "\u1161", "\u11A8",
        "\uAC00", "\U0001F44D", "\U0001F3FD", "\U0001F680", "\u2764", "\uFE0F", "\u4E16",
        "\u0915", "\u094D",     "\u0903",     "\u0930",     "\u0B95", "\u0085", "\u2028",
        "\xff",   "\xe2\x80",   "\U000E0001", "`"};
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (int i = static_cast<int>(random() % 12); i > 0; --i)
            text += pieces[random() % std::size(pieces)];
        const Graphemes g(text);
        std::vector<std::size_t> boundaries;
        for (std::size_t i = 0; i <= g.size(); ++i)
            boundaries.push_back(g.offset(i));
        ASSERT_EQ(boundaries, icuBoundaries(text)) << text;
        for (std::size_t i = 0; i < g.size(); ++i) {
            for (std::size_t at = g.offset(i); at < g.offset(i + 1); ++at) {
                if (text[at] == '`') {
                    ASSERT_EQ(Graphemes::isOwnCharacter(text, at), g[i] == "`") << text;
                }
            }
        }
    }
}

} // namespace
} // namespace norrow
