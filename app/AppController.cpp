#include "app/AppController.h"

#include "app/SetupDialogs.h"
#include "app/shared/ClaudeFolder.h"
#include "app/shared/SetupAlert.h"
#include "core/BridgeState.h"
#include "core/RequestText.h"
#include "core/TerminalActivator.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QTimer>
#include <chrono>
#include <iostream>

namespace norrow {
namespace {

// Long enough for the tray to have embedded the status item, so the menu opens beside it.
constexpr std::chrono::milliseconds firstMenuDelay{800};

bool failed(const SetupCoordinator::Outcome& outcome) {
    return outcome.kind == SetupCoordinator::Outcome::Kind::failed;
}

} // namespace

AppController::AppController(Settings& settings, SecretStore& keychain, Desktop& desktop,
                             std::unique_ptr<UpdateCheck::Transport> transport, Options options)
    : settings_(settings), desktop_(desktop), options_(std::move(options)),
      host_(settings, keychain, ClaudeFolder::url(settings)),
      setup_(settings, host_.claudeFolder()), rules_(settings), events_(host_.turns(), names_),
      updates_(std::move(transport), options_.version, &std::chrono::system_clock::now,
               options_.updateEndpoint),
      player_(SoundPlayer::create()), notifier_(settings, *player_, options_.sounds),
      banners_(desktop, options_.bannerTimers) {
    // A burst of events redraws the menu once, after the banners are up.
    menuRefresh_.setSingleShot(true);
    menuRefresh_.setInterval(0);
    connect(&menuRefresh_, &QTimer::timeout, this, &AppController::refreshMenu);
}

AppController::~AppController() {
    stop();
}

void AppController::start() {
    statusMenu_ = std::make_unique<StatusMenu>([this](const MenuItem& item) { perform(item); },
                                               [this] { refreshMenu(); });
    host_.setOnEvent([this](const HookEvent& event) { handle(event); });
    host_.setOnRequest(
        [this](const HookEvent& event, EventListener::AnswerId id) { handle(event, id); });
    host_.setAnswering(rules_.answerFromBanners());
    host_.setOnStateChange([this](bool listening) { listenerStateChanged(listening); });
    host_.setOnSweep([this] { checkForUpdates(); });
    try {
        host_.start(host_.rememberedPort());
    } catch (const EventListener::ListenerError& e) {
        qWarning("Norrow: %s", e.what());
    }
    refreshMenu();
    checkForUpdates();
    if (!settings_.boolean(SettingKey::hasSeenMenu)) {
        settings_.set(SettingKey::hasSeenMenu, true);
        settings_.sync();
        QTimer::singleShot(firstMenuDelay, this, [this] { statusMenu_->popUp(); });
    }
}

void AppController::stop() {
    host_.stop();
}

void AppController::listenerStateChanged(bool listening) {
    if (options_.debug && !reportedState_) {
        const auto port = host_.port();
        std::cout << "NORROW_PORT=" << (port ? std::to_string(*port) : std::string()) << '\n'
                  << "NORROW_TOKEN=" << host_.token() << '\n'
                  << std::flush;
    }
    reportedState_ = true;
    if (!listening) qWarning("Norrow: the listener stopped listening");
    refreshMenu();
}

void AppController::checkForUpdates() {
    updates_.run(false, [this] { refreshMenu(); });
}

MenuState AppController::menuState() {
    MenuState state;
    state.listening = host_.port().has_value();
    const auto& folder = host_.claudeFolder();
    const auto projects = SessionNames::projectsFolder(folder);
    for (const auto& live : BridgeState::liveSessionDetails(BridgeState::stateFolder(folder))) {
        MenuState::Session session{live.id, names_.displayName(live.id, projects),
                                   live.lastActivity, std::nullopt, std::nullopt};
        const auto& last = events_.lastEventBySession();
        if (const auto event = last.find(live.id); event != last.end())
            if (const auto app = desktop_.runningApp(event->second))
                session.host = app->localizedName;
        if (const auto waits = events_.waiting().find(live.id); waits != events_.waiting().end())
            session.waitingSince = waits->second.since;
        state.sessions.push_back(std::move(session));
    }
    state.hooks = setup_.status();
    // The stored text as it is: one that names no style checks none of them.
    state.soundStyle = settings_.string(SettingKey::soundStyle).value_or(QString()).toStdString();
    state.rulesEnabled = rules_.enabled();
    state.minimumDuration = rules_.minimumDuration().count();
    state.onlyIfAway = rules_.onlyIfAway();
    state.answerFromBanners = rules_.answerFromBanners();
    state.version = options_.version;
    if (const auto& release = updates_.available()) state.availableVersion = release->version;
    state.lastBridgeVersion = events_.lastBridgeVersion();
    state.bridgeStale = AppVersion::bridgeIsStale(state.lastBridgeVersion, options_.version);
    state.now = std::chrono::system_clock::now();
    return state;
}

void AppController::refreshMenu() {
    host_.publishBridgeConfig();
    if (!statusMenu_) return;
    statusMenu_->show(MenuModel::build(menuState(), relativeTime_));
    statusMenu_->setBadge(!events_.waiting().empty());
}

void AppController::handle(const HookEvent& event,
                           std::optional<EventListener::AnswerId> awaiting) {
    const auto outcome = events_.handle(event, desktop_.frontmostApplication(),
                                        std::chrono::system_clock::now(), rules_.current());
    if (outcome.withdrawn) {
        banners_.withdraw(*outcome.withdrawn);
        releaseAnswer(*outcome.withdrawn);
    }
    auto choices = outcome.alert ? bannerChoices(*outcome.alert, awaiting) : std::nullopt;
    // Nobody can answer a request that shows no choices: its bridge need not wait.
    if (awaiting && !choices) host_.answer(*awaiting, std::nullopt);
    if (const auto& alert = outcome.alert) {
        // The banner first: it is what the user waits for.
        banners_.show(QString::fromStdString(alert->result.text), bannerAction(alert->event),
                      alert->standing ? alert->event.sessionId : std::nullopt, std::move(choices));
        notifier_.play(alert->result.kind);
        emit alerted(*alert);
    }
    if (outcome.menuChanged) menuRefresh_.start();
}

std::function<void()> AppController::bannerAction(const HookEvent& event) {
    if (!desktop_.runningApp(event)) return {};
    return [this, event] { returnTo(event); };
}

std::optional<BannerPresenter::Choices>
AppController::bannerChoices(const EventHandler::Alert& alert,
                             std::optional<EventListener::AnswerId> awaiting) {
    const auto& session = alert.event.sessionId;
    if (!awaiting || !alert.standing || !session) return std::nullopt;
    releaseAnswer(*session);
    answers_.emplace(*session, *awaiting);
    const auto id = *awaiting;
    // Only this press answers, and only the request it was shown for: the id is that
    // request's own, and is spent once used.
    auto choose = [this, session = *session, id](PermissionAnswer::Choice choice) {
        if (const auto found = answers_.find(session);
            found != answers_.end() && found->second == id)
            answers_.erase(found);
        host_.answer(id, choice, [](bool delivered) {
            if (!delivered) qWarning("Norrow: the answer came after the request had ended");
        });
    };
    return BannerPresenter::Choices{
        std::move(choose),
        QString::fromStdString(RequestText::whole(alert.event).value_or(alert.result.text))};
}

void AppController::releaseAnswer(const std::string& session) {
    const auto found = answers_.find(session);
    if (found == answers_.end()) return;
    host_.answer(found->second, std::nullopt);
    answers_.erase(found);
}

void AppController::perform(const MenuItem& item) {
    if (!item.action) return;
    const auto* text = std::get_if<std::string>(&item.represented);
    const auto* number = std::get_if<double>(&item.represented);
    switch (*item.action) {
    case MenuAction::returnToSession:
        if (text) returnToSession(*text);
        return;
    case MenuAction::runInstall:
        runInstall();
        return;
    case MenuAction::runUninstall:
        runUninstall();
        return;
    case MenuAction::copyManualInstructions:
        copyManualInstructions();
        return;
    case MenuAction::chooseSound:
        if (const auto style = text ? soundStyle(*text) : std::nullopt) {
            notifier_.setStyle(*style);
            notifier_.preview(*style);
        }
        break;
    case MenuAction::toggleRules:
        rules_.setEnabled(!rules_.enabled());
        break;
    case MenuAction::chooseMinimumDuration:
        if (number) rules_.setMinimumDuration(Seconds(*number));
        break;
    case MenuAction::toggleOnlyIfAway:
        rules_.setOnlyIfAway(!rules_.onlyIfAway());
        break;
    case MenuAction::toggleAnswerFromBanners:
        rules_.setAnswerFromBanners(!rules_.answerFromBanners());
        host_.setAnswering(rules_.answerFromBanners());
        break;
    case MenuAction::openDownload:
        openDownload();
        return;
    case MenuAction::quit:
        QCoreApplication::quit();
        return;
    }
    settings_.sync();
    refreshMenu();
}

void AppController::returnToSession(const std::string& id) {
    const auto& last = events_.lastEventBySession();
    if (const auto event = last.find(id); event != last.end()) returnTo(event->second);
}

void AppController::returnTo(const HookEvent& event) {
    const auto app = desktop_.runningApp(event);
    if (!app) return;
    desktop_.activate(*app);
    if (!event.isIntegratedTerminal() || !event.cwd) return;
    if (const auto link = TerminalActivator::revealURL(*event.cwd, app->identity))
        QDesktopServices::openUrl(QUrl(QString::fromStdString(*link), QUrl::StrictMode));
}

void AppController::runInstall() {
    const auto port = host_.port();
    if (!port) {
        SetupDialogs::inform(SetupAlert::notListening(), true);
        return;
    }
    const auto outcome = setup_.install(*port, host_.token());
    if (const auto alert = SetupAlert::afterInstall(outcome))
        SetupDialogs::inform(*alert, failed(outcome));
    refreshMenu();
}

void AppController::runUninstall() {
    if (!SetupDialogs::confirmRemoval()) return;
    const auto outcome = setup_.uninstall();
    if (const auto alert = SetupAlert::afterRemoval(outcome))
        SetupDialogs::inform(*alert, failed(outcome));
    refreshMenu();
}

void AppController::copyManualInstructions() {
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(
        QString::fromStdString(setup_.manualInstructions(host_.port().value_or(0), host_.token())));
    SetupDialogs::inform(SetupAlert::copiedInstructions());
}

void AppController::openDownload() {
    if (const auto& release = updates_.available()) QDesktopServices::openUrl(release->url);
}

} // namespace norrow
