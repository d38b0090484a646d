#include "core/TextWindow.h"

#include "core/Graphemes.h"

#include <gtest/gtest.h>
#include <random>

namespace norrow {
namespace {

std::vector<std::string_view> characters(std::string_view text) {
    const Graphemes g(text);
    std::vector<std::string_view> out;
    for (std::size_t i = 0; i < g.size(); ++i)
        out.push_back(g[i]);
    return out;
}

// Exact windows; the property below cannot tell a window that is merely too long.
TEST(TextWindow, PrefixesEndBetweenScalarsAndSuffixesStartAtCleanCuts) {
    EXPECT_EQ(textwindow::prefix("abcdef", 3), "abc");
    EXPECT_EQ(textwindow::prefix("a\u00E9b", 2), "a\u00E9");
    EXPECT_EQ(textwindow::suffix("abcdef", 2), "ef");
    EXPECT_EQ(textwindow::suffix("ab\r\ncd", 3), "\r\ncd");
    EXPECT_EQ(textwindow::suffix("\u4E16\u754C", 1), "\u754C");
    EXPECT_EQ(textwindow::suffix("abc", 0), "c");
}

// Whatever the text, a window splits into the same characters as the whole text there (but
// for a prefix's last one, which may continue past it).
TEST(TextWindow, WindowsSplitLikeTheWholeText) {
    const std::string pieces[] = {"a",          "b",          " ",      "\r",         "\n",
                                  "\u0301",     "\u200D",     "\u0600", "\U0001F1EB", "\U0001F1F7",
                                  "\U0001F44D", "\U0001F3FD", "\u1100", "\u1161",     "\uFE0F",
                                  "\u4E16",     "\u0903",     "\t",     "\xff"};
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (int i = static_cast<int>(random() % 24); i > 0; --i)
            text += pieces[random() % std::size(pieces)];
        const auto whole = characters(text);
        const std::size_t bytes = random() % (text.size() + 2);
        const std::string_view head = textwindow::prefix(text, bytes);
        auto front = characters(head);
        ASSERT_LE(front.size(), whole.size());
        if (head.size() < text.size() && !front.empty()) front.pop_back();
        EXPECT_TRUE(std::equal(front.begin(), front.end(), whole.begin())) << text;
        const auto back = characters(textwindow::suffix(text, bytes));
        ASSERT_LE(back.size(), whole.size());
        EXPECT_TRUE(std::equal(back.rbegin(), back.rend(), whole.rbegin())) << text;
    }
}

} // namespace
} // namespace norrow
