#include "app/shared/Autostart.h"

namespace norrow {

Autostart::AutostartError::AutostartError(Case kind, const std::string& description)
    : std::runtime_error(description), kind_(kind) {}

Autostart::AutostartError
Autostart::AutostartError::editedByHand(const std::filesystem::path& entry) {
    return {Case::editedByHand,
            entry.string() +
                " was changed by hand, so Norrow leaves it as it is. Edit or delete it yourself; "
                "once it is gone, `norrowctl autostart on` writes Norrow's own."};
}

Autostart::AutostartError
Autostart::AutostartError::programMissing(const std::filesystem::path& program) {
    return {Case::programMissing, "no program to start at login at " + program.string() +
                                      "; install Norrow, or name its program with --program PATH"};
}

Autostart::AutostartError
Autostart::AutostartError::unusableProgramPath(const std::filesystem::path& program) {
    return {Case::unusableProgramPath,
            "a login entry needs the program's absolute path on one line, not: " +
                program.string()};
}

Autostart::AutostartError Autostart::AutostartError::notInBundle() {
    return {Case::notInBundle,
            "starting at login registers Norrow.app, so run the norrowctl inside it: "
            "/Applications/Norrow.app/Contents/MacOS/norrowctl autostart on"};
}

Autostart::AutostartError Autostart::AutostartError::refused(const std::string& reason) {
    return {Case::refused, "the system refused the login item: " + reason};
}

} // namespace norrow
