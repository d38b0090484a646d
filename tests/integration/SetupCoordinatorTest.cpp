#include "app/shared/SetupCoordinator.h"

#include "app/shared/ClaudeFolder.h"
#include "app/shared/SetupAlert.h"
#include "core/BridgeConfig.h"
#include "core/HookInstaller.h"
#include "support/Files.h"
#include "support/TempDir.h"

#include <QDir>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <tuple>
#include <unistd.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;
using Outcome = SetupCoordinator::Outcome;

std::string contents(const fs::path& file) {
    return LocalFileSystem().read(file);
}

using test::put;

std::vector<std::string> backups(const fs::path& claude) {
    std::vector<std::string> found;
    std::error_code ignored;
    for (fs::directory_iterator it(claude / "norrow", ignored), end; it != end; ++it)
        if (it->path().filename().string().starts_with("settings.backup."))
            found.push_back(contents(*it));
    return found;
}

// The machine's files, with one fault switched on for settings.json and its backup, or
// another program saving settings.json at the worst moment.
struct FaultyFiles : LocalFileSystem {
    enum class Fault {
        folderTaken,
        fullDisk,
        writeFails,
        readBackDiffers,
        restoreFails,
        savedAfterUs,
        savedBeforeUs,
    };
    FaultyFiles(fs::path file, Fault with) : settings(std::move(file)), fault(with) {}

    void write(const fs::path& file, std::string_view bytes) override {
        if (fault == Fault::fullDisk && file.filename().string().starts_with("settings.backup"))
            throw std::runtime_error("could not write " + file.string() +
                                     ": No space left on device");
        LocalFileSystem::write(file, bytes);
    }

    bool replace(const fs::path& file, std::string_view expected, std::string_view bytes) override {
        const std::string error = "could not write " + file.string() + ": ";
        ++replaces;
        if (fault == Fault::writeFails) throw std::runtime_error(error + "No space left on device");
        if (fault == Fault::restoreFails && replaces == 2)
            throw std::runtime_error(error + "Read-only file system");
        if (fault == Fault::savedBeforeUs && replaces == 1) anotherProgramSaves();
        const bool replaced = LocalFileSystem::replace(file, expected, bytes);
        if (fault == Fault::savedAfterUs) anotherProgramSaves();
        return replaced;
    }

    // Only the first read after writing differs, as a flaky disk would have it.
    std::string read(const fs::path& file) override {
        std::string text = LocalFileSystem::read(file);
        if (file == settings && replaces == 1 && ++readsAfterWriting == 1 &&
            (fault == Fault::readBackDiffers || fault == Fault::restoreFails))
            text.replace(text.find("opus"), 4, "sonnet");
        return text;
    }

    // Saves the settings as that program has them: the model changed, Norrow's hooks unseen.
    void anotherProgramSaves() { put(settings, theirs(++saves)); }
    static std::string theirs(int save) {
        return "{\n  \"model\": \"haiku-" + std::to_string(save) +
               "\",\n  \"env\": {\"A\": \"1\"}\n}\n";
    }

    fs::path settings;
    Fault fault;
    int replaces = 0;
    int readsAfterWriting = 0;
    int saves = 0;
};

class SetupCoordinatorTest : public testing::Test {
protected:
    const std::string original = "{\n  \"model\": \"opus\",\n  \"env\": {\"A\": \"1\"}\n}\n";
    test::TempDir top;
    fs::path claude = top / "claude";
    fs::path settings = claude / "settings.json";
    Settings store{QString::fromStdString((top / "settings.ini").string())};

    void SetUp() override { put(settings, original); }

    SetupCoordinator coordinator(FileSystem* files = nullptr,
                                 QString resource = SetupCoordinator::bridgeResource) {
        return SetupCoordinator(store, claude, files, std::move(resource));
    }
};

