#include "support/NorrowServer.h"

#include "support/Files.h"

#include <stdexcept>

namespace norrow::test {

NorrowServer::NorrowServer(const AgentSession& session, const std::vector<std::string>& settings)
    : claudeFolder_(session.claudeFolder()), environment_{{"HOME", session.home().string()},
                                                          {"XDG_CONFIG_HOME",
                                                           (session.home() / ".config").string()}} {
    std::string file = "[General]\n";
    for (const auto& line : settings)
        file += line + "\n";
    put(session.home() / ".config" / "qelvane" / "Norrow.conf", file);

    // A token of its own keeps the desktop's secret store out of it.
    serve_ = std::make_unique<Process>(
        std::vector<std::string>{NORROWCTL, "serve", "--port", "0", "--token", "agent-test-token",
                                 "--claude-folder", claudeFolder_.string()},
        environment_);
    const auto listening = serve_->readLine(std::chrono::seconds(20));
    if (!listening || listening->rfind("listening on 127.0.0.1:", 0) != 0)
        throw std::runtime_error("norrowctl serve did not start: " + serve_->errors());
    const auto installed = norrowctl({"hooks", "install"});
    if (installed.status != 0)
        throw std::runtime_error("norrowctl hooks install failed: " + installed.err);
}

std::optional<std::string> NorrowServer::nextLine(std::chrono::milliseconds timeout) {
    return serve_->readLine(timeout);
}

Finished NorrowServer::norrowctl(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), NORROWCTL);
    arguments.insert(arguments.end(), {"--claude-folder", claudeFolder_.string()});
    return run(arguments, {}, environment_);
}

} // namespace norrow::test
