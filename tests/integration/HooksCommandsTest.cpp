#include "core/BridgeConfig.h"
#include "core/HookInstaller.h"
#include "support/Files.h"
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
    const std::string old = (top / "old").string();
    std::filesystem::create_directories(old);
    std::ofstream(old + "/settings.json")
        << *HookInstaller::planInstall("{}", "/old/norrow/bridge").updatedDocument;
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
         {0,
          "{\"claudeFolder\":\"" + claude +
              "\",\"installed\":false,\"state\":\"notInstalled\",\"problem\":null}\n",
          ""}},
        {{"hooks", "status", "--claude-folder", old},
         "",
         {0,
          "{\"claudeFolder\":\"" + old +
              "\",\"installed\":true,\"state\":\"outOfDate\",\"problem\":null}\n",
          "Norrow's hooks in " + old +
              "/settings.json are out of date; run 'norrowctl hooks install' to update them.\n"}},
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

// Several installs at once, as real processes on a real settings file with other tools' hooks:
// each one succeeds, and they leave one set of hooks, a readable config and no temporary file.
TEST(HooksCommands, ConcurrentInstallsLeaveOneSetOfHooksAndNoTemporaryFiles) {
    const test::TempDir top;
    const auto claude = top / "claude";
    const std::string original =
        test::contents(std::filesystem::path(NORROW_CORPUS_DIR) / "settings/0014.json");
    test::put(claude / "settings.json", original);
    BridgeConfig::write(4711, "token", BridgeConfig::location(claude));
    // Only the shell writes to the output, one process's status after another: writers
    // sharing one file's offset could write over each other.
    const std::string script = "for i in 1 2 3 4 5 6; do\n"
                               "  \"$0\" hooks install --claude-folder \"$1\" >/dev/null 2>&1 &\n"
                               "  started=\"$started $!\"\n"
                               "done\nfor job in $started; do wait $job; echo \"exit $?\"; done\n";
    const auto result =
        test::run({"sh", "-c", script, NORROWCTL, claude.string()}, "",
                  {{"HOME", top.path().string()}, {"XDG_CONFIG_HOME", (top / ".config").string()}});
    EXPECT_EQ(result.out, "exit 0\nexit 0\nexit 0\nexit 0\nexit 0\nexit 0\n");

    const auto bridge = (claude / "norrow/bridge").string();
    const auto expected = HookInstaller::planInstall(original, bridge).updatedDocument;
    EXPECT_EQ(test::contents(claude / "settings.json"), expected);
    EXPECT_EQ(BridgeConfig::read(BridgeConfig::location(claude)), (BridgeConfig{4711, "token"}));
    for (const auto& folder : {claude, claude / "norrow"})
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            const std::string name = entry.path().filename().string();
            EXPECT_FALSE(name.starts_with(".") || name.starts_with("config.json.new")) << name;
        }
}

} // namespace
} // namespace norrow
