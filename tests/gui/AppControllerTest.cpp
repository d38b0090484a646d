#include "app/AppController.h"

#include "GuiSupport.h"
#include "app/BannerContentView.h"
#include "app/NetworkTransport.h"
#include "app/platform/Desktop.h"
#include "core/BridgeConfig.h"
#include "core/Files.h"
#include "support/Eventually.h"
#include "support/Process.h"
#include "support/PulseServer.h"
#include "support/TempDir.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QWidget>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;

// A menu item as the menu would hand it over when chosen.
MenuItem chosen(MenuAction action, MenuItem::Value value = {}) {
    MenuItem item;
    item.action = action;
    item.represented = std::move(value);
    return item;
}

// The controller as the app runs it, on the real X session with the real tray, listener,
// bridge script and curl; only the keychain is kept in memory and the files in a
// temporary folder.
class AppControllerTest : public testing::Test {
protected:
    AppControllerTest() {
        fs::create_directories(claude);
        fs::copy_file(fs::path(NORROW_CORPUS_DIR) / "settings/0001.json", claude / "settings.json");
        // The corpus is read-only, and Norrow leaves a read-only settings.json alone.
        fs::permissions(claude / "settings.json", fs::perms::owner_write, fs::perm_options::add);
        original = *files::read(claude / "settings.json");
        settings.set(SettingKey::claudeFolderOverride, QString::fromStdString(claude.string()));
        // Tests that want the first-launch menu say so.
        settings.set(SettingKey::hasSeenMenu, true);
    }

    std::unique_ptr<AppController> startApp(AppController::Options options = {}) {
        auto app = std::make_unique<AppController>(settings, keychain, *desktop,
                                                   std::make_unique<NetworkTransport>(), options);
        app->start();
        EXPECT_TRUE(test::settle([&] { return app->host().port().has_value(); }));
        return app;
    }

    // Runs the installed bridge on a hook payload, as Claude Code would, from `folder`.
    void bridge(const std::string& payload) {
        const auto done = test::run({(claude / "norrow/bridge").string()}, payload);
        ASSERT_EQ(done.status, 0);
    }

    static std::vector<std::string> titles(const QMenu& menu) {
        std::vector<std::string> out;
        for (const QAction* action : menu.actions())
            if (!action->isSeparator()) out.push_back(action->text().toStdString());
        return out;
    }

    test::TempDir top;
    fs::path claude = top / "claude";
    std::string original;
    Settings settings{QString::fromStdString((top / "settings.ini").string())};
    test::MemoryKeychain keychain;
    std::unique_ptr<Desktop> desktop = Desktop::create();
};

TEST_F(AppControllerTest, ListensPublishesTheConfigAndOpensTheMenuOnTheFirstLaunchOnly) {
    settings.set(SettingKey::hasSeenMenu, false);
    auto app = startApp();
    const auto port = *app->host().port();
    // Published on the menu rebuild that follows the listener's news.
    EXPECT_TRUE(test::settle(
        [&] { return BridgeConfig::read(claude / "norrow/config.json").has_value(); }));
    EXPECT_EQ(BridgeConfig::read(claude / "norrow/config.json"),
              (BridgeConfig{port, app->host().token()}));
    EXPECT_EQ(app->host().token().size(), 64u);

    EXPECT_TRUE(QSystemTrayIcon::isSystemTrayAvailable());
    EXPECT_TRUE(test::settle([&] { return app->statusMenu().trayIcon().geometry().isValid(); }))
        << "the status item never went into the tray";
    EXPECT_TRUE(test::settle([&] { return app->statusMenu().menu().isVisible(); }));
    EXPECT_TRUE(settings.boolean(SettingKey::hasSeenMenu));
    EXPECT_EQ(titles(app->statusMenu().menu()).front(), "No Claude Code sessions");
    app->statusMenu().menu().close();
    app.reset();

    // The next launch keeps to itself, on the port it had.
    auto again = startApp();
    EXPECT_EQ(again->host().port(), port);
    EXPECT_FALSE(test::settle([&] { return again->statusMenu().menu().isVisible(); },
                              std::chrono::milliseconds(1500)));
}

