#pragma once

#include "app/platform/Desktop.h"

namespace norrow {

// A desktop that cannot be seen into: no X server (headless, or Wayland without XWayland).
// No application is known to be in front, none is found and none can be raised.
class NullDesktop final : public Desktop {
public:
    std::optional<std::string> frontmostApplication() override;
    std::optional<RunningApp> runningApp(const HookEvent& event) override;
    bool activate(const RunningApp& app) override;
    bool composited() override;
};

} // namespace norrow
