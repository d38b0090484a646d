#pragma once

#include "app/BannerPresenter.h"
#include "app/MenuModel.h"
#include "app/Notifier.h"
#include "app/StatusMenu.h"
#include "app/platform/Desktop.h"
#include "app/platform/SoundPlayer.h"
#include "app/shared/ListenerHost.h"
#include "app/shared/SecretStore.h"
#include "app/shared/Settings.h"
#include "app/shared/SetupCoordinator.h"
#include "app/shared/SuppressionRules.h"
#include "app/shared/UpdateCheck.h"
#include "core/AppVersion.h"
#include "core/EventHandler.h"
#include "core/RelativeTime.h"
#include "core/SessionNames.h"

#include <QObject>
#include <QTimer>
#include <QUrl>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace norrow {

// The desktop app's one controller: starts the listener, owns the long-lived objects,
// rebuilds the status menu whenever something changes, and carries out the menu's actions.
// Main thread only.
class AppController : public QObject {
    Q_OBJECT
public:
    struct Options {
        std::string version = AppVersion::current();
        QUrl updateEndpoint = UpdateCheck::defaultEndpoint();
        // Print the port and token once listening, for pointing a hand-run bridge at the app.
        bool debug = false;
        // Where the alert sounds are.
        std::filesystem::path sounds = SoundPlayer::bundledSounds();
        // The clock behind the banners' dismissal and fade.
        BannerTimer::Factory bannerTimers = BannerTimer::qt();
    };

    AppController(Settings& settings, SecretStore& keychain, Desktop& desktop,
                  std::unique_ptr<UpdateCheck::Transport> transport, Options options);
    ~AppController() override;

    // Shows the status item, starts listening and checking for releases, opens the menu on
    // the very first launch, and schedules the periodic sweep.
    void start();
    // Stops the listener and the timers; the app is about to quit.
    void stop();

    // Rebuilds the whole menu, publishing the bridge config first.
    void refreshMenu();
    // What the menu shows now.
    MenuState menuState();
    // One event from the listener: the turn bookkeeping, the rules, then the menu. A tool's
    // permission request comes with the id under which its bridge waits for an answer.
    void handle(const HookEvent& event,
                std::optional<EventListener::AnswerId> awaiting = std::nullopt);
    // Carries out a chosen menu item.
    void perform(const MenuItem& item);

    ListenerHost& host() { return host_; }
    StatusMenu& statusMenu() { return *statusMenu_; }
    const EventHandler& events() const { return events_; }
    UpdateCheck& updateCheck() { return updates_; }
    BannerPresenter& banners() { return banners_; }

signals:
    // An event the user's rules let through; a banner and a sound announce it.
    void alerted(const norrow::EventHandler::Alert& alert);

private:
    void listenerStateChanged(bool listening);
    void checkForUpdates();
    void returnToSession(const std::string& id);
    // Brings the application hosting the event's session forward and, for an editor's own
    // terminal, opens the session's folder in it.
    void returnTo(const HookEvent& event);
    // What a click on the event's banner does: return to the session, when its application
    // runs now; otherwise nothing.
    std::function<void()> bannerAction(const HookEvent& event);
    // What an alert's banner offers to answer, when its bridge waits for an answer.
    std::optional<BannerPresenter::Choices>
    bannerChoices(const EventHandler::Alert& alert,
                  std::optional<EventListener::AnswerId> awaiting);
    // Lets the bridge waiting for the session's answer go without one.
    void releaseAnswer(const std::string& session);
    void runInstall();
    void runUninstall();
    void copyManualInstructions();
    void openDownload();

    Settings& settings_;
    Desktop& desktop_;
    const Options options_;
    ListenerHost host_;
    SetupCoordinator setup_;
    SessionNames names_;
    SuppressionRules rules_;
    EventHandler events_;
    UpdateCheck updates_;
    RelativeTime relativeTime_;
    std::unique_ptr<StatusMenu> statusMenu_;
    // The player outlives the notifier and the sounds it keeps.
    std::unique_ptr<SoundPlayer> player_;
    Notifier notifier_;
    BannerPresenter banners_;
    QTimer menuRefresh_;
    // Per session, the bridge waiting for an answer from its banner.
    std::map<std::string, EventListener::AnswerId> answers_;
    bool reportedState_ = false;
};

} // namespace norrow
