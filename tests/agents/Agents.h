#pragma once

#include "support/NpmPackage.h"

namespace norrow::test::agents {

// The coding agents these tests run, each at the version whose behaviour they pin down.
inline const NpmPackage claudeCode{"@anthropic-ai/claude-code", "2.1.331", "claude"};
inline const NpmPackage* const all[] = {&claudeCode};

} // namespace norrow::test::agents
