// The whole summary pipeline over real messages and hostile inputs: it never fails, the text
// always fits the banner, and the lint finds nothing but the cut inside one over-long word.
#include "core/Graphemes.h"
#include "core/Summarizer.h"
#include "core/SummaryLint.h"
#include "support/Files.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <set>

namespace norrow {
namespace {

const std::filesystem::path corpus(NORROW_CORPUS_DIR);

using test::contents;

bool fits(const std::string& text) {
    return Graphemes::count(text) <= static_cast<std::size_t>(Summarizer::maxLength);
}

// Findings outside `tolerated` fail, but for a mid-word cut when the summary is one word: the
// one cut truncation cannot avoid.
void expectCleanSummary(const std::string& name, const std::string& markdown,
                        const std::set<std::string>& tolerated = {}) {
    const std::string text = Summarizer::summarize(markdown).text;
    EXPECT_TRUE(fits(text) && !text.empty()) << name;
    auto found = SummaryLint::markdownArtifacts(text);
    for (auto& violation : SummaryLint::lengthViolations(text, Summarizer::leadSentence(markdown),
                                                         Summarizer::maxLength))
        found.push_back(violation);
    const Graphemes g(text);
    bool oneWord = true;
    for (std::size_t i = 0; i + 1 < g.size(); ++i)
        oneWord = oneWord && (g.isLetter(i) || g.isNumber(i));
    for (const auto& violation : found)
        if (!tolerated.count(violation.rule) && !(violation.rule == "mid-word" && oneWord))
            ADD_FAILURE() << name << ": " << violation.description() << "\n  summary: " << text;
}

TEST(SummaryCorpus, EveryRealMessageGivesACleanSummaryWithinTheLimit) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(corpus / "assistant-messages")) {
        if (entry.path().extension() != ".md") continue;
        expectCleanSummary(entry.path().filename().string(), contents(entry.path()));
        ++count;
    }
    EXPECT_EQ(count, 235u);
}

// The syntax examples hold constructs the stripper deliberately does not parse (bars in
// running text, nested brackets and tags, nested list markers); code, emphasis, URLs and line
// breaks never show.
TEST(SummaryCorpus, MarkdownSyntaxExamplesNeverLeaveCodeEmphasisOrUrls) {
    const auto examples = nlohmann::json::parse(contents(corpus / "commonmark/examples.json"));
    ASSERT_EQ(examples.size(), 655u);
    for (const auto& example : examples)
        expectCleanSummary("commonmark " + example["number"].dump(),
                           example["markdown"].get<std::string>(),
                           {"table", "link", "html", "list-marker"});
}

TEST(SummaryCorpus, HostileInputsStayWithinTheLimit) {
    const std::string word(10'000, 'w');
    const std::string cases[] = {
        std::string(1 << 20, '*'),
        "x" + std::string(1 << 20, '*'),
        "Intro " + word + " outro.",
        "\xff\xfe broken \xc3 utf-8 \xed\xa0\x80 text. More \xf0\x9f\x98",
        std::string(5000, '[') + std::string(5000, ']') + "(" + word,
        "`" + std::string(3000, 'a') + "`" + std::string(20'000, '`'),
    };
    for (const std::string& text : cases)
        EXPECT_TRUE(fits(Summarizer::summarize(text).text)) << text.substr(0, 40);
    EXPECT_EQ(Summarizer::summarize(word).text, std::string(139, 'w') + "\u2026");
}

} // namespace
} // namespace norrow
