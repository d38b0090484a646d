#include "app/shared/SetupCoordinator.h"

#include "app/shared/ClaudeFolder.h"
#include "core/BridgeConfig.h"
#include "core/BridgeState.h"
#include "core/HookInstaller.h"
#include "core/UtcTime.h"

#include <QFile>

namespace norrow {
namespace {

// How often settings.json is planned and written again when another program keeps saving it
// in between.
constexpr int editAttempts = 3;

// Hook commands need an absolute path; a folder that cannot be made absolute stays as given.
std::filesystem::path absoluteFolder(const std::filesystem::path& folder) {
    std::error_code error;
    auto full = std::filesystem::absolute(folder, error);
    return error ? folder : full;
}

} // namespace

SetupCoordinator::SetupError::SetupError(Case kind, const std::string& description)
    : std::runtime_error(description), kind_(kind) {}

SetupCoordinator::SetupError SetupCoordinator::SetupError::bridgeMissingFromBundle() {
#if defined(__APPLE__)
    return {Case::bridgeMissingFromBundle,
            "The bridge script is missing from the app bundle \u2014 this build is incomplete."};
#else
    return {
        Case::bridgeMissingFromBundle,
        "The bridge script is missing from Norrow's resources \u2014 this build is incomplete."};
#endif
}

SetupCoordinator::SetupCoordinator(Settings& settings, std::filesystem::path claudeFolder,
                                   FileSystem* files, QString resource)
    : settings_(settings), folder_(absoluteFolder(claudeFolder)),
      files_(files != nullptr ? *files : local_), resource_(std::move(resource)) {}

SetupCoordinator::Outcome SetupCoordinator::install(std::uint16_t port, const std::string& token) {
    if (auto reason = refusal()) return Outcome::failed(std::move(*reason));
    try {
        const std::string original = files_.read(settingsPath());
        const Planner plan = [bridge = bridgePath().string()](const std::string& document) {
            return HookInstaller::planInstall(document, bridge);
        };
        auto first = plan(original);
        // Refreshed on every run, so that a re-run also updates the script and the port.
        installBridge();
        BridgeConfig::write(port, token, BridgeConfig::location(folder_));
        auto outcome = edit(original, std::move(first), plan, [](const std::string& description) {
            return "The change did not verify, so your settings.json was restored exactly as it "
                   "was. Nothing was left half-applied. (" +
                   description + ")";
        });
        if (outcome.kind == Outcome::Kind::installed) {
            settings_.set(SettingKey::lastBackupPath,
                          QString::fromStdString(outcome.backup->string()));
            settings_.sync();
        }
        return outcome;
    } catch (const std::exception& e) {
        return Outcome::failed(e.what());
    }
}

SetupCoordinator::Outcome SetupCoordinator::uninstall() {
    if (auto reason = refusal()) return Outcome::failed(std::move(*reason));
    try {
        const std::string original = files_.read(settingsPath());
        auto outcome = edit(original, HookInstaller::planRemoval(original),
                            HookInstaller::planRemoval, [](const std::string&) {
                                return "Removal did not verify; your settings.json was restored.";
                            });
        if (outcome.kind == Outcome::Kind::installed) {
            files_.remove(bridgePath());
            files_.remove(BridgeState::stateFolder(folder_));
            files_.remove(BridgeConfig::location(folder_));
        }
        return outcome;
    } catch (const std::exception& e) {
        return Outcome::failed(e.what());
    }
}

HookInstaller::Status SetupCoordinator::status() const {
    try {
        return HookInstaller::status(files_.read(settingsPath()), bridgePath().string());
    } catch (const std::exception&) {
        return HookInstaller::Status::notInstalled;
    }
}

std::string SetupCoordinator::manualInstructions(std::uint16_t port,
                                                 const std::string& token) const {
    const std::string bridge = bridgePath().string();
    // What the installer writes into a file of its own, to be merged by hand.
    const std::string hooks = HookInstaller::planInstall("{}", bridge).updatedDocument.value_or("");
    return "Add these hooks to " + settingsPath().string() +
           " (a file without hooks can be exactly this; otherwise add each event to its "
           "\"hooks\"):\n\n" +
           hooks + "\n\nThe bridge script belongs at " + bridge +
           " and must be executable (chmod +x).\n\nThe port and token are not in that entry. "
           "They live in " +
           BridgeConfig::location(folder_).string() +
           ", which Norrow writes and keeps current \u2014 the port can change on any launch. If "
           "you are doing all of this by hand, that file reads:\n\n{\"port\": " +
           std::to_string(port) + ", \"token\": \"" + token + "\"}";
}

std::filesystem::path SetupCoordinator::settingsPath() const {
    return ClaudeFolder::settingsFile(folder_);
}

std::filesystem::path SetupCoordinator::bridgePath() const {
    return norrowFolder() / "bridge";
}

std::string SetupCoordinator::backupStamp(std::chrono::system_clock::time_point time) {
    // The basic form: the extended one without its separators and zone letter.
    std::string stamp = iso8601(std::chrono::floor<std::chrono::seconds>(time));
    std::erase_if(stamp, [](char c) { return c == '-' || c == ':' || c == 'Z'; });
    return stamp;
}

std::filesystem::path SetupCoordinator::norrowFolder() const {
    return folder_ / "norrow";
}

void SetupCoordinator::installBridge() {
    QFile resource(resource_);
    if (!resource.open(QIODevice::ReadOnly)) throw SetupError::bridgeMissingFromBundle();
    const QByteArray script = resource.readAll();
    files_.makeFolders(norrowFolder());
    files_.write(bridgePath(),
                 std::string_view(script.constData(), static_cast<std::size_t>(script.size())));
    files_.setPermissions(bridgePath(), std::filesystem::perms::owner_all);
}

std::filesystem::path SetupCoordinator::writeBackup(const std::string& original) {
    const auto backup = norrowFolder() / ("settings.backup." +
                                          backupStamp(std::chrono::system_clock::now()) + ".json");
    files_.makeFolders(norrowFolder());
    files_.write(backup, original);
    return backup;
}

SetupCoordinator::Outcome SetupCoordinator::edit(std::string original, HookInstaller::Plan plan,
                                                 const Planner& replan,
                                                 const RestoredMessage& restored) {
    for (int attempt = 1;; ++attempt) {
        if (!plan.updatedDocument) return Outcome::alreadyCurrent();
        const auto backup = writeBackup(original);
        const std::string& updated = *plan.updatedDocument;
        try {
            if (files_.replace(settingsPath(), original, updated)) {
                HookInstaller::verify(original, files_.read(settingsPath()));
                return Outcome::installed(backup);
            }
        } catch (const std::exception& e) {
            return recover(original, updated, backup, e.what(), restored);
        }
        if (attempt == editAttempts)
            return Outcome::failed("Your settings.json kept changing while Norrow was editing it, "
                                   "so Norrow left it as it is. Try again once nothing else is "
                                   "saving it.");
        original = files_.read(settingsPath());
        plan = replan(original);
    }
}

SetupCoordinator::Outcome SetupCoordinator::recover(const std::string& original,
                                                    const std::string& updated,
                                                    const std::filesystem::path& backup,
                                                    const std::string& description,
                                                    const RestoredMessage& restored) {
    // A file that cannot be read back is not known to hold Norrow's text.
    std::optional<std::string> now;
    try {
        now = files_.read(settingsPath());
    } catch (const std::exception&) {
    }
    if (now == original)
        return Outcome::failed("Norrow could not change your settings.json, so it is exactly as "
                               "it was (" +
                               description + "). Once that is fixed, try again.");
    if (now == updated) {
        try {
            if (files_.replace(settingsPath(), updated, original))
                return Outcome::failed(restored(description));
        } catch (const std::exception& e) {
            return Outcome::failed(
                "The change did not verify, and your settings.json could not be put back (" +
                std::string(e.what()) + "). Your previous settings.json is backed up at " +
                backup.string() + "; copy it over " + settingsPath().string() +
                " to undo the change.");
        }
    }
    return Outcome::failed("Your settings.json changed while Norrow was editing it, so Norrow left "
                           "it as it is now rather than undo a change it did not make (" +
                           description + "). Your previous settings.json is backed up at " +
                           backup.string() + ". Check the file, then try again.");
}

std::optional<std::string> SetupCoordinator::refusal() const {
    if (auto problem = ClaudeFolder::problem(folder_)) return problem;
    return files_.reasonToLeaveAlone(settingsPath());
}

} // namespace norrow
