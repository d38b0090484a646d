#include "core/MarkdownStripper.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <random>

namespace norrow {
namespace {

namespace Regexes = MarkdownStripper::Regexes;

TEST(MarkdownStripper, RawBlocksSplitParagraphsHeadingsAndListItems) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"", {}},
        {"```swift\nlet x = 1\n```\nDone.", {"Done."}},
        {"Before\n```\nnever closed\n\nstill code", {"Before"}},
        {"````\ncode\n```\nstill code\n````\nafter", {"after"}},
        {"```\ncode\n~~~\nstill code", {}},
        {"``` not `a` fence\ntext", {"``` not `a` fence text"}},
        {"## Plan ##\nWe will fix it.", {"Plan", "We will fix it."}},
        {"# Using C#", {"Using C"}},
        {"####### seven\n#hashtag", {"####### seven #hashtag"}},
        {"###\nafter an empty heading", {"after an empty heading"}},
        {"- [x] tests pass\n1) first\n  continued\n1234567890. x",
         {"tests pass", "first continued 1234567890. x"}},
        {"* [ ] open\n+ [] empty\n• bullet\n-not an item",
         {"open", "empty", "bullet -not an item"}},
        {"| a | b |\n|---|:--:|\na | b", {"a | b"}},
        {"> > quoted\n>still", {"quoted still"}},
        {"one\n\n- - -\n***\ntwo\n-*-", {"one", "two -*-"}},
        {"  lead\t \n\n\n  trail  ", {"lead", "trail"}},
        {"one\r\ntwo\r\n\r\nthree", {"one\r\ntwo\r\n\r\nthree"}}, // CR LF is no line feed
        {"ends with a lone CR\r", {"ends with a lone CR"}},
    };
    for (const auto& [markdown, blocks] : cases)
        EXPECT_EQ(MarkdownStripper::rawBlocks(markdown), blocks) << markdown;
}

TEST(MarkdownStripper, InlineTextRemovesMarkupAndKeepsProse) {
    const std::pair<const char*, const char*> cases[] = {
        {"See [the docs](https://host/z) and <https://host>.", "See the docs and ."},
        {"a bare https://host/path in text", "a bare in text"},
        {"visit www.example.com now, or WWW.X.ORG", "visit now, or"},
        {"Www.mixed.case stays without a slash", "Www.mixed.case stays without a slash"},
        {"![logo](a.png) and [ref][1] and [empty]()", "logo and ref and empty"},
        {"**bold** and ~~gone~~ and *it*", "bold and gone and it"},
        {"__under__ then _one_", "under_ then one"}, // \S may take the first closing underscore
        {"snake_case_name", "snake_case_name"},
        {"`a*b` and `unclosed", "ab and unclosed"},
        {"``code with ` inside`` ok", "code with inside ok"},
        {"`https://x.io/y` and `__init__`", "and init"},
        {"`<b>|x</b>`", "bx/b"},
        {"&amp;lt; &quot;q&quot; &#39;s&apos; a&nbsp;b &mdash; &ndash; &hellip;",
         "< \"q\" 's' a b \u2014 \u2013 \u2026"},
        {"<!-- note --> kept <b>bold</b> <a:b>", "kept bold"},
        {": \u2022 \u00B7 \u27A1\uFE0F \u2014 \u2705 Done", "Done"},
        {"Done \u2705", "Done \u2705"},
        {"  many \n\t spaces  ", "many spaces"},
        // The message's own placeholder characters never take a span's place nor show.
        {"\uE0000\uE001 `real`", "0 real"},
        {"`a` \uE001\uE000 b\uE000", "a b"},
    };
    for (const auto& [block, expected] : cases)
        EXPECT_EQ(MarkdownStripper::inlineText(block), expected) << block;
    EXPECT_EQ(MarkdownStripper::strip("# Title\n\n[](x)\n\nBody *text*."), "Title\n\nBody text.");
}

// Past half a megabyte, ICU itself fails on one long match of \S+ or \s*.
TEST(MarkdownStripper, LongConstructsGoAsAWhole) {
    const auto run = [](std::string_view unit) {
        std::string text;
        while (text.size() < 700'000)
            text += unit;
        return text;
    };
    const std::string body = run("a");
    const std::pair<std::string, std::string> cases[] = {
        {run("https://x/"), ""},
        {"Read " + run("www.x.") + " now.", "Read now."},
        {"See [" + run(" ") + "] here.", "See here."},
        {"<!--" + body + "--> kept", "kept"},
        {"**" + body + "**", body},
    };
    for (const auto& [markdown, text] : cases) {
        const std::string stripped = MarkdownStripper::strip(markdown);
        EXPECT_TRUE(stripped == text) << markdown.substr(0, 20) << " gave " << stripped.size()
                                      << " bytes: " << stripped.substr(0, 40);
    }
}

// The linear drivers must give exactly ICU's own replaceAll, on random texts over the
// characters the patterns care about (case-folding and white-space odd ones included) and on
// every real message.
TEST(MarkdownStripper, RegexesMatchIcuReplaceAll) {
    std::vector<icu::UnicodeString> inputs;
    const auto folder = std::filesystem::path(NORROW_CORPUS_DIR) / "assistant-messages";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream in(entry.path(), std::ios::binary);
        inputs.push_back(icu::UnicodeString::fromUTF8(
            std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())));
    }
    // Every other text draws only on the first eight, where the emphasis patterns' many
    // ways to end are dense.
    const std::u16string alphabet[] = {
        u"*",      u"_",      u"~",      u" ",    u"a",   u"\U0001F600", u"\u00A0",
        u"1",      u"[",      u"]",      u"(",    u")",   u"<",          u">",
        u"!",      u":",      u"/",      u"b",    u"`",   u"&",          u";",
        u"-",      u"w",      u"W",      u".",    u"\n",  u"\u2028",     u"\u017F",
        u"\u212A", u"\u0085", u"\u000B", u"<!--", u"-->", u"://",        u"www."};
    std::mt19937 random(20240521);
    for (int round = 0; round < 6000; ++round) {
        std::u16string text;
        for (int i = static_cast<int>(random() % 16); i > 0; --i)
            text += alphabet[random() % (round % 2 == 0 ? 8 : std::size(alphabet))];
        inputs.emplace_back(text.data(), static_cast<int32_t>(text.size()));
    }
    UErrorCode status = U_ZERO_ERROR;
    for (const Regexes::Name name : Regexes::all) {
        ASSERT_NE(Regexes::pattern(name), nullptr);
        const auto replacement = Regexes::replacement(name);
        const icu::UnicodeString icuReplacement(replacement.data(),
                                                static_cast<int32_t>(replacement.size()));
        for (const icu::UnicodeString& input : inputs) {
            std::unique_ptr<icu::RegexMatcher> icu(Regexes::pattern(name)->matcher(input, status));
            std::string text;
            ASSERT_EQ(Regexes::replaceAll(name, input), icu->replaceAll(icuReplacement, status))
                << "pattern " << static_cast<int>(name) << " on " << input.toUTF8String(text);
        }
    }
    EXPECT_TRUE(U_SUCCESS(status));
}

} // namespace
} // namespace norrow
