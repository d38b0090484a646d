#include "core/RequestText.h"

#include "core/MarkdownStripper.h"
#include "core/Summarizer.h"
#include "core/Unicode.h"

#include <array>
#include <string_view>

namespace norrow::RequestText {
namespace {

using json = nlohmann::json;

constexpr std::string_view kPlanReady = "Plan ready for review";
constexpr std::string_view kWaiting = "Waiting for you";

// The members of a tool's input that say best what it will do, most telling first.
constexpr std::array<const char*, 9> kTargets{"command", "file_path",   "notebook_path",
                                              "url",     "query",       "pattern",
                                              "path",    "description", "prompt"};

// One line: every run of white space or control characters becomes one space, and none
// is left at either end.
std::string oneLine(std::string_view text) {
    std::string out;
    bool gap = false;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t length = 0;
        const char32_t c = unicode::decode(text, at, length);
        at += length;
        if (unicode::isWhitespace(c) || c < 0x20 || (c >= 0x7F && c < 0xA0)) {
            gap = !out.empty();
            continue;
        }
        if (gap) out += ' ';
        gap = false;
        unicode::append(out, c);
    }
    return out;
}

// Markdown as the user reads it: the first paragraph or heading, cleaned.
std::string firstBlock(std::string_view markdown) {
    for (const std::string& block : MarkdownStripper::rawBlocks(markdown))
        if (std::string cleaned = MarkdownStripper::inlineText(block); !cleaned.empty())
            return oneLine(cleaned);
    return {};
}

std::string member(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

// "Which database should I use? Postgres / SQLite": the first question and its options.
std::string question(const json& input) {
    const auto questions = input.find("questions");
    if (questions == input.end() || !questions->is_array() || questions->empty() ||
        !questions->front().is_object())
        return {};
    const json& first = questions->front();
    std::string text = firstBlock(member(first, "question"));
    std::string choices;
    if (const auto options = first.find("options"); options != first.end() && options->is_array())
        for (const json& option : *options) {
            const std::string choice =
                oneLine(option.is_object() ? member(option, "label") : std::string());
            if (choice.empty()) continue;
            if (!choices.empty()) choices += " / ";
            choices += choice;
        }
    if (!text.empty() && !choices.empty()) text += ' ';
    return text + choices;
}

std::string plan(const json& input) {
    const std::string first = firstBlock(member(input, "plan"));
    return first.empty() ? std::string(kPlanReady) : std::string(kPlanReady) + " \u2014 " + first;
}

// What a tool will act on: the most telling of its known members, else its first text.
std::string target(const json& input) {
    for (const char* key : kTargets)
        if (std::string found = oneLine(member(input, key)); !found.empty()) return found;
    for (const auto& [key, value] : input.items())
        if (value.is_string())
            if (std::string found = oneLine(value.get<std::string>()); !found.empty()) return found;
    return {};
}

std::string permission(const HookEvent& event) {
    static const json empty = json::object();
    const json& input = event.toolInput ? *event.toolInput : empty;
    const std::string tool = oneLine(event.toolName.value_or(std::string()));
    if (tool == "AskUserQuestion")
        if (std::string asked = question(input); !asked.empty()) return asked;
    if (tool == "ExitPlanMode") return plan(input);
    if (tool.empty()) return std::string(kWaiting);
    const std::string what = target(input);
    return "Allow " + tool + (what.empty() ? std::string() : ": " + what);
}

} // namespace

std::optional<std::string> whole(const HookEvent& event) {
    std::string text;
    if (event.hookEventName == HookEvent::Name::permissionRequest)
        text = permission(event);
    else if (event.hookEventName == HookEvent::Name::elicitation)
        text = firstBlock(event.message.value_or(std::string()));
    else
        return std::nullopt;
    if (text.empty()) text = kWaiting;
    return text;
}

std::optional<std::string> describe(const HookEvent& event) {
    auto text = whole(event);
    if (text) *text = Summarizer::truncate(*text, Summarizer::maxLength);
    return text;
}

} // namespace norrow::RequestText
