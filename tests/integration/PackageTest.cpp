#include "core/AppVersion.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"

#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

namespace norrow {
namespace {

namespace fs = std::filesystem;

// The Debian package that the test fixture built, unpacked once with dpkg -x into a scratch
// root, as it would land in / on a user's machine.
struct Unpacked {
    Unpacked() {
        for (const auto& file : fs::directory_iterator(NORROW_PACKAGE_DIR))
            if (file.path().extension() == ".deb") debs.push_back(file.path());
        if (debs.size() == 1) extracted = test::run({"dpkg", "-x", debs[0], root.path()});
    }
    std::vector<fs::path> debs;
    test::TempDir root;
    test::Finished extracted;
};

const Unpacked& package() {
    static const Unpacked unpacked;
    return unpacked;
}

fs::path installed(const std::string& path) {
    return package().root / path;
}

class PackageTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(package().debs.size(), 1u) << "one package in " << NORROW_PACKAGE_DIR;
        ASSERT_EQ(package().extracted.status, 0) << package().extracted.err;
    }

    std::string field(const std::string& name) const {
        return test::run({"dpkg-deb", "-f", package().debs[0], name}).out;
    }

    // The user's own folders for the installed programs.
    test::TempDir home;
    const test::Environment user = {{"HOME", home.path().string()},
                                    {"XDG_CONFIG_HOME", (home / "config").string()}};
};

TEST_F(PackageTest, HoldsEachFileWithItsModeAndNothingElse) {
    std::map<std::string, unsigned> expected = {
        {"usr/bin/norrow", 0755},
        {"usr/bin/norrowctl", 0755},
        {"usr/share/norrow/norrow-bridge", 0755},
        {"usr/share/norrow/sounds/Norrow.wav", 0644},
        {"usr/share/norrow/sounds/NorrowDone.wav", 0644},
        {"usr/share/norrow/sounds/NorrowNeedsYou.wav", 0644},
        {"usr/share/applications/com.qelvane.Norrow.desktop", 0644},
        {"usr/share/icons/hicolor/scalable/apps/com.qelvane.Norrow.svg", 0644},
        {"usr/share/man/man1/norrow.1.gz", 0644},
        {"usr/share/man/man1/norrowctl.1.gz", 0644},
        {"usr/share/bash-completion/completions/norrowctl", 0644},
        {"usr/share/zsh/vendor-completions/_norrowctl", 0644},
        {"usr/share/doc/norrow/copyright", 0644},
        {"usr/share/doc/norrow/changelog.gz", 0644},
    };
    for (const auto size : {"16x16", "22x22", "24x24", "32x32", "48x48", "64x64"})
        expected[std::string("usr/share/icons/hicolor/") + size + "/apps/com.qelvane.Norrow.png"] =
            0644;

    std::map<std::string, unsigned> found;
    for (const auto& item : fs::recursive_directory_iterator(package().root.path())) {
        if (item.is_directory())
            EXPECT_EQ(test::mode(item.path()), 0755u) << item.path();
        else
            found[fs::relative(item.path(), package().root.path()).string()] =
                test::mode(item.path());
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(test::contents(installed("usr/share/norrow/norrow-bridge")),
              test::contents(fs::path(NORROW_BINARY_DIR) / "app/norrow-bridge"));
}

TEST_F(PackageTest, DependsOnTheLibrariesItLinksAndWhatTheBridgeRuns) {
    EXPECT_EQ(field("Package"), "norrow\n");
    const auto depends = field("Depends");
    for (const auto needed :
         {"curl", "qt6-qpa-plugins", "libqt6widgets6", "libcanberra0", "libicu"})
        EXPECT_NE(depends.find(needed), std::string::npos) << needed << " in " << depends;
}

TEST_F(PackageTest, TheDesktopEntryIsValidAndNamesWhatThePackageInstalls) {
    const auto entry = installed("usr/share/applications/com.qelvane.Norrow.desktop");
    const auto validation = test::run({"desktop-file-validate", entry});
    EXPECT_EQ(validation.status, 0);
    EXPECT_EQ(validation.out + validation.err, "");
    const auto text = test::contents(entry);
    EXPECT_NE(text.find("\nExec=norrow\n"), std::string::npos);
    EXPECT_NE(text.find("\nIcon=com.qelvane.Norrow\n"), std::string::npos);
}

TEST_F(PackageTest, TheInstalledToolRunsAndStartsTheInstalledAppAtLogin) {
    const auto norrowctl = installed("usr/bin/norrowctl");
    EXPECT_EQ(test::run({norrowctl, "version"}).out, AppVersion::current() + "\n");

    const auto on = test::run({norrowctl, "autostart", "on"}, {}, user);
    EXPECT_EQ(on.status, 0) << on.err;
    const auto status =
        nlohmann::json::parse(test::run({norrowctl, "autostart", "status"}, {}, user).out);
    EXPECT_EQ(status["state"], "on");
    EXPECT_EQ(status["program"], installed("usr/bin/norrow").string());
    EXPECT_EQ(test::run({"desktop-file-validate", status["entry"]}).status, 0);
}

TEST_F(PackageTest, TheManualPageRendersCleanlyAndCoversEveryCommand) {
    const auto page = test::run(
        {"man", "--warnings", "-E", "UTF-8", "-l", installed("usr/share/man/man1/norrowctl.1.gz")},
        {}, {{"MANWIDTH", "100"}, {"MAN_KEEP_FORMATTING", ""}});
    EXPECT_EQ(page.status, 0);
    EXPECT_EQ(page.err, "");
    // Every command that the tool's own help lists, under its full name.
    const auto help = test::run({installed("usr/bin/norrowctl"), "--help"}).out;
    const auto listed = help.substr(help.find("Subcommands:"));
    std::istringstream lines(listed);
    int commands = 0;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("  ")) continue;
        const auto name = line.substr(2, line.find(' ', 2) - 2);
        EXPECT_NE(page.out.find("norrowctl " + name), std::string::npos) << name;
        ++commands;
    }
    EXPECT_GE(commands, 10);
    EXPECT_NE(page.out.find("norrowctl autostart on [--program"), std::string::npos);
    EXPECT_EQ(
        test::run({"man", "--warnings", "-l", installed("usr/share/man/man1/norrow.1.gz")}).err,
        "");
}

