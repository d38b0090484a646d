#pragma once

#include "app/platform/Desktop.h"

namespace norrow {

// The macOS desktop, through NSWorkspace and NSRunningApplication. An application's identity
// is its bundle identifier, else its executable's path, as the bridge reports it. Main thread
// only.
class MacDesktop final : public Desktop {
public:
    std::optional<std::string> frontmostApplication() override;
    std::optional<RunningApp> runningApp(const HookEvent& event) override;
    bool activate(const RunningApp& app) override;
    bool composited() override;
};

} // namespace norrow
