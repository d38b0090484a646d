#include "support/MessagesApi.h"

#include "support/Files.h"

#include <fstream>
#include <stdexcept>

namespace norrow::test {
namespace fs = std::filesystem;

MessagesApi::MessagesApi(const nlohmann::json& replies, const fs::path& folder)
    : script_(folder / "api-script.json"), log_(folder / "api-requests.jsonl") {
    script(replies);
    server_ = std::make_unique<Process>(std::vector<std::string>{
        "/usr/bin/python3", NORROW_MESSAGES_API, script_.string(), "--log", log_.string()});
    const auto port = server_->readLine();
    if (!port) throw std::runtime_error("the stand-in API did not start: " + server_->errors());
    port_ = std::stoi(*port);
}

std::string MessagesApi::url() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

void MessagesApi::script(const nlohmann::json& replies) {
    // Renamed into place, so that the server never reads half a script.
    const fs::path partial = script_.string() + ".partial";
    put(partial, replies.dump());
    fs::rename(partial, script_);
}

std::vector<nlohmann::json> MessagesApi::requests() const {
    std::vector<nlohmann::json> all;
    std::ifstream in(log_);
    for (std::string line; std::getline(in, line);)
        all.push_back(nlohmann::json::parse(line, nullptr, false));
    return all;
}

} // namespace norrow::test
