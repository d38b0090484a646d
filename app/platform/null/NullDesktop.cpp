#include "app/platform/null/NullDesktop.h"

namespace norrow {

std::optional<std::string> NullDesktop::frontmostApplication() {
    return std::nullopt;
}

std::optional<Desktop::RunningApp> NullDesktop::runningApp(const HookEvent&) {
    return std::nullopt;
}

bool NullDesktop::activate(const RunningApp&) {
    return false;
}

bool NullDesktop::composited() {
    return false;
}

} // namespace norrow