TEST_F(AppControllerTest, SetsUpClaudeCodeFollowsASessionThroughTheBridgeAndRemovesItAgain) {
    settings.set(SettingKey::rulesEnabled, false);
    // Answered from the terminal only, so the bridge does not wait on the request.
    settings.set(SettingKey::answerFromBanners, false);
    auto app = startApp();
    std::vector<EventHandler::Alert> alerts;
    QObject::connect(app.get(), &AppController::alerted,
                     [&](const EventHandler::Alert& alert) { alerts.push_back(alert); });

    {
        test::DialogAnswerer answers({"OK"});
        app->perform(chosen(MenuAction::runInstall));
        ASSERT_EQ(answers.seen.size(), 1u);
        EXPECT_EQ(answers.seen[0].message, "Setup complete");
        EXPECT_TRUE(answers.seen[0].informativeText.starts_with(
            "Hooks installed. Restart Claude Code and the next turn will notify you.\n\nYour "
            "previous "
            "settings.json was backed up to:\n" +
            (claude / "norrow/settings.backup.").string()));
    }
    const std::string installed = *files::read(claude / "settings.json");
    EXPECT_NE(installed.find((claude / "norrow/bridge").string()), std::string::npos);
    EXPECT_EQ(files::read(settings.string(SettingKey::lastBackupPath)->toStdString()), original);
    EXPECT_TRUE(test::findAction(app->statusMenu().menu(),
                                 QStringLiteral("\u2713  Claude Code is set up")));

    const std::string session =
        R"("session_id":"5e551011-aaaa-4bbb-8ccc-000000000001","cwd":"/work/api")";
    bridge(R"({"hook_event_name":"UserPromptSubmit",)" + session + R"(,"prompt":"Fix the bug"})");
    ASSERT_TRUE(test::settle([&] { return app->host().turns().openCount() == 1; }));

    // A dialog stands on screen, first in the menu and badged in the tray, until answered.
    bridge(R"({"hook_event_name":"PermissionRequest",)" + session +
           R"(,"tool_name":"Bash","tool_input":{"command":"npm test"}})");
    ASSERT_TRUE(test::settle([&] { return alerts.size() == 1; }));
    EXPECT_EQ(alerts[0].result.text, "Allow Bash: npm test");
    ASSERT_EQ(app->banners().banners().size(), 1u);
    EXPECT_FALSE(app->banners().banners().front()->content().offersChoices());
    EXPECT_TRUE(test::settle([&] { return app->statusMenu().badge(); }));
    EXPECT_TRUE(titles(app->statusMenu().menu())[1].starts_with("api  \u00b7  needs you  \u00b7  "))
        << testing::PrintToString(titles(app->statusMenu().menu()));
    bridge(R"({"hook_event_name":"PostToolUse",)" + session + R"(,"tool_name":"Bash"})");
    EXPECT_TRUE(test::settle(
        [&] { return app->banners().banners().empty() && !app->statusMenu().badge(); }));

    bridge(R"({"hook_event_name":"Stop",)" + session +
           R"(,"last_assistant_message":"Fixed the **bug**. Tests pass."})");
    ASSERT_TRUE(test::settle([&] { return alerts.size() == 2; }));
    EXPECT_EQ(app->host().turns().openCount(), 0u);
    EXPECT_EQ(alerts[1].result.text, "Fixed the bug. Tests pass.");
    EXPECT_EQ(app->events().lastBridgeVersion(), "dev");
    // The menu follows once the banner is up.
    EXPECT_TRUE(test::settle([&] {
        const auto menu = titles(app->statusMenu().menu());
        return menu[0] == "Claude Code sessions" && menu[1].starts_with("api  \u00b7  ");
    })) << testing::PrintToString(titles(app->statusMenu().menu()));

    {
        // Cancelling the removal changes nothing.
        test::DialogAnswerer answers({"Cancel"});
        app->perform(chosen(MenuAction::runUninstall));
        ASSERT_EQ(answers.seen.size(), 1u);
    }
    EXPECT_EQ(files::read(claude / "settings.json"), installed);
    EXPECT_TRUE(fs::exists(claude / "norrow/bridge"));
    {
        test::DialogAnswerer answers({"Remove", "OK"});
        app->perform(chosen(MenuAction::runUninstall));
        ASSERT_EQ(answers.seen.size(), 2u);
        EXPECT_EQ(answers.seen[0].message, "Remove Norrow from Claude Code?");
        EXPECT_EQ(answers.seen[1].message, "Removed");
    }
    EXPECT_EQ(files::read(claude / "settings.json"), original);
    EXPECT_FALSE(fs::exists(claude / "norrow/bridge"));
    EXPECT_TRUE(
        test::findAction(app->statusMenu().menu(), QStringLiteral("Set up Claude Code\u2026")));
}