TEST_F(SetupCoordinatorTest, InstallsOnceThroughALinkAndRemovesEverything) {
    const auto linked = top / "dotfiles/settings.json";
    put(linked, original);
    fs::permissions(linked, fs::perms::owner_read | fs::perms::owner_write);
    fs::remove(settings);
    fs::create_symlink(linked, settings);
    const std::string script = contents(fs::path(NORROW_BINARY_DIR) / "app/norrow-bridge");
    auto setup = coordinator();
    const auto installed = setup.install(4711, "secret");
    ASSERT_EQ(installed.kind, Outcome::Kind::installed) << installed.message;
    EXPECT_EQ(contents(*installed.backup), original);
    EXPECT_EQ(store.string("lastBackupPath"), QString::fromStdString(installed.backup->string()));
    EXPECT_EQ(setup.status(), HookInstaller::Status::current);
    EXPECT_TRUE(fs::is_symlink(settings));
    EXPECT_EQ(fs::status(linked).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(contents(claude / "norrow/bridge"), script);
    EXPECT_EQ(fs::status(claude / "norrow/bridge").permissions(), fs::perms::owner_all);

    // A second run refreshes the script and the port but writes no backup.
    put(claude / "norrow/bridge", "stale");
    EXPECT_EQ(setup.install(4712, "secret"), Outcome::alreadyCurrent());
    EXPECT_EQ(contents(claude / "norrow/bridge"), script);
    EXPECT_EQ(BridgeConfig::read(BridgeConfig::location(claude)), (BridgeConfig{4712, "secret"}));
    EXPECT_EQ(backups(claude).size(), 1u);

    // An earlier Norrow's hooks, here with another bridge path, are brought up to date.
    put(settings, *HookInstaller::planInstall(original, "/old/norrow/bridge").updatedDocument);
    EXPECT_EQ(setup.status(), HookInstaller::Status::outOfDate);
    ASSERT_EQ(setup.install(4712, "secret").kind, Outcome::Kind::installed);
    EXPECT_EQ(setup.status(), HookInstaller::Status::current);

    put(claude / "norrow/state/session.json", "{}");
    ASSERT_EQ(setup.uninstall().kind, Outcome::Kind::installed);
    EXPECT_EQ(contents(settings), original);
    for (const char* gone : {"norrow/bridge", "norrow/state", "norrow/config.json"})
        EXPECT_FALSE(fs::exists(claude / gone)) << gone;

    // With nothing of ours left, nothing is written and nothing removed.
    put(claude / "norrow/state/session.json", "{}");
    const auto kept = backups(claude);
    EXPECT_EQ(setup.uninstall(), Outcome::alreadyCurrent());
    EXPECT_TRUE(fs::exists(claude / "norrow/state/session.json"));
    EXPECT_EQ(backups(claude), kept);
}

TEST_F(SetupCoordinatorTest, KeepsHardLinksAndTheGroupAndCleansUpAfterAKilledRun) {
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(settings.c_str(), 0, 1234), 0);
    }
    fs::create_hard_link(settings, top / "linked.json");
    const auto inode = test::status(settings).st_ino;
    put(claude / ".settings.json.K1lled", "{\"half\":");
    ASSERT_EQ(coordinator().install(4711, "secret").kind, Outcome::Kind::installed);
    EXPECT_EQ(test::status(settings).st_ino, inode);
    EXPECT_EQ(contents(top / "linked.json"), contents(settings));
    EXPECT_FALSE(fs::exists(claude / ".settings.json.K1lled"));

    // Without a second link the file is replaced, and the replacement keeps the group.
    fs::remove(top / "linked.json");
    ASSERT_EQ(coordinator().uninstall().kind, Outcome::Kind::installed);
    EXPECT_EQ(contents(settings), original);
    EXPECT_EQ(test::status(settings).st_gid, root ? 1234u : ::getegid());
}

TEST_F(SetupCoordinatorTest, LeavesAloneAReadOnlyFileAndSomeoneElses) {
    // Each arrangement tells whether it could be made; only root can give a file away.
    const std::pair<std::function<bool()>, std::string> cases[] = {
        {[&] { return ::chmod(settings.c_str(), 0444) == 0; },
         settings.string() + " is read-only, so Norrow leaves it as it is. To let Norrow change " +
             "it, make it writable (chmod u+w " + settings.string() + "), then try again."},
        {[&] { return ::chown(settings.c_str(), 1234, 1234) == 0; },
         settings.string() + " belongs to "},
    };
    for (const auto& [arrange, message] : cases) {
        put(settings, original);
        if (!arrange()) continue;
        const auto before = test::status(settings);
        for (const auto& outcome : {coordinator().install(1, "t"), coordinator().uninstall()})
            EXPECT_TRUE(outcome.message.starts_with(message)) << outcome.message;
        const auto after = test::status(settings);
        EXPECT_EQ(std::tie(after.st_mode, after.st_uid, after.st_ino),
                  std::tie(before.st_mode, before.st_uid, before.st_ino));
        EXPECT_EQ(contents(settings), original);
        EXPECT_FALSE(fs::exists(claude / "norrow"));
        fs::remove(settings);
    }
}

