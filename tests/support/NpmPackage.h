#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace norrow::test {

// A program published on npm at a pinned version, such as a coding agent.
struct NpmPackage {
    std::string name;    // "@anthropic-ai/claude-code"
    std::string version; // "2.1.331"
    std::string program; // its command in node_modules/.bin, "claude"
};

namespace npm {

enum class InstallError {
    npmMissing,          // there is no npm to install with
    registryUnreachable, // npm could not reach its registry
    failed,              // npm reached it and failed all the same
};

// A fixed description, for a skipped test's reason.
const char* describe(InstallError error);

struct Installation {
    std::filesystem::path program;
    std::optional<InstallError> error;
    std::string output; // what npm printed, when it failed
};

// The package's program, installed into its own folder under `root` unless an earlier call
// did so; npm's cache lives under `root` too. A half-done install never counts as done.
Installation install(const NpmPackage& package, const std::filesystem::path& root);

} // namespace npm
} // namespace norrow::test