TEST_F(AppControllerTest, ASessionWhoseTerminalRunsCanBeBroughtForwardFromTheMenu) {
    auto app = startApp();
    const std::string xterm = fs::canonical("/usr/bin/xterm").string();
    test::Process terminal({"xterm", "-xrm", "*waitforwm: false", "-e", "cat"});
    HookEvent stop(HookEvent::Name::stop);
    stop.sessionId = "c0ffee00-1111-4222-8333-444455556666";
    stop.cwd = "/work/web";
    stop.termAppPath = xterm;
    ASSERT_TRUE(test::settle([&] { return desktop->runningApp(stop).has_value(); }));
    fs::create_directories(claude / "norrow/state");
    std::ofstream(claude / "norrow/state" / (*stop.sessionId + ".json")) << "{}";
    app->handle(stop);

    // Somewhere else in front, as when the user has moved on.
    QWidget elsewhere;
    elsewhere.show();
    elsewhere.activateWindow();
    ASSERT_TRUE(test::settle([&] { return desktop->frontmostApplication() != xterm; }));

    QAction* session = nullptr;
    for (QAction* action : app->statusMenu().menu().actions())
        if (action->text().startsWith(QStringLiteral("web  \u00b7  "))) session = action;
    ASSERT_NE(session, nullptr) << testing::PrintToString(titles(app->statusMenu().menu()));
    EXPECT_TRUE(session->isEnabled());
    EXPECT_EQ(session->toolTip(), "XTerm");
    // The window manager turns away a request that follows another window's activation
    // within a second; a person needs longer than that to reach the menu.
    test::settle([] { return false; }, std::chrono::milliseconds(1200));
    session->trigger();
    EXPECT_TRUE(test::settle([&] { return desktop->frontmostApplication() == xterm; }));
    terminal.stop(SIGTERM);
}

TEST_F(AppControllerTest, CopiesTheManualInstructionsWithThePortAndToken) {
    auto app = startApp();
    test::DialogAnswerer answers({"OK"});
    app->perform(chosen(MenuAction::copyManualInstructions));
    ASSERT_EQ(answers.seen.size(), 1u);
    EXPECT_EQ(answers.seen[0].message, "Copied");
    const SetupCoordinator setup(settings, claude);
    EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(),
              setup.manualInstructions(*app->host().port(), app->host().token()));
}