TEST_F(SetupCoordinatorTest, AFailedEditUndoesOnlyItsOwnChangeAndKeepsTheBackup) {
    using Fault = FaultyFiles::Fault;
    const std::string ours =
        *HookInstaller::planInstall(original, (claude / "norrow/bridge").string()).updatedDocument;
    const std::string restored = "The change did not verify, so your settings.json was restored "
                                 "exactly as it was. Nothing was left half-applied. (";
    const struct {
        Fault fault;
        std::string message;
        std::size_t backupCount;
        std::string after;
    } cases[] = {
        {Fault::folderTaken,
         "could not create the folder " + (claude / "norrow").string() + ": Not a directory", 0,
         original},
        {Fault::fullDisk, "could not write " + (claude / "norrow/settings.backup.").string(), 0,
         original},
        {Fault::writeFails,
         "Norrow could not change your settings.json, so it is exactly as it was (could not write",
         1, original},
        {Fault::readBackDiffers,
         restored + "the file was written but failed verification: a key outside `hooks` changed)",
         1, original},
        {Fault::restoreFails,
         "The change did not verify, and your settings.json could not be put back (could not write",
         1, ours},
        {Fault::savedAfterUs,
         "Your settings.json changed while Norrow was editing it, so Norrow left it as it is now",
         1, FaultyFiles::theirs(1)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        put(settings, original);
        fs::remove_all(claude / "norrow");
        // A file where the app's folder belongs makes it unwritable, even for root.
        if (c.fault == Fault::folderTaken) put(claude / "norrow", "not a folder");
        FaultyFiles files(settings, c.fault);
        const auto outcome = coordinator(&files).install(4711, "secret");
        EXPECT_EQ(outcome.kind, Outcome::Kind::failed);
        EXPECT_TRUE(outcome.message.starts_with(c.message)) << outcome.message;
        EXPECT_EQ(backups(claude), std::vector<std::string>(c.backupCount, original));
        EXPECT_EQ(contents(settings), c.after);
        EXPECT_EQ(SetupAlert::afterInstall(outcome),
                  (SetupAlert{"Setup did not complete", outcome.message}));
    }

    // A removal that does not verify puts the installed settings back.
    put(settings, original);
    ASSERT_EQ(coordinator().install(4711, "secret").kind, Outcome::Kind::installed);
    const std::string installed = contents(settings);
    FaultyFiles files(settings, Fault::readBackDiffers);
    EXPECT_EQ(coordinator(&files).uninstall(),
              Outcome::failed("Removal did not verify; your settings.json was restored."));
    EXPECT_EQ(contents(settings), installed);
}

TEST_F(SetupCoordinatorTest, AChangeSavedBeforeOursIsKeptAndEditedAgain) {
    FaultyFiles files(settings, FaultyFiles::Fault::savedBeforeUs);
    const auto outcome = coordinator(&files).install(4711, "secret");
    ASSERT_EQ(outcome.kind, Outcome::Kind::installed) << outcome.message;
    EXPECT_EQ(contents(*outcome.backup), FaultyFiles::theirs(1));
    EXPECT_EQ(contents(settings), *HookInstaller::planInstall(FaultyFiles::theirs(1),
                                                              (claude / "norrow/bridge").string())
                                       .updatedDocument);
}

TEST_F(SetupCoordinatorTest, NamesTheProblemBeforeWritingAnythingAndTheStepsByHand) {
    EXPECT_EQ(coordinator(nullptr, ":/no-such-resource").install(4711, "secret"),
              Outcome::failed("The bridge script is missing from Norrow's resources \u2014 this "
                              "build is incomplete."));
    const std::string unread =
        settings.string() + " is empty or not valid JSON, so Claude Code is not reading it.";
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {std::nullopt,
         "No settings.json in " + claude.string() + ". Open Claude Code once so it creates one."},
        {"", unread},
        {"{\n  // a comment\n}", unread},
        {"{\"a\": 1,}", ""}, // a trailing comma is the installer's to explain
    };
    for (const auto& [text, problem] : cases) {
        fs::remove(settings);
        if (text) put(settings, *text);
        EXPECT_EQ(ClaudeFolder::problem(claude).value_or(""), problem);
    }
    EXPECT_NE(coordinator().install(1, "t").message.find("trailing comma before '}'"),
              std::string::npos);
    EXPECT_EQ(contents(settings), "{\"a\": 1,}");
    EXPECT_FALSE(fs::exists(claude / "norrow"));
    EXPECT_EQ(ClaudeFolder::problem(top / "nowhere"),
              "No Claude Code folder at " + (top / "nowhere").string() +
                  ". Open Claude Code once, then try again.");

    const fs::path home = QDir::homePath().toStdString();
    EXPECT_EQ(ClaudeFolder::url(store), home / ".claude");
    store.set("claudeFolderOverride", "~/elsewhere");
    EXPECT_EQ(ClaudeFolder::url(store), home / "elsewhere");

    // Followed by hand, the steps give a current installation and a working bridge config.
    const std::string steps =
        SetupCoordinator(store, "/home/u/.claude").manualInstructions(4711, "abc");
    const auto hooksAt = steps.find("\n\n{") + 2;
    const std::string hooks = steps.substr(hooksAt, steps.find("\n\nThe bridge") - hooksAt);
    EXPECT_EQ(HookInstaller::status(hooks, "/home/u/.claude/norrow/bridge"),
              HookInstaller::Status::current);
    EXPECT_TRUE(steps.starts_with("Add these hooks to /home/u/.claude/settings.json")) << steps;
    EXPECT_TRUE(steps.ends_with("/home/u/.claude/norrow/config.json, which Norrow writes and keeps "
                                "current \u2014 the port can change on any launch. If you are "
                                "doing all of this by hand, that file reads:\n\n{\"port\": "
                                "4711, \"token\": \"abc\"}"))
        << steps;
}

} // namespace
} // namespace norrow
