#include "core/SessionNames.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>

namespace norrow {
namespace {

const std::filesystem::path corpus = std::filesystem::path(NORROW_CORPUS_DIR) / "transcripts";

using test::put;

std::optional<std::string> cwdIn(const std::string& text) {
    test::TempDir folder;
    put(folder / "t.jsonl", text);
    return SessionNames::firstCWD(folder / "t.jsonl");
}

TEST(SessionNames, CorpusTranscriptsFindTheRecordedFolder) {
    std::ifstream index(corpus / "index.tsv");
    std::string line;
    std::getline(index, line);
    std::size_t rows = 0;
    for (; std::getline(index, line); ++rows) {
        const std::string name = line.substr(0, line.find('\t'));
        EXPECT_EQ(SessionNames::firstCWD(corpus / name), line.substr(line.rfind('\t') + 1)) << name;
    }
    EXPECT_EQ(rows, 15u);
}

TEST(SessionNames, FirstCWDTakesTheFirstTopLevelNonEmptyTextWithinTheLimits) {
    const std::string found = "{\"cwd\":\"/x\"}\n", filler = "{\"type\":\"summary\"}\n";
    std::string lines = "\n\n"; // blank lines do not count
    for (std::size_t i = 1; i < SessionNames::lineLimit; ++i)
        lines += filler;
    const std::string padding = // so that the folder's line ends on the last byte read
        "{\"pad\":\"" + std::string(SessionNames::readLimit - found.size() - 10, 'x') + "\"}\n";
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
        {lines + found, "/x"},
        {filler + lines + found, std::nullopt},
        {padding + found, "/x"},
        {" " + padding + found, std::nullopt},
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

    // Eight characters of an unnamed session's identifier, counted as the user sees them.
    EXPECT_EQ(names.displayName("\U0001F1F8\U0001F1EA\U0001F1F3\U0001F1F4e\u0301abcdefgh",
                                projects.path()),
              "\U0001F1F8\U0001F1EA\U0001F1F3\U0001F1F4e\u0301abcde");
}

} // namespace
} // namespace norrow
