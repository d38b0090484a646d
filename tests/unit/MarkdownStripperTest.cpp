#include "core/MarkdownStripper.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <random>

namespace norrow {
namespace {

using Regexes = MarkdownStripper::Regexes;
using Blocks = std::vector<std::string>;

std::string utf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

// What ICU's own replaceAll gives, trying every start position.
icu::UnicodeString icuReplaceAll(Regexes::Name name, const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(Regexes::pattern(name)->matcher(text, status));
    const auto replacement = Regexes::replacement(name);
    icu::UnicodeString out = matcher->replaceAll(
        icu::UnicodeString(replacement.data(), static_cast<int32_t>(replacement.size())), status);
    EXPECT_TRUE(U_SUCCESS(status));
    return out;
}

TEST(MarkdownStripperBlocks, SplitsParagraphsHeadingsAndListItems) {
    struct Case {
        const char* markdown;
        Blocks blocks;
    };
    const Case cases[] = {
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
        // A CR LF pair is one character and not a line feed: the message stays one line.
        {"one\r\ntwo\r\n\r\nthree", {"one\r\ntwo\r\n\r\nthree"}},
        {"ends with a lone CR\r", {"ends with a lone CR"}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(MarkdownStripper::rawBlocks(c.markdown), c.blocks) << c.markdown;
}

TEST(MarkdownStripperInline, RemovesMarkupAndKeepsProse) {
    struct Case {
        const char* block;
        const char* expected;
    };
    const Case cases[] = {
        {"See [the docs](https://host/z) and <https://host>.", "See the docs and ."},
        {"a bare https://host/path in text", "a bare in text"},
        {"visit www.example.com now, or WWW.X.ORG", "visit now, or"},
        {"Www.mixed.case stays without a slash", "Www.mixed.case stays without a slash"},
        {"![logo](a.png) and [ref][1] and [empty]()", "logo and ref and empty"},
        {"**bold** and ~~gone~~ and *it*", "bold and gone and it"},
        // The pattern's \S may take the first closing underscore; the group keeps it.
        {"__under__ then _one_", "under_ then one"},
        {"snake_case_name", "snake_case_name"},
        {"`a*b` and `unclosed", "ab and unclosed"},
        {"``code with ` inside`` ok", "code with inside ok"},
        {"`https://x.io/y` and `__init__`", "and init"},
        {"`<b>|x</b>`", "bx/b"},
        {"&amp;lt; &quot;q&quot; &#39;s&apos; a&nbsp;b &mdash; &ndash; &hellip;",
         "< \"q\" 's' a b \u2014 \u2013 \u2026"},
        {"<!-- note --> kept <b>bold</b> <a:b>", "kept bold"},
        {"\u2705 Done", "Done"},
        {"\u2014 Done", "Done"},
        {": \u2022 \u00B7 \u27A1\uFE0F Done", "Done"},
        {"Done \u2705", "Done \u2705"},
        {"  many \n\t spaces  ", "many spaces"},
        {"\uE0000\uE001 `real`", "real \uE0000\uE001"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(MarkdownStripper::inlineText(c.block), c.expected) << c.block;
}

TEST(MarkdownStripperStrip, JoinsNonEmptyBlocksWithABlankLine) {
    EXPECT_EQ(MarkdownStripper::strip(""), "");
    EXPECT_EQ(MarkdownStripper::strip("# Title\n\n[](x)\n\nBody *text*."), "Title\n\nBody text.");
}

// The linear drivers must give exactly ICU's replaceAll: random short texts over the
// characters the patterns care about, including the case-folding and white-space odd ones.
TEST(MarkdownStripperRegexes, MatchIcuReplaceAllOnRandomTexts) {
    const std::vector<std::u16string> alphabet = {
        u"[",      u"]",    u"(",      u")",      u"<",      u">",          u"!",
        u":",      u"/",    u"a",      u"b",      u" ",      u"_",          u"*",
        u"~",      u"`",    u"&",      u";",      u"-",      u"w",          u"W",
        u".",      u"\n",   u"\u00A0", u"\u2028", u"\u017F", u"\u212A",     u"\u0085",
        u"\u000B", u"<!--", u"-->",    u"://",    u"www.",   u"\U0001F600", u"1"};
    std::mt19937 random(20240521);
    for (const Regexes::Name name : Regexes::all) {
        ASSERT_NE(Regexes::pattern(name), nullptr);
        for (int round = 0; round < 4000; ++round) {
            std::u16string text;
            const int length = static_cast<int>(random() % 16);
            for (int i = 0; i < length; ++i)
                text += alphabet[random() % alphabet.size()];
            const icu::UnicodeString input(text.data(), static_cast<int32_t>(text.size()));
            ASSERT_EQ(utf8(Regexes::replaceAll(name, input)), utf8(icuReplaceAll(name, input)))
                << "pattern " << static_cast<int>(name) << " on " << utf8(input);
        }
    }
}

TEST(MarkdownStripperRegexes, MatchIcuReplaceAllOnTheCorpus) {
    const std::filesystem::path folder =
        std::filesystem::path(NORROW_CORPUS_DIR) / "assistant-messages";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".md") continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string text((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
        const icu::UnicodeString input = icu::UnicodeString::fromUTF8(text);
        for (const Regexes::Name name : Regexes::all)
            ASSERT_EQ(Regexes::replaceAll(name, input), icuReplaceAll(name, input))
                << entry.path() << " pattern " << static_cast<int>(name);
    }
}

} // namespace
} // namespace norrow