// What each shell offers after the words typed so far; "FILES" is the shell's own file-name
// completion taking over.
TEST_F(PackageTest, CompletionsOfferTheCommandTableInBashAndZsh) {
    const std::string bash =
        ". \"$0\"; COMP_WORDS=($1 \"$2\"); "
        "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _norrowctl; "
        "if ((${#COMPREPLY[@]})); then echo \"${COMPREPLY[*]}\"; else echo FILES; fi";
    const std::string zsh = "compadd() { shift; print -r -- ${(M)@:#${words[CURRENT]}*} }; "
                            "_files() { print FILES }; "
                            "words=(${=1} \"$2\"); CURRENT=${#words}; . \"$0\"";
    const struct {
        std::string typed;
        std::string current;
        std::string offered;
    } cases[] = {
        {"norrowctl", "",
         "serve json hooks sessions summarize strip sentences lint version autostart"},
        {"norrowctl", "au", "autostart"},
        {"norrowctl autostart", "", "on off status"},
        {"norrowctl autostart on", "--", "--program --help"},
        {"norrowctl autostart on --program", "", "FILES"},
        {"norrowctl hooks plan", "i", "install"},
        {"norrowctl serve --port 0", "--c", "--claude-folder"},
        {"norrowctl lint", "", "FILES"},
    };
    for (const auto& c : cases) {
        const auto inBash = test::run({"bash", "-c", bash,
                                       installed("usr/share/bash-completion/completions/norrowctl"),
                                       c.typed, c.current});
        EXPECT_EQ(inBash.out, c.offered + "\n")
            << "bash: " << c.typed << " " << c.current << inBash.err;
        const auto inZsh =
            test::run({"zsh", "-fc", zsh, installed("usr/share/zsh/vendor-completions/_norrowctl"),
                       c.typed, c.current});
        EXPECT_EQ(inZsh.out, c.offered + "\n")
            << "zsh: " << c.typed << " " << c.current << inZsh.err;
    }
}

// The program as the launcher starts it, from the desktop entry's command, on an X session with
// a tray.
TEST_F(PackageTest, TheAppStartsFromItsDesktopEntry) {
    const test::VirtualDisplay session({.tray = true});
    test::put(home / "config/qelvane/Norrow.conf", "[General]\nhasSeenMenu=true\n");
    fs::create_directories(home / "runtime");
    fs::permissions(home / "runtime", fs::perms::owner_all);
    auto environment = user;
    environment.merge(test::Environment{{"PATH", installed("usr/bin").string() + ":/usr/bin:/bin"},
                                        {"DISPLAY", session.display()},
                                        {"WAYLAND_DISPLAY", ""},
                                        {"XDG_RUNTIME_DIR", (home / "runtime").string()},
                                        {"NORROW_DEBUG", "1"}});
    const auto entry =
        test::contents(installed("usr/share/applications/com.qelvane.Norrow.desktop"));
    const auto exec = entry.find("\nExec=") + 6;
    test::Process app({entry.substr(exec, entry.find('\n', exec) - exec)}, environment);
    const auto port = app.readLine(std::chrono::seconds(10));
    EXPECT_TRUE(port && port->starts_with("NORROW_PORT=")) << app.errors();
    EXPECT_EQ(app.stop(SIGTERM), 0) << app.errors();
}

} // namespace
} // namespace norrow
