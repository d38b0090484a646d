#include "core/SessionNames.h"

#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

namespace norrow {
namespace {

const std::filesystem::path corpus = std::filesystem::path(NORROW_CORPUS_DIR) / "transcripts";

std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void put(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

std::optional<std::string> cwdIn(const std::string& text) {
    test::TempDir folder;
    put(folder / "t.jsonl", text);
    return SessionNames::firstCWD(folder / "t.jsonl");
}

struct Transcript {
    std::string file;
    std::string text;
    std::size_t cwdLine; // 1-based; 0 when none is recorded
    std::string cwd;
    std::size_t cwdEnd; // byte offset just past that line's content
};

std::vector<Transcript> corpusIndex() {
    std::ifstream index(corpus / "index.tsv");
    std::vector<Transcript> rows;
    std::string line;
    std::getline(index, line);
    while (std::getline(index, line)) {
        std::vector<std::string> columns;
        std::stringstream fields(line);
        for (std::string column; std::getline(fields, column, '\t');)
            columns.push_back(column);
        columns.resize(8);
        Transcript row{columns[0], contents(corpus / columns[0]),
                       columns[6].empty() ? 0 : std::stoul(columns[6]), columns[7], 0};
        for (std::size_t n = 0; n < row.cwdLine; ++n)
            row.cwdEnd = row.text.find('\n', n == 0 ? 0 : row.cwdEnd + 1);
        rows.push_back(std::move(row));
    }
    return rows;
}

TEST(SessionNamesCorpus, FindsTheRecordedWorkingFolderWithinTheLimits) {
    const auto rows = corpusIndex();
    ASSERT_EQ(rows.size(), 15u);
    for (const auto& row : rows) {
        const bool reachable = row.cwdLine != 0 && row.cwdLine <= SessionNames::lineLimit &&
                               row.cwdEnd <= SessionNames::readLimit;
        EXPECT_EQ(SessionNames::firstCWD(corpus / row.file),
                  reachable ? std::optional(row.cwd) : std::nullopt)
            << row.file;
    }
}

// Every corpus transcript pushed down so that its working folder lies exactly at, or just
// past, each limit.
TEST(SessionNamesCorpus, LimitsAreExact) {
    const std::string filler = "{\"type\":\"summary\",\"summary\":\"no folder here\"}\n";
    for (const auto& row : corpusIndex()) {
        if (row.cwdLine == 0) continue;
        std::string lines;
        for (std::size_t i = row.cwdLine; i < SessionNames::lineLimit; ++i)
            lines += filler;
        EXPECT_EQ(cwdIn("\n\n" + lines + row.text), row.cwd)
            << row.file << " on line 40, after blank lines";
        EXPECT_EQ(cwdIn(filler + lines + row.text), std::nullopt) << row.file << " on line 41";

        const std::string padding =
            "{\"pad\":\"" + std::string(SessionNames::readLimit - row.cwdEnd - 11, 'x') + "\"}\n";
        EXPECT_EQ(cwdIn(padding + row.text), row.cwd)
            << row.file << " ending on the last byte read";
        EXPECT_EQ(cwdIn(" " + padding + row.text), std::nullopt)
            << row.file << " cut one byte short";
    }
}

TEST(SessionNames, FirstCWDTakesTheFirstTopLevelNonEmptyText) {
    const std::string cutInsideACharacter = "{\"cwd\":\"/a/b\"}\n{\"x\":\"" +
                                            std::string(SessionNames::readLimit - 22, 'y') +
                                            "\xC3\xA9\"}\n";
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"{\"cwd\":\"\"}\n{\"cwd\":7}\n[\"cwd\"]\nnot json\n\"cwd\"\n{\"cwd\":\"/x\"}", "/x"},
        {"{\"message\":{\"cwd\":\"/nested\"}}\n", std::nullopt},
        {"{\"a\":\"\xff\"}\n{\"c\\u0077d\":\"/escaped/\xff\"}\n", "/escaped/\xEF\xBF\xBD"},
        {"{\"\\u0063wd\":\"/c\"}", "/c"},
        {"{\"cw\\u0064\":\"\\u00e9\"}", "\u00e9"},
        {"{\"cwd\":\"/first\"}\r\n{\"cwd\":\"/second\"}\r\n", std::nullopt}, // CR LF ends no line
        {"{\"cwd\":\"/only\"}\r\n", "/only"},
        {cutInsideACharacter, "/a/b"},
        {"", std::nullopt},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(cwdIn(text), expected) << text.substr(0, 60);

    test::TempDir folder;
    EXPECT_EQ(SessionNames::firstCWD(folder / "missing.jsonl"), std::nullopt);
    EXPECT_EQ(SessionNames::firstCWD(folder.path()), std::nullopt);
}

TEST(SessionNames, TheFirstTranscriptFoundDecidesAndOnlyNamesAreKept) {
    test::TempDir claude;
    const auto projects = SessionNames::projectsFolder(claude.path());
    for (const char* project : {"-p1", "-p2", "-p3"})
        std::filesystem::create_directories(projects / project);
    std::vector<std::filesystem::path> listed;
    for (const auto& entry : std::filesystem::directory_iterator(projects))
        listed.push_back(entry.path());

    SessionNames names;
    put(listed[2] / "s1.jsonl", "{\"cwd\":\"/elsewhere/late\"}\n");
    put(listed[1] / "s1.jsonl", "{\"type\":\"summary\"}\n");
    EXPECT_EQ(names.projectName("s1", projects), std::nullopt);
    EXPECT_EQ(names.displayName("s1", projects), "s1");

    put(listed[1] / "s1.jsonl", "{\"cwd\":\"/Users/x/work/app/\"}\n");
    EXPECT_EQ(names.projectName("s1", projects), "app");
    std::filesystem::remove(listed[1] / "s1.jsonl");
    EXPECT_EQ(names.displayName("s1", projects), "app");
    EXPECT_EQ(SessionNames::findCWD("s1", claude / "missing"), std::nullopt);
}

TEST(SessionNames, ANameFromAnEventWinsOverTheTranscript) {
    test::TempDir projects;
    put(projects / "-p/s1.jsonl", "{\"cwd\":\"/from/transcript\"}\n");
    SessionNames names;
    HookEvent event(HookEvent::Name::stop);
    event.cwd = "/from/event";
    names.remember(event); // no session to remember it for
    event.sessionId = "s1";
    names.remember(event);
    event.cwd = "";
    names.remember(event); // no name: the earlier one stays
    EXPECT_EQ(names.projectName("s1", projects.path()), "event");
}

TEST(SessionNames, UnnamedSessionsShowTheirFirstEightCharacters) {
    const std::pair<std::string, std::string> cases[] = {
        {"0f9e8d7c-6b5a-4000-8000-000000000001", "0f9e8d7c"},
        {"abc", "abc"},
        {"\U0001F1F8\U0001F1EA\U0001F1F3\U0001F1F4e\u0301abcdefgh",
         "\U0001F1F8\U0001F1EA\U0001F1F3\U0001F1F4e\u0301abcde"},
    };
    SessionNames names;
    for (const auto& [id, shown] : cases)
        EXPECT_EQ(names.displayName(id, "/nonexistent"), shown) << id;
}

} // namespace
} // namespace norrow
