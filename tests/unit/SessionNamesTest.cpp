#include "core/SessionNames.h"

#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

namespace norrow {
namespace {

const std::filesystem::path corpus = std::filesystem::path(NORROW_CORPUS_DIR) / "transcripts";

void put(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

std::optional<std::string> cwdIn(const std::string& text) {
    test::TempDir folder;
    put(folder / "t.jsonl", text);
    return SessionNames::firstCWD(folder / "t.jsonl");
}

// Every corpus transcript finds exactly the working folder index.tsv records, or nothing when
// that lies beyond the limits; pushed down to lie exactly at, or just past, each limit, the
// same holds.
TEST(SessionNames, CorpusTranscriptsFindTheRecordedFolderWithinTheLimits) {
    std::ifstream index(corpus / "index.tsv");
    std::string line;
    std::getline(index, line);
    std::size_t rows = 0;
    const std::string filler = "{\"type\":\"summary\",\"summary\":\"no folder here\"}\n";
    for (; std::getline(index, line); ++rows) {
        std::vector<std::string> columns;
        std::stringstream fields(line);
        for (std::string column; std::getline(fields, column, '\t');)
            columns.push_back(column);
        columns.resize(8);
        std::ifstream in(corpus / columns[0], std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(in), {});
        const std::string& cwd = columns[7];
        const std::size_t cwdLine = columns[6].empty() ? 0 : std::stoul(columns[6]);
        std::size_t cwdEnd = 0; // just past that line's content
        for (std::size_t n = 0; n < cwdLine; ++n)
            cwdEnd = text.find('\n', n == 0 ? 0 : cwdEnd + 1);
        const bool reachable =
            cwdLine != 0 && cwdLine <= SessionNames::lineLimit && cwdEnd <= SessionNames::readLimit;
        EXPECT_EQ(SessionNames::firstCWD(corpus / columns[0]),
                  reachable ? std::optional(cwd) : std::nullopt)
            << columns[0];
        if (cwdLine == 0) continue;

        std::string lines;
        for (std::size_t i = cwdLine; i < SessionNames::lineLimit; ++i)
            lines += filler;
        EXPECT_EQ(cwdIn("\n\n" + lines + text), cwd) << columns[0] << " on line 40";
        EXPECT_EQ(cwdIn(filler + lines + text), std::nullopt) << columns[0] << " on line 41";
        const std::string padding =
            "{\"pad\":\"" + std::string(SessionNames::readLimit - cwdEnd - 11, 'x') + "\"}\n";
        EXPECT_EQ(cwdIn(padding + text), cwd) << columns[0] << " ending on the last byte read";
        EXPECT_EQ(cwdIn(" " + padding + text), std::nullopt) << columns[0] << " one byte past";
    }
    EXPECT_EQ(rows, 15u);
}

TEST(SessionNames, FirstCWDTakesTheFirstTopLevelNonEmptyText) {
    const std::string cutInsideACharacter = "{\"cwd\":\"/a/b\"}\n{\"x\":\"" +
                                            std::string(SessionNames::readLimit - 22, 'y') +
                                            "\xC3\xA9\"}\n";
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"{\"cwd\":\"\"}\n{\"cwd\":7}\n[\"cwd\"]\nnot json\n\"cwd\"\n{\"cwd\":\"/x\"}", "/x"},
        {"{\"message\":{\"cwd\":\"/nested\"}}\n", std::nullopt},
        {"{\"a\":\"\xff\"}\n{\"c\\u0077d\":\"/\\u00e9/\xff\"}\n", "/\u00e9/\xEF\xBF\xBD"},
        {"{\"cwd\":\"/first\"}\r\n{\"cwd\":\"/second\"}\r\n", std::nullopt}, // CR LF ends no line
        {"{\"cwd\":\"/only\"}\r\n", "/only"},
        {cutInsideACharacter, "/a/b"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(cwdIn(text), expected) << text.substr(0, 60);
    EXPECT_EQ(SessionNames::firstCWD(corpus / "missing.jsonl"), std::nullopt);
    EXPECT_EQ(SessionNames::firstCWD(corpus), std::nullopt);
}

TEST(SessionNames, NamesComeFromEventsThenTranscriptsElseTheIdentifier) {
    test::TempDir projects;
    SessionNames names;
    put(projects / "-p/s1.jsonl", "{\"type\":\"summary\"}\n");
    EXPECT_EQ(names.displayName("s1", projects.path()), "s1");
    put(projects / "-p/s1.jsonl", "{\"cwd\":\"/Users/x/work/app/\"}\n");
    EXPECT_EQ(names.projectName("s1", projects.path()), "app");
    std::filesystem::remove(projects / "-p/s1.jsonl");
    EXPECT_EQ(names.displayName("s1", projects.path()), "app"); // a found name is kept

    put(projects / "-p/s2.jsonl", "{\"cwd\":\"/from/transcript\"}\n");
    HookEvent event(HookEvent::Name::stop);
    event.cwd = "/from/event";
    names.remember(event); // no session to remember it for
    event.sessionId = "s2";
    names.remember(event);
    event.cwd = "";
    names.remember(event); // no name: the earlier one stays
    EXPECT_EQ(names.projectName("s2", projects.path()), "event");

    const std::pair<std::string, std::string> unnamed[] = {
        {"0f9e8d7c-6b5a-4000-8000-000000000001", "0f9e8d7c"},
        {"abc", "abc"},
        {"\U0001F1F8\U0001F1EA\U0001F1F3\U0001F1F4e\u0301abcdefgh",
         "\U0001F1F8\U0001F1EA\U0001F1F3\U0001F1F4e\u0301abcde"},
    };
    for (const auto& [id, shown] : unnamed)
        EXPECT_EQ(names.displayName(id, projects.path()), shown) << id;
}

} // namespace
} // namespace norrow
