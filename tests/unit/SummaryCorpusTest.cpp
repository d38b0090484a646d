// The whole summary pipeline over real messages and hostile inputs: it never fails, the text
// always fits the banner, and the lint finds nothing but the cut inside one over-long word.
#include "core/Graphemes.h"
#include "core/HookEvent.h"
#include "core/Summarizer.h"
#include "core/SummaryLint.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <set>

namespace norrow {
namespace {

const std::filesystem::path corpus(NORROW_CORPUS_DIR);

std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

using Messages = std::vector<std::pair<std::string, std::string>>;

Messages assistantMessages() {
    Messages messages;
    for (const auto& entry : std::filesystem::directory_iterator(corpus / "assistant-messages"))
        if (entry.path().extension() == ".md")
            messages.emplace_back(entry.path().filename().string(), contents(entry.path()));
    return messages;
}

Messages commonMarkExamples() {
    Messages messages;
    for (const auto& example : nlohmann::json::parse(contents(corpus / "commonmark/examples.json")))
        messages.emplace_back("commonmark " + example["number"].dump(),
                              example["markdown"].get<std::string>());
    return messages;
}

// Whether `summary` is a hard cut inside one word, the only cut the truncation cannot avoid.
bool isOneWordCut(const std::string& summary) {
    const Graphemes g(summary);
    for (std::size_t i = 0; i + 1 < g.size(); ++i)
        if (!g.isLetter(i) && !g.isNumber(i)) return false;
    return true;
}

// `tolerated`: rules whose findings the message may cause.
void expectCleanSummary(const std::string& name, const std::string& markdown,
                        const std::set<std::string>& tolerated = {}) {
    const Summary summary = Summarizer::summarize(markdown);
    EXPECT_LE(Graphemes::count(summary.text), static_cast<std::size_t>(Summarizer::maxLength))
        << name;
    EXPECT_FALSE(summary.text.empty()) << name;
    std::vector<SummaryLint::Violation> found = SummaryLint::markdownArtifacts(summary.text);
    for (auto& violation : SummaryLint::lengthViolations(
             summary.text, Summarizer::leadSentence(markdown), Summarizer::maxLength))
        found.push_back(violation);
    for (const auto& violation : found) {
        if (tolerated.count(violation.rule) ||
            (violation.rule == "mid-word" && isOneWordCut(summary.text)))
            continue;
        ADD_FAILURE() << name << ": " << violation.description() << "\n  summary: " << summary.text;
    }
}

TEST(SummaryCorpus, EveryRealMessageGivesACleanSummaryWithinTheLimit) {
    const Messages messages = assistantMessages();
    ASSERT_EQ(messages.size(), 235u);
    for (const auto& [name, markdown] : messages)
        expectCleanSummary(name, markdown);
}

// The syntax examples include constructs the stripper deliberately does not parse: bars in
// running text, nested brackets, tags holding tags, and list markers nested in list items or
// quotes. What they leave behind may show; code, emphasis, URLs and line breaks never do.
TEST(SummaryCorpus, MarkdownSyntaxExamplesNeverLeaveCodeEmphasisOrUrls) {
    const Messages messages = commonMarkExamples();
    ASSERT_EQ(messages.size(), 655u);
    for (const auto& [name, markdown] : messages)
        expectCleanSummary(name, markdown, {"table", "link", "html", "list-marker"});
}

TEST(SummaryCorpus, HostileInputsStayWithinTheLimit) {
    const std::string word(10'000, 'w');
    const std::string cases[] = {
        std::string(1 << 20, '*'),
        "x" + std::string(1 << 20, '*'),
        word,
        "Intro " + word + " outro.",
        "\xff\xfe broken \xc3 utf-8 \xed\xa0\x80 text. More \xf0\x9f\x98",
        std::string(5000, '[') + std::string(5000, ']') + "(" + word,
        "`" + std::string(3000, 'a') + "`" + std::string(20'000, '`'),
    };
    for (const std::string& text : cases) {
        const Summary summary = Summarizer::summarize(text);
        EXPECT_LE(Graphemes::count(summary.text), static_cast<std::size_t>(Summarizer::maxLength))
            << text.substr(0, 40);
        EXPECT_EQ(summary.text, Summarizer::summarize(text).text) << "deterministic";
    }
    EXPECT_EQ(Summarizer::summarize(word).text, std::string(139, 'w') + "\u2026");
}

TEST(SummaryCorpus, LoneSurrogatesInAPayloadStillSummarize) {
    const auto event = HookEvent::fromJson(parseLenientJson(
        R"({"hook_event_name":"Stop","last_assistant_message":"Fixed \ud800 it. \udfff Done?"})"));
    ASSERT_TRUE(event);
    const Summary summary = Summarizer::summarize(*event, 3);
    EXPECT_EQ(summary.text, "Fixed \uFFFD it. \uFFFD Done?");
    EXPECT_EQ(summary.kind, SummaryKind::needsYou);
    EXPECT_EQ(summary.durationText, "3s");
}

} // namespace
} // namespace norrow