TEST_F(AppControllerTest, MenuChoicesAreStoredAndShownAtOnce) {
    auto app = startApp();
    const auto choose = [&](MenuAction action, MenuItem::Value value = {}) {
        app->perform(chosen(action, std::move(value)));
    };
    choose(MenuAction::chooseSound, std::string("bell"));
    choose(MenuAction::chooseMinimumDuration, 5.0);
    choose(MenuAction::toggleOnlyIfAway);
    choose(MenuAction::toggleRules);

    EXPECT_EQ(settings.string(SettingKey::soundStyle), "bell");
    EXPECT_EQ(settings.real(SettingKey::minimumDuration), 5.0);
    EXPECT_FALSE(settings.boolean(SettingKey::onlyIfAway));
    EXPECT_FALSE(settings.boolean(SettingKey::rulesEnabled));

    const QMenu& menu = app->statusMenu().menu();
    EXPECT_TRUE(test::findAction(menu, QStringLiteral("Bell"))->isChecked());
    EXPECT_FALSE(test::findAction(menu, QStringLiteral("Spoken"))->isChecked());
    QAction* five = test::findAction(menu, QStringLiteral("5 seconds"));
    EXPECT_TRUE(five->isChecked());
    EXPECT_FALSE(five->isEnabled());
    EXPECT_FALSE(test::findAction(menu, QStringLiteral("Use these rules"))->isChecked());

    // A style stored by something else, which names none of the three, checks none of them.
    settings.set(SettingKey::soundStyle, QStringLiteral("chime"));
    app->refreshMenu();
    for (const char* style : {"Bell", "Spoken", "Silent"})
        EXPECT_FALSE(
            test::findAction(app->statusMenu().menu(), QString::fromLatin1(style))->isChecked())
            << style;
}

TEST_F(AppControllerTest, AChosenSoundIsPreviewedAndEveryAlertPlaysIt) {
    settings.set(SettingKey::rulesEnabled, false);
    auto app = startApp({.sounds = NORROW_SOUNDS_DIR});
    auto& pulse = test::soundServer();
    // How loud the app was from `act` until nothing played any more and a second had passed.
    const auto rmsOf = [&](const std::function<void()>& act) {
        test::Recording recording(pulse);
        act();
        EXPECT_TRUE(test::eventually(
            [&] { return pulse.playingStreams() == 0 && recording.seconds() >= 1.0; }));
        return recording.stop().rms;
    };
    const auto alert = [&] { app->handle(HookEvent(HookEvent::Name::stop)); };

    EXPECT_GT(rmsOf([&] { app->perform(chosen(MenuAction::chooseSound, std::string("bell"))); }),
              0.01);
    EXPECT_EQ(settings.string(SettingKey::soundStyle), "bell");
    EXPECT_TRUE(test::findAction(app->statusMenu().menu(), QStringLiteral("Bell"))->isChecked());
    EXPECT_GT(rmsOf(alert), 0.01);

    EXPECT_EQ(rmsOf([&] { app->perform(chosen(MenuAction::chooseSound, std::string("silent"))); }),
              0.0);
    EXPECT_EQ(rmsOf(alert), 0.0);
}

TEST_F(AppControllerTest, AReleaseBuildOffersANewerReleaseAndADevelopmentBuildNeverAsks) {
    test::ReleaseServer server(R"({"version":"9.9.9","url":"https://example.invalid/download"})");
    const QString offer = QStringLiteral("\u2B06\uFE0E  Version 9.9.9 is out \u2014 download it");

    auto development = startApp({.version = "dev", .updateEndpoint = server.endpoint()});
    test::settle([] { return false; }, std::chrono::milliseconds(300));
    EXPECT_EQ(server.requests, 0);
    EXPECT_EQ(test::findAction(development->statusMenu().menu(), offer), nullptr);
    development.reset();

    auto release = startApp({.version = "1.0.0", .updateEndpoint = server.endpoint()});
    EXPECT_TRUE(test::settle(
        [&] { return test::findAction(release->statusMenu().menu(), offer) != nullptr; }));
    EXPECT_EQ(server.requests, 1);
    EXPECT_TRUE(test::findAction(release->statusMenu().menu(), QStringLiteral("Norrow 1.0.0")));
}

} // namespace
} // namespace norrow
