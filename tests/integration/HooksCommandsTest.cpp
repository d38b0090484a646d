#include "support/Process.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>

namespace norrow {
namespace {

TEST(HooksCommands, AnswerOnTheirStreamsWithTheirStatuses) {
    const test::TempDir top;
    const std::string claude = (top / "claude").string();
    std::filesystem::create_directories(claude);
    std::ofstream(claude + "/settings.json") << "{}";
    const std::string before = (top / "before.json").string(),
                      after = (top / "after.json").string();
    std::ofstream(before) << R"({"a": 1})";
    std::ofstream(after) << R"({"a": 1})" << '\0' << R"(, "b": 2})";
    const std::string notListening = "Not listening yet\nNorrow has no port open, so there is "
                                     "nothing to point Claude Code at. Quit and reopen the app, "
                                     "then try again.\n";
    const struct {
        std::vector<std::string> argv;
        std::string input;
        test::Finished expected;
    } cases[] = {
        {{"json", "find", "b"},
         "{\"\xc3\xa9\": 1, \"b\": []}",
         {0, "{\"valueRange\":[14,16],\"memberRange\":[7,16]}\n", ""}},
        {{"json", "find", "x"}, "{}", {0, "null\n", ""}},
        {{"json", "set", "hooks", "{}", "--indent", "\t"}, "{}", {0, "{\n\t\"hooks\": {}\n}", ""}},
        {{"json", "remove", "a"}, "{ 5", {1, "", "malformed JSON: expected a key at 2\n"}},
        {{"hooks", "plan", "remove"},
         "{}",
         {0, "{\"updatedDocument\":null,\"alreadyCorrect\":true,\"foreignHookCount\":0}\n", ""}},
        {{"hooks", "verify", before, after},
         "",
         {1, "", "the file was written but failed verification: result does not parse\n"}},
        {{"hooks", "install", "--claude-folder", claude}, "", {1, "", notListening}},
        {{"hooks", "remove", "--claude-folder", claude},
         "",
         {0, "Nothing to remove\nNo Norrow hooks were found.\n", ""}},
        {{"hooks", "status", "--claude-folder", claude},
         "",
         {0, "{\"claudeFolder\":\"" + claude + "\",\"installed\":false,\"problem\":null}\n", ""}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> argv{NORROWCTL};
        argv.insert(argv.end(), c.argv.begin(), c.argv.end());
        const auto result = test::run(
            argv, c.input,
            {{"HOME", top.path().string()}, {"XDG_CONFIG_HOME", (top / ".config").string()}});
        EXPECT_EQ(result.status, c.expected.status) << c.argv[1];
        EXPECT_EQ(result.out, c.expected.out) << c.argv[1];
        EXPECT_EQ(result.err, c.expected.err) << c.argv[1];
    }
    EXPECT_EQ(test::run({NORROWCTL, "json", "set", "a"}, "{}").status, 2);
}

} // namespace
} // namespace norrow
