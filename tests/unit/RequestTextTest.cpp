#include "core/RequestText.h"

#include "core/Graphemes.h"
#include "core/Summarizer.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace norrow {
namespace {

std::optional<std::string> described(const std::string& body) {
    const auto event = HookEvent::decode(body);
    return event ? RequestText::describe(*event) : std::nullopt;
}

std::string corpusPayload(const char* name) {
    std::ifstream in(std::filesystem::path(NORROW_CORPUS_DIR) / "hook-payloads" / name,
                     std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(RequestText, SaysWhatTheAgentAsksInItsOwnWords) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {R"({"hook_event_name":"PermissionRequest","tool_name":"AskUserQuestion","tool_input":
            {"questions":[{"question":"Which **database** should I use?","header":"DB","options":
            [{"label":"Postgres","description":"x"},{"label":"SQLite"},{"nolabel":1}]}]}})",
         "Which database should I use? Postgres / SQLite"},
        {R"({"hook_event_name":"PermissionRequest","tool_name":"ExitPlanMode","tool_input":
            {"plan":"\n# Redesign the UI\n\n## Context\nMore."}})",
         "Plan ready for review \u2014 Redesign the UI"},
        {R"({"hook_event_name":"PermissionRequest","tool_name":"ExitPlanMode","tool_input":{}})",
         "Plan ready for review"},
        {R"({"hook_event_name":"PermissionRequest","tool_name":"Bash","tool_input":
            {"command":"npm test\n  && npm run lint","description":"Run the tests"}})",
         "Allow Bash: npm test && npm run lint"},
        {R"({"hook_event_name":"PermissionRequest","tool_name":"Write","tool_input":
            {"content":"x","file_path":"/src/a.cpp"}})",
         "Allow Write: /src/a.cpp"},
        {R"({"hook_event_name":"PermissionRequest","tool_name":"mcp__db__drop","tool_input":
            {"limit":3,"table":"users"}})",
         "Allow mcp__db__drop: users"},
        {R"({"hook_event_name":"PermissionRequest","tool_name":"KillShell"})", "Allow KillShell"},
        {R"({"hook_event_name":"PermissionRequest"})", "Waiting for you"},
        {R"({"hook_event_name":"Elicitation","message":"Pick a *branch* to deploy"})",
         "Pick a branch to deploy"},
        {R"({"hook_event_name":"Elicitation"})", "Waiting for you"},
        {R"({"hook_event_name":"Notification","message":"Claude needs your permission"})",
         std::nullopt},
        {corpusPayload("0063.json"), "Plan ready for review \u2014 CKA Buddy UI Redesign Plan"},
        {corpusPayload("0066.json"), "Allow Bash: rm src/ui/layout.rs && cargo build 2>&1"},
    };
    for (const auto& [body, text] : cases)
        EXPECT_EQ(described(body), text) << body;
}

TEST(RequestText, EveryRealRequestFitsOnePlainLine) {
    int requests = 0;
    for (const auto& entry : std::filesystem::directory_iterator(
             std::filesystem::path(NORROW_CORPUS_DIR) / "hook-payloads")) {
        const auto text = described(corpusPayload(entry.path().filename().c_str()));
        if (!text) continue;
        ++requests;
        EXPECT_LE(Graphemes(*text).size(), std::size_t(Summarizer::maxLength)) << entry.path();
        EXPECT_EQ(text->find('\n'), std::string::npos) << entry.path();
        EXPECT_FALSE(text->empty()) << entry.path();
    }
    EXPECT_GE(requests, 10);
}

} // namespace
} // namespace norrow
