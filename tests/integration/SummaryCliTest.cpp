// The real norrowctl's summarize, strip, sentences and lint commands: exact output lines,
// error replies and exit statuses.
#include "support/TempDir.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/wait.h>

namespace norrow {
namespace {

struct Outcome {
    std::string out;
    std::string err;
    int status = -1;
};

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Runs norrowctl with `arguments`, feeding `input` on standard input.
Outcome norrowctl(const std::vector<std::string>& arguments, const std::string& input = {}) {
    const test::TempDir folder;
    std::ofstream(folder / "in", std::ios::binary) << input;
    std::string command = quoted(NORROWCTL);
    for (const std::string& argument : arguments)
        command += " " + quoted(argument);
    command +=
        " < " + quoted((folder / "in").string()) + " 2> " + quoted((folder / "err").string());
    Outcome run;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    std::array<char, 4096> buffer{};
    for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        run.out.append(buffer.data(), n);
    const int raw = ::pclose(pipe);
    if (WIFEXITED(raw)) run.status = WEXITSTATUS(raw);
    run.err = contents(folder / "err");
    return run;
}

TEST(SummarizeCommand, SummarizesPayloadsAndMarkdown) {
    struct Case {
        std::vector<std::string> arguments;
        std::string input;
        std::string out;
    };
    const Case cases[] = {
        {{"summarize", "--duration", "125"},
         R"({"hook_event_name":"Stop","last_assistant_message":"**Fixed** the bug. Tests pass.",)"
         R"("stats":{"toolCount":3,"filesTouched":2,"linesAdded":10,"linesRemoved":4}})",
         "{\"text\":\"Fixed the bug. Tests pass.\",\"kind\":\"done\",\"statLine\":\"3 tools \u00B7 "
         "2 files \u00B7 +10 "
         "\u22124\",\"durationText\":\"2m 5s\",\"usedFallback\":false}\n"},
        {{"summarize"},
         R"({"hook_event_name":"Stop","stats":{"toolCount":1}})",
         "{\"text\":\"Done \u00B7 1 tool\",\"kind\":\"done\",\"statLine\":\"1 "
         "tool\",\"durationText\":null,"
         "\"usedFallback\":true}\n"},
        {{"summarize", "--markdown"},
         "Should I push?\n",
         "{\"text\":\"Should I "
         "push?\",\"kind\":\"needsYou\",\"statLine\":null,\"durationText\":null,"
         "\"usedFallback\":false}\n"},
        {{"summarize", "--markdown"},
         "Broken \xff\xfe bytes.",
         "{\"text\":\"Broken \uFFFD\uFFFD "
         "bytes.\",\"kind\":\"done\",\"statLine\":null,\"durationText\":null,"
         "\"usedFallback\":false}\n"},
        {{"summarize"},
         R"({"hook_event_name":"Stop","last_assistant_message":"Half \ud83d done."})",
         "{\"text\":\"Half \uFFFD "
         "done.\",\"kind\":\"done\",\"statLine\":null,\"durationText\":null,"
         "\"usedFallback\":false}\n"},
        {{"summarize", "--banner", "--duration", "59.5"},
         R"({"hook_event_name":"Notification","notification_type":"agent_needs_input","message":"Claude needs **your** permission"})",
         "{\"text\":\"Claude needs **your** permission\",\"kind\":\"needsYou\",\"statLine\":null,"
         "\"durationText\":\"1m\"}\n"},
        {{"summarize", "--banner"},
         R"({"hook_event_name":"Notification","notification_type":"agent_completed"})",
         "{\"text\":\"Waiting for "
         "you\",\"kind\":\"waiting\",\"statLine\":null,\"durationText\":null}\n"},
        {{"summarize", "--banner", "--markdown"},
         "Done. Want me to push?",
         "{\"text\":\"Done. Want me to "
         "push?\",\"kind\":\"needsYou\",\"statLine\":null,\"durationText\":null}\n"},
    };
    for (const Case& c : cases) {
        const Outcome run = norrowctl(c.arguments, c.input);
        EXPECT_EQ(run.status, 0) << c.input << run.err;
        EXPECT_EQ(run.out, c.out) << c.input;
    }
}

TEST(SummarizeCommand, RefusesUndecodableEventsAndBadArguments) {
    for (const std::string input :
         {"not json", R"({"hook_event_name":"PermissionRequest"})", "[]", ""}) {
        const Outcome run = norrowctl({"summarize"}, input);
        EXPECT_EQ(run.status, 1) << input;
        EXPECT_EQ(run.err, "undecodable event\n") << input;
        EXPECT_EQ(run.out, "") << input;
    }
    EXPECT_EQ(norrowctl({"summarize", "--duration", "soon"}, "{}").status, 2);
}

TEST(StripAndSentencesCommands, PrintTheirJson) {
    const Outcome strip =
        norrowctl({"strip"}, "## Plan ##\nWe *will* fix it.\n\n```\ncode\n```\n[](x)\n");
    EXPECT_EQ(strip.status, 0);
    EXPECT_EQ(
        strip.out,
        "{\"blocks\":[\"Plan\",\"We *will* fix it.\",\"[](x)\"],\"inline\":[\"Plan\",\"We will fix "
        "it.\",\"\"],\"text\":\"Plan\\n\\nWe will fix it.\"}\n");
    const Outcome sentences = norrowctl({"sentences"}, "Fixed it. See Dr. Smith! Done");
    EXPECT_EQ(sentences.status, 0);
    EXPECT_EQ(sentences.out, "[\"Fixed it.\",\"See Dr. Smith!\",\"Done\"]\n");
    EXPECT_EQ(norrowctl({"sentences"}, "").out, "[]\n");
}

TEST(LintCommand, ChecksOneSummary) {
    struct Case {
        std::vector<std::string> arguments;
        std::string out;
        int status;
    };
    const Case cases[] = {
        {{"lint", "--summary", "Fixed the bug."}, "", 0},
        {{"lint", "--summary", "All **done**"}, "bold: **\nemphasis: *\n", 1},
        {{"lint", "--summary", "Fixed th\u2026", "--lead", "Fixed the bug"},
         "mid-word: cut before 'e'\n",
         1},
        {{"lint", "--summary", "- Fixed\u2026", "--lead", "Other", "--limit", "3"},
         "list-marker: leading marker\ntoo-long: 8 > 3\nnot-a-prefix: truncated text is not a "
         "prefix of the lead\n",
         1},
        {{"lint", "--summary", std::string(150, 'x')}, "", 0},
        {{"lint", "--lead", "x"}, "", 2},
        {{"lint"}, "", 2},
    };
    for (const Case& c : cases) {
        const Outcome run = norrowctl(c.arguments);
        EXPECT_EQ(run.out, c.out) << c.arguments[1];
        EXPECT_EQ(run.status, c.status) << c.arguments[1];
    }
}

TEST(LintCommand, ChecksTheSummariesOfMarkdownFiles) {
    const std::filesystem::path messages =
        std::filesystem::path(NORROW_CORPUS_DIR) / "assistant-messages";
    std::vector<std::string> arguments = {"lint"};
    for (const auto& entry : std::filesystem::directory_iterator(messages))
        if (entry.path().extension() == ".md") arguments.push_back(entry.path().string());
    const Outcome corpus = norrowctl(arguments);
    EXPECT_EQ(corpus.out, "235 files, 0 violations\n");
    EXPECT_EQ(corpus.status, 0);

    const test::TempDir folder;
    std::ofstream(folder / "table.md") << "a | b\n";
    const std::string file = (folder / "table.md").string();
    const Outcome found = norrowctl({"lint", file, (messages / "0001.md").string()});
    EXPECT_EQ(found.out, file + ": table: |\n2 files, 1 violations\n");
    EXPECT_EQ(found.status, 1);

    const Outcome missing = norrowctl({"lint", (folder / "absent.md").string()});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("absent.md"), std::string::npos);
}

} // namespace
} // namespace norrow
