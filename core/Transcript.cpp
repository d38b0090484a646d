#include "core/Transcript.h"

#include "core/Files.h"
#include "core/StrictJson.h"
#include "core/Unicode.h"

#include <string>

namespace norrow::Transcript {
namespace {

using json = nlohmann::json;

// The input of the last call of `tool` in one record, when it has one.
std::optional<json> toolInput(std::string_view line, std::string_view tool) {
    const json record = StrictJson::parse(unicode::toValidUtf8(line));
    const json* content = nullptr;
    // The agent's own records; copies sent back to the API later carry emptied inputs.
    if (record.is_object() && record.value("type", "") == "assistant")
        if (const auto message = record.find("message");
            message != record.end() && message->is_object())
            if (const auto found = message->find("content");
                found != message->end() && found->is_array())
                content = &*found;
    if (!content) return std::nullopt;
    for (auto block = content->rbegin(); block != content->rend(); ++block)
        if (block->is_object() && block->value("type", "") == "tool_use" &&
            block->value("name", "") == tool)
            if (const auto input = block->find("input");
                input != block->end() && input->is_object())
                return *input;
    return std::nullopt;
}

} // namespace

std::optional<json> lastToolInput(const std::filesystem::path& transcript, std::string_view tool) {
    const auto tail = files::readPart(transcript, tailLimit, true);
    if (!tail) return std::nullopt;
    // Most lines do not name the tool at all and need no parsing.
    const std::string quoted = "\"" + std::string(tool) + "\"";
    std::string_view rest = *tail;
    while (!rest.empty()) {
        const std::size_t start = rest.find_last_of('\n', rest.size() - 1);
        const std::string_view line =
            start == std::string_view::npos ? rest : rest.substr(start + 1);
        if (line.find(quoted) != std::string_view::npos)
            if (auto input = toolInput(line, tool)) return input;
        rest = start == std::string_view::npos ? std::string_view() : rest.substr(0, start);
    }
    return std::nullopt;
}

void completePlanRequest(HookEvent& event) {
    if (event.hookEventName != HookEvent::Name::permissionRequest ||
        event.toolName != "ExitPlanMode" || !event.transcriptPath ||
        (event.toolInput && event.toolInput->contains("plan")))
        return;
    if (auto input = lastToolInput(*event.transcriptPath, "ExitPlanMode"))
        event.toolInput = std::move(*input);
}

} // namespace norrow::Transcript
