#include "support/NpmPackage.h"

#include "support/Process.h"

#include <array>
#include <system_error>
#include <unistd.h>

namespace norrow::test::npm {
namespace fs = std::filesystem;

namespace {

// npm's error codes for a registry it could not talk to at all.
bool unreachable(const std::string& output) {
    constexpr std::array codes = {"ENOTFOUND",    "EAI_AGAIN",       "ECONNREFUSED",
                                  "ECONNRESET",   "ETIMEDOUT",       "ENETUNREACH",
                                  "EHOSTUNREACH", "ESOCKETTIMEDOUT", "ERR_SOCKET_TIMEOUT"};
    for (const char* code : codes)
        if (output.find(code) != std::string::npos) return true;
    return false;
}

} // namespace

const char* describe(InstallError error) {
    switch (error) {
    case InstallError::npmMissing:
        return "npm is not installed";
    case InstallError::registryUnreachable:
        return "the npm registry is unreachable";
    case InstallError::failed:
        return "npm install failed";
    }
    return "";
}

Installation install(const NpmPackage& package, const fs::path& root) {
    const fs::path folder = root / (package.name + "@" + package.version);
    const fs::path program = folder / "node_modules/.bin" / package.program;
    if (fs::exists(program)) return {program, std::nullopt, {}};
    if (run({"sh", "-c", "command -v npm"}).status != 0) return {{}, InstallError::npmMissing, {}};

    // Into a folder of its own first, then renamed: a reader sees no install or a whole one.
    const fs::path partial = folder.string() + ".partial-" + std::to_string(::getpid());
    std::error_code ignored;
    fs::remove_all(partial, ignored);
    fs::create_directories(partial);
    const auto npm = run({"npm", "install", "--prefix", partial.string(), "--no-audit", "--no-fund",
                          "--no-save", "--loglevel=error", "--fetch-retries=1",
                          "--fetch-timeout=30000", package.name + "@" + package.version},
                         {},
                         {{"npm_config_cache", (root / "npm-cache").string()},
                          {"npm_config_update_notifier", "false"}});
    if (npm.status != 0) {
        fs::remove_all(partial, ignored);
        const std::string output = npm.out + npm.err;
        return {{},
                unreachable(output) ? InstallError::registryUnreachable : InstallError::failed,
                output};
    }
    fs::rename(partial, folder, ignored);
    fs::remove_all(partial, ignored); // another process renamed its install first
    return {program, std::nullopt, {}};
}

} // namespace norrow::test::npm
