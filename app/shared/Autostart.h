#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace norrow {

// Starting Norrow when the user logs in: Norrow's own entry in the XDG autostart folder on
// Linux, the app registered as a login item with the system's service on macOS. An entry that
// someone changed by hand is never overwritten or removed.
class Autostart {
public:
    enum class State {
        off,
        on,
        // There is an entry, but not as Norrow wrote it.
        editedByHand,
        // macOS: registered, waiting for the user to allow it in the system settings.
        awaitingApproval,
    };

    struct Status {
        State state = State::off;
        // Where the login item lives: the entry's file, or the app bundle on macOS.
        std::filesystem::path location;
        // The program Norrow's own entry starts.
        std::optional<std::filesystem::path> program;
    };

    // What switching on or off did.
    enum class Change { made, alreadySo };

    class AutostartError : public std::runtime_error {
    public:
        enum class Case { editedByHand, programMissing, unusableProgramPath, notInBundle, refused };

        static AutostartError editedByHand(const std::filesystem::path& entry);
        static AutostartError programMissing(const std::filesystem::path& program);
        static AutostartError unusableProgramPath(const std::filesystem::path& program);
        static AutostartError notInBundle();
        static AutostartError refused(const std::string& reason);
        Case kind() const { return kind_; }

    private:
        AutostartError(Case kind, const std::string& description);
        Case kind_;
    };

    // Works on the current user's login items (on Linux, in $XDG_CONFIG_HOME/autostart, else
    // ~/.config/autostart).
    Autostart();

    Status status() const;
    // Makes `program` start at login: on Linux an absolute path, by default the `norrow` beside
    // the running program; on macOS always this app's bundle. What the user can set right
    // throws AutostartError, a failing file system std::runtime_error, both worded for the user.
    Change enable(const std::filesystem::path& program);
    Change disable();

    // The program `enable` starts when none is named.
    static std::filesystem::path defaultProgram();

private:
    std::filesystem::path location_;
};

} // namespace norrow
