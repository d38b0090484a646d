#include "support/Files.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace norrow {
namespace {

namespace fs = std::filesystem;

// `norrowctl autostart` for a user whose configuration folder does not exist yet.
class AutostartCommandTest : public testing::Test {
protected:
    AutostartCommandTest() {
        test::put(program, "#!/bin/sh\n");
        fs::permissions(program, fs::perms::owner_all);
    }

    test::Finished norrowctl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {NORROWCTL, "autostart"});
        return test::run(arguments, {},
                         {{"HOME", home.path().string()}, {"XDG_CONFIG_HOME", config.string()}});
    }

    nlohmann::json status() const { return nlohmann::json::parse(norrowctl({"status"}).out); }

    test::TempDir home;
    const fs::path config = home / "not yet/config";
    const fs::path entry = config / "autostart/com.qelvane.Norrow.desktop";
    // A path the launcher must read quoted, with characters it would otherwise take as its own.
    const fs::path program = home / "apps $HOME/50% \"bell\"/norrow";
};

TEST_F(AutostartCommandTest, OnWritesAValidEntryThatOffRemoves) {
    EXPECT_EQ(status(),
              nlohmann::json({{"state", "off"}, {"entry", entry.string()}, {"program", nullptr}}));

    const auto on = norrowctl({"on", "--program", program});
    EXPECT_EQ(on.status, 0) << on.err;
    EXPECT_EQ(on.out, "Norrow will start when you log in (" + entry.string() + ").\n");
    const auto validation = test::run({"desktop-file-validate", entry});
    EXPECT_EQ(validation.status, 0);
    EXPECT_EQ(validation.out, "");
    const auto written = test::contents(entry);
    EXPECT_NE(written.find("\nExec=\"" +
                           (home / R"(apps \\$HOME/50%% \\"bell\\"/norrow)").string() + "\"\n"),
              std::string::npos)
        << written;
    EXPECT_EQ(status(),
              nlohmann::json(
                  {{"state", "on"}, {"entry", entry.string()}, {"program", program.string()}}));

    EXPECT_EQ(norrowctl({"on", "--program", program}).out,
              "Norrow already starts when you log in (" + entry.string() + ").\n");
    // The program moved: Norrow's own entry follows it.
    const auto moved = home / "norrow";
    fs::copy_file(program, moved);
    EXPECT_EQ(norrowctl({"on", "--program", moved}).status, 0);
    EXPECT_EQ(status()["program"], moved.string());

    const auto off = norrowctl({"off"});
    EXPECT_EQ(off.status, 0) << off.err;
    EXPECT_EQ(off.out, "Norrow will no longer start when you log in.\n");
    EXPECT_FALSE(fs::exists(entry));
    EXPECT_EQ(norrowctl({"off"}).out,
              "Norrow does not start when you log in; nothing to change.\n");
}

TEST_F(AutostartCommandTest, AnEntryChangedByHandIsLeftAlone) {
    ASSERT_EQ(norrowctl({"on", "--program", program}).status, 0);
    const auto norrows = test::contents(entry);
    const std::string message = entry.string() +
                                " was changed by hand, so Norrow leaves it as it is. Edit or "
                                "delete it yourself; once it is gone, `norrowctl autostart on` "
                                "writes Norrow's own.\n";
    for (const std::string& text : std::vector<std::string>{
             norrows + "X-GNOME-Autostart-Delay=10\n",
             "[Desktop Entry]\nType=Application\nName=Mine\nExec=norrow --quiet\n"}) {
        test::put(entry, text);
        EXPECT_EQ(status(), nlohmann::json({{"state", "editedByHand"},
                                            {"entry", entry.string()},
                                            {"program", nullptr}}));
        for (const auto& action : {std::vector<std::string>{"on", "--program", program}, {"off"}}) {
            const auto refused = norrowctl(action);
            EXPECT_EQ(refused.status, 1) << action[0];
            EXPECT_EQ(refused.err, message) << action[0];
            EXPECT_EQ(test::contents(entry), text) << action[0];
        }
    }
}

TEST_F(AutostartCommandTest, RefusesAProgramItCannotStartAndWritesNothing) {
    const auto beside = fs::path(NORROWCTL).parent_path() / "norrow";
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } cases[] = {
        {{"on"},
         "no program to start at login at " + beside.string() +
             "; install Norrow, or name its program with --program PATH\n"},
        {{"on", "--program", home / "missing"},
         "no program to start at login at " + (home / "missing").string() +
             "; install Norrow, or name its program with --program PATH\n"},
        {{"on", "--program", "bin/norrow"},
         "a login entry needs the program's absolute path on one line, not: bin/norrow\n"},
        {{"on", "--program", home / "line\nbreak"},
         "a login entry needs the program's absolute path on one line, not: " +
             (home / "line\nbreak").string() + "\n"},
    };
    for (const auto& c : cases) {
        const auto refused = norrowctl(c.arguments);
        EXPECT_EQ(refused.status, 1) << c.error;
        EXPECT_EQ(refused.err, c.error);
    }
    EXPECT_FALSE(fs::exists(config));
    EXPECT_EQ(norrowctl({"sideways"}).status, 2);
}

TEST_F(AutostartCommandTest, ARelativeXdgConfigHomeIsIgnored) {
    const auto done = test::run({NORROWCTL, "autostart", "status"}, {},
                                {{"HOME", home.path().string()}, {"XDG_CONFIG_HOME", "config"}});
    EXPECT_EQ(nlohmann::json::parse(done.out)["entry"],
              (home / ".config/autostart/com.qelvane.Norrow.desktop").string());
}

} // namespace
} // namespace norrow
