#pragma once

#include "support/Process.h"

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

namespace norrow::test {

// A stand-in for the Anthropic Messages API on 127.0.0.1 (messages_api.py), answering from a
// script of replies; that file's comment describes the script. Stopped by the destructor.
class MessagesApi {
public:
    // Its files (script, request log) go into `folder`; throws when it does not start.
    MessagesApi(const nlohmann::json& script, const std::filesystem::path& folder);
    MessagesApi(const MessagesApi&) = delete;
    MessagesApi& operator=(const MessagesApi&) = delete;

    // Such as "http://127.0.0.1:40123".
    std::string url() const;
    // Replaces the script; the next request is answered from the new one.
    void script(const nlohmann::json& replies);
    // Every request so far, oldest first, one object each: its path, whether it was taken as
    // the conversation, the reply's kind, the last user message's text and the text of each
    // tool result in it ("tool_results").
    std::vector<nlohmann::json> requests() const;

private:
    std::filesystem::path script_;
    std::filesystem::path log_;
    std::unique_ptr<Process> server_;
    int port_ = 0;
};

} // namespace norrow::test
