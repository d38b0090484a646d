#include "core/SummaryLint.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

// The findings' descriptions, in order, joined by "; ".
std::string descriptions(const std::vector<SummaryLint::Violation>& violations) {
    std::string out;
    for (const auto& violation : violations)
        out += (out.empty() ? "" : "; ") + violation.description();
    return out;
}

TEST(SummaryLint, MarkdownArtifactsInRuleOrder) {
    const std::pair<const char*, const char*> cases[] = {
        {"Fixed the bug. Tests pass.", ""},
        {"All **done**", "bold: **; emphasis: *"},
        {"__init__ and ~~~", "code-fence: ``` or ~~~; bold: __"},
        {"Run `make`", "backtick: `"},
        {"See [docs](x) | more", "link: ](; table: |"},
        {"See WWW.host/", "url: www."},
        {"See http://www.x", "url: ://; url: www."},
        {"a <b>tag</b>", "html: <tag>"},
        {"a < b > c", ""},
        {"-item", ""},
        {"- item", "list-marker: leading marker"},
        {"## Plan", "list-marker: leading marker"},
        {"12) step", "list-marker: leading marker"},
        {"> quote", "list-marker: leading marker"},
        {"two\nlines", "newline: \\n"},
    };
    for (const auto& [text, found] : cases)
        EXPECT_EQ(descriptions(SummaryLint::markdownArtifacts(text)), found) << text;
}

TEST(SummaryLint, LengthAndTruncationRules) {
    const std::tuple<std::string, std::string, int, const char*> cases[] = {
        {"Fixed the\u2026", "Fixed the bug", 140, ""},
        {"Fixed th\u2026", "Fixed the bug", 140, "mid-word: cut before 'e'"},
        {"Fixes\u2026", "Fixed the bug", 140,
         "not-a-prefix: truncated text is not a prefix of the lead"},
        {"Fixed the bug\u2026", "Fixed the bug", 140, ""},
        {"Wait\u2026", "Wait\u2026 what", 140, ""},
        {std::string(140, 'x'), "", 140, ""},
        {std::string(152, 'x'), "", 140, "too-long: 152 > 140"},
        {"\u00E9\u00E9\u00E9\u2026", "\u00E9\u00E9\u00E9\u00E9", 4,
         "mid-word: cut before '\u00E9'"},
        {"abc", "abc", -1, "too-long: 3 > -1"},
    };
    for (const auto& [summary, lead, limit, found] : cases)
        EXPECT_EQ(descriptions(SummaryLint::lengthViolations(summary, lead, limit)), found)
            << summary;
}

} // namespace
} // namespace norrow
