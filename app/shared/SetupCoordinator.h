#pragma once

#include "app/shared/FileSystem.h"
#include "app/shared/Settings.h"
#include "core/HookInstaller.h"

#include <QString>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace norrow {

// Connects Claude Code to the app: installs the bridge script and its configuration, and
// rewrites the "hooks" member of settings.json with a backup first, a read-back verification
// after, and the original text put back when that fails. Another program's change to the
// file is never overwritten or undone. Also undoes all of it.
class SetupCoordinator {
public:
    struct Outcome {
        enum class Kind { installed, alreadyCurrent, failed, cancelled };

        Kind kind = Kind::cancelled;
        // installed: the backup of the replaced settings.json, when one was needed.
        std::optional<std::filesystem::path> backup;
        // failed: what to tell the user.
        std::string message;

        static Outcome installed(std::optional<std::filesystem::path> backup) {
            return {Kind::installed, std::move(backup), {}};
        }
        static Outcome alreadyCurrent() { return {Kind::alreadyCurrent, std::nullopt, {}}; }
        static Outcome failed(std::string message) {
            return {Kind::failed, std::nullopt, std::move(message)};
        }
        static Outcome cancelled() { return {Kind::cancelled, std::nullopt, {}}; }

        bool operator==(const Outcome&) const = default;
    };

    class SetupError : public std::runtime_error {
    public:
        enum class Case { bridgeMissingFromBundle };

        static SetupError bridgeMissingFromBundle();
        Case kind() const { return kind_; }

    private:
        SetupError(Case kind, const std::string& description);
        Case kind_;
    };

    // The bridge script as this build carries it.
    static constexpr const char* bridgeResource = ":/norrow-bridge";

    // Works on `claudeFolder` (normally ClaudeFolder::url) through `files` (the machine's own
    // files when null); `resource` names the bridge script to install.
    SetupCoordinator(Settings& settings, std::filesystem::path claudeFolder,
                     FileSystem* files = nullptr, QString resource = bridgeResource);
    SetupCoordinator(const SetupCoordinator&) = delete;
    SetupCoordinator& operator=(const SetupCoordinator&) = delete;

    Outcome install(std::uint16_t port, const std::string& token);
    Outcome uninstall();
    // Whether settings.json holds the hooks this version writes, older ones, or none (also when
    // it cannot be read).
    HookInstaller::Status status() const;
    // Set-up steps for doing by hand, with the port and token.
    std::string manualInstructions(std::uint16_t port, const std::string& token) const;

    const std::filesystem::path& claudeFolder() const { return folder_; }
    std::filesystem::path settingsPath() const;
    std::filesystem::path bridgePath() const;

    // UTC, basic ISO 8601 without a time zone, as in 20261116T072946.
    static std::string backupStamp(std::chrono::system_clock::time_point time);

private:
    using Planner = std::function<HookInstaller::Plan(const std::string& document)>;
    // The failure message for a change that did not verify and was undone.
    using RestoredMessage = std::function<std::string(const std::string& description)>;

    // Why settings.json must not be touched at all, for the user; none when it may be.
    std::optional<std::string> refusal() const;
    std::filesystem::path norrowFolder() const;
    void installBridge();
    std::filesystem::path writeBackup(const std::string& original);
    // Writes `plan`'s change to `original` and verifies it. When another program saved
    // settings.json in the meantime, plans again with `replan` on what it saved.
    Outcome edit(std::string original, HookInstaller::Plan plan, const Planner& replan,
                 const RestoredMessage& restored);
    // After a failed write or verification: puts `original` back, but only over the text
    // Norrow itself wrote, never over another program's.
    Outcome recover(const std::string& original, const std::string& updated,
                    const std::filesystem::path& backup, const std::string& description,
                    const RestoredMessage& restored);

    Settings& settings_;
    std::filesystem::path folder_;
    LocalFileSystem local_;
    FileSystem& files_;
    QString resource_;
};

} // namespace norrow
