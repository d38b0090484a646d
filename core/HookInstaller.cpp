#include "core/HookInstaller.h"

#include "core/Graphemes.h"
#include "core/JSONSplice.h"
#include "core/StrictJson.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <vector>

namespace norrow::HookInstaller {
namespace {

using json = nlohmann::json;

constexpr std::string_view indentUnit = "  ";
constexpr std::array<std::string_view, 7> preferredKeys{"matcher", "hooks",   "type", "command",
                                                        "args",    "timeout", "env"};
// Deeper documents are refused rather than risk exhausting the stack while rendering.
constexpr int maximumDepth = 512;

struct TooDeep {};

// Strict parsing, the last of duplicate keys winning; none when the text is not JSON.
// `hooksMembers`, when given, counts the top-level members named "hooks".
std::optional<json> parseJson(std::string_view text, int* hooksMembers = nullptr) {
    json value =
        StrictJson::parse(text, [hooksMembers](int depth, json::parse_event_t event, json& parsed) {
            if (depth > maximumDepth) throw TooDeep{};
            if (hooksMembers != nullptr && event == json::parse_event_t::key && depth == 1 &&
                parsed == "hooks")
                ++*hooksMembers;
            return true;
        });
    if (value.is_discarded()) return std::nullopt;
    return value;
}

std::optional<json> parseObject(std::string_view document) {
    auto value = parseJson(document);
    if (value && value->is_object()) return value;
    return std::nullopt;
}

// The splice edits the first "hooks" member and Claude Code reads the last, so a document
// with two is refused rather than edited to no effect.
json parseDocument(std::string_view document, const std::string& failure) {
    rejectTrailingCommas(document);
    int hooksMembers = 0;
    auto value = parseJson(document, &hooksMembers);
    if (!value || !value->is_object()) throw InstallError::notJSON(failure);
    if (hooksMembers > 1) throw InstallError::duplicateHooks();
    return std::move(*value);
}

// Numbers are written by their decimal description: integers as integers, doubles in the
// shortest form that reads back as the same double (so 1.0 is "1" and equals 1).
std::string number(const json& value) {
    if (value.is_number_unsigned()) return std::to_string(value.get<std::uint64_t>());
    if (value.is_number_integer()) return std::to_string(value.get<std::int64_t>());
    char text[32];
    const auto result = std::to_chars(std::begin(text), std::end(text), value.get<double>());
    return {text, result.ptr};
}

void write(std::string& out, const json& value, std::optional<std::string_view> indent,
           std::size_t depth);

void writeString(std::string& out, std::string_view text) {
    out += '"';
    out += escape(text);
    out += '"';
}

// Either the hand-formatted layout (`indent`) or the compact one, with the given separator
// after each key.
template <typename Items, typename WriteItem>
void writeContainer(std::string& out, const Items& items, char open, char close,
                    std::optional<std::string_view> indent, std::size_t depth,
                    WriteItem writeItem) {
    out += open;
    if (items.empty()) {
        out += close;
        return;
    }
    bool first = true;
    for (const auto& item : items) {
        if (!first) out += ',';
        first = false;
        if (indent) {
            out += '\n';
            for (std::size_t i = 0; i <= depth; ++i)
                out += *indent;
        }
        writeItem(item);
    }
    if (indent) {
        out += '\n';
        for (std::size_t i = 0; i < depth; ++i)
            out += *indent;
    }
    out += close;
}

void write(std::string& out, const json& value, std::optional<std::string_view> indent,
           std::size_t depth) {
    switch (value.type()) {
    case json::value_t::object: {
        std::vector<const json::object_t::value_type*> members;
        for (const auto& member : value.get_ref<const json::object_t&>())
            members.push_back(&member);
        if (indent)
            std::stable_sort(members.begin(), members.end(), [](const auto* a, const auto* b) {
                return keyOrder(a->first, b->first);
            });
        writeContainer(out, members, '{', '}', indent, depth, [&](const auto* member) {
            writeString(out, member->first);
            out += indent ? ": " : ":";
            write(out, member->second, indent, depth + 1);
        });
        return;
    }
    case json::value_t::array:
        writeContainer(out, value.get_ref<const json::array_t&>(), '[', ']', indent, depth,
                       [&](const json& element) { write(out, element, indent, depth + 1); });
        return;
    case json::value_t::string:
        writeString(out, value.get_ref<const std::string&>());
        return;
    case json::value_t::boolean:
        out += value.get<bool>() ? "true" : "false";
        return;
    case json::value_t::number_integer:
    case json::value_t::number_unsigned:
    case json::value_t::number_float:
        out += number(value);
        return;
    case json::value_t::null:
        out += "null";
        return;
    default:
        throw InstallError::notJSON(std::string("unrenderable value of type ") + value.type_name());
    }
}

// The groups stored under `event`; none unless they form an array of objects.
json groupsOf(const json& hooks, std::string_view event) {
    const auto it = hooks.find(event);
    if (it == hooks.end() || !it->is_array()) return json::array();
    const bool allObjects =
        std::all_of(it->begin(), it->end(), [](const json& g) { return g.is_object(); });
    return allObjects ? *it : json::array();
}

// Ours is a command that is nothing but the path of a bridge script, quoted or not; a longer
// command that merely mentions such a path belongs to another tool.
bool isOwnCommand(std::string_view command) {
    constexpr std::string_view space = " \t\n\r";
    const auto first = command.find_first_not_of(space);
    if (first == std::string_view::npos) return false;
    command = command.substr(first, command.find_last_not_of(space) - first + 1);
    const char quote = command.front();
    if (command.size() >= 2 && (quote == '"' || quote == '\'') && command.back() == quote) {
        command = command.substr(1, command.size() - 2);
        if (command.find(quote) != std::string_view::npos) return false;
    } else if (command.find_first_of(space) != std::string_view::npos) {
        return false;
    }
    return command.ends_with(marker);
}

bool isOwnEntry(const json& entry) {
    if (!entry.is_object()) return false;
    const auto command = entry.find("command");
    return command != entry.end() && command->is_string() &&
           isOwnCommand(command->get_ref<const std::string&>());
}

struct Filtered {
    json groups = json::array();
    int foreign = 0;
    bool removedOwn = false;
};

// The groups without our entries; a group left empty by that is dropped, one that was
// already empty stays as its owner wrote it.
Filtered withoutOwnEntries(const json& groups) {
    Filtered result;
    for (json group : groups) {
        const auto entries = group.find("hooks");
        if (entries == group.end() || !entries->is_array()) {
            result.groups.push_back(std::move(group));
            continue;
        }
        json kept = json::array();
        for (const json& entry : *entries) {
            if (isOwnEntry(entry)) continue;
            kept.push_back(entry);
            ++result.foreign;
        }
        const bool removedHere = kept.size() != entries->size();
        result.removedOwn = result.removedOwn || removedHere;
        if (removedHere && kept.empty()) continue;
        *entries = std::move(kept);
        result.groups.push_back(std::move(group));
    }
    return result;
}

json ownGroup(std::string_view bridgePath) {
    json entry = {{"type", "command"}, {"command", bridgePath}, {"timeout", timeout.count()}};
    return {{"matcher", ""}, {"hooks", json::array({entry})}};
}

} // namespace

InstallError::InstallError(Case kind, const std::string& description)
    : std::runtime_error(description), kind_(kind) {}

InstallError InstallError::unreadable(const std::string& detail) {
    return {Case::unreadable, "cannot read " + detail};
}

InstallError InstallError::notJSON(const std::string& detail) {
    return {Case::notJSON,
            "settings.json is not valid JSON, so it will not be modified: " + detail};
}

InstallError InstallError::verificationFailed(const std::string& detail) {
    return {Case::verificationFailed, "the file was written but failed verification: " + detail};
}

InstallError InstallError::duplicateHooks() {
    return {Case::duplicateHooks,
            "settings.json has more than one top-level \"hooks\" member and Claude Code reads only "
            "the last, so it will not be modified. Merge them into one, then try again."};
}

Plan planInstall(std::string_view document, std::string_view bridgePath) {
    const json root = parseDocument(document, "top level is not a JSON object");
    const auto existing = root.find("hooks");
    json hooks = existing != root.end() && existing->is_object() ? *existing : json::object();
    Plan plan;
    for (const auto event : events) {
        Filtered filtered = withoutOwnEntries(groupsOf(hooks, event));
        plan.foreignHookCount += filtered.foreign;
        filtered.groups.push_back(ownGroup(bridgePath));
        hooks[event] = std::move(filtered.groups);
    }
    const std::string rendered = render(hooks, indentUnit, 1);
    if (const auto member = JSONSplice::find("hooks", document)) {
        const Graphemes characters(document);
        const auto current = characters.slice(member->valueRange.start, member->valueRange.end);
        if (semanticallyEqual(current, rendered)) {
            plan.alreadyCorrect = true;
            return plan;
        }
    }
    plan.updatedDocument = JSONSplice::set("hooks", rendered, document, indentUnit);
    return plan;
}

Plan planRemoval(std::string_view document) {
    const json root = parseDocument(document, "top-level parse failed");
    Plan plan;
    const auto existing = root.find("hooks");
    if (existing == root.end() || !existing->is_object()) {
        plan.alreadyCorrect = true;
        return plan;
    }
    json hooks = *existing;
    bool removedOwn = false;
    for (const auto event : events) {
        if (!hooks.contains(event)) continue;
        Filtered filtered = withoutOwnEntries(groupsOf(hooks, event));
        plan.foreignHookCount += filtered.foreign;
        removedOwn = removedOwn || filtered.removedOwn;
        if (filtered.groups.empty())
            hooks.erase(std::string(event));
        else
            hooks[event] = std::move(filtered.groups);
    }
    if (!removedOwn) {
        plan.alreadyCorrect = true;
        return plan;
    }
    plan.updatedDocument = hooks.empty() ? JSONSplice::remove("hooks", document)
                                         : JSONSplice::set("hooks", render(hooks, indentUnit, 1),
                                                           document, indentUnit);
    return plan;
}

void verify(std::string_view before, std::string_view after) {
    rejectTrailingCommas(before);
    const auto original = parseObject(before);
    if (!original) throw InstallError::verificationFailed("original no longer parses");
    rejectTrailingCommas(after);
    const auto result = parseObject(after);
    if (!result) throw InstallError::verificationFailed("result does not parse");

    const auto sameIn = [](const json& other, const std::string& key, const json& value) {
        const auto it = other.find(key);
        return it != other.end() && canonical(*it) == canonical(value);
    };
    for (const auto& [one, other] :
         {std::pair(&*original, &*result), std::pair(&*result, &*original)})
        for (const auto& [key, value] : one->items())
            if (key != "hooks" && !sameIn(*other, key, value))
                throw InstallError::verificationFailed("a key outside `hooks` changed");
}

void rejectTrailingCommas(std::string_view document) {
    const Graphemes characters(document);
    bool inString = false;
    bool commaPending = false;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        if (inString) {
            if (characters.is(i, '\\'))
                ++i;
            else if (characters.is(i, '"'))
                inString = false;
        } else if (characters.is(i, '"')) {
            inString = true;
            commaPending = false;
        } else if (characters.is(i, ',')) {
            commaPending = true;
        } else if (characters.is(i, '}') || characters.is(i, ']')) {
            if (commaPending)
                throw InstallError::notJSON("trailing comma before '" + std::string(characters[i]) +
                                            "' \u2014 valid to lenient JSON readers but not to "
                                            "the parser Claude Code uses, so this file will not "
                                            "be modified");
        } else if (!characters.isWhitespace(i)) {
            commaPending = false;
        }
    }
}

std::string render(const nlohmann::json& value, std::string_view indent, std::size_t depth) {
    std::string out;
    write(out, value, indent, depth);
    return out;
}

std::string escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char code[8];
                std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c));
                out += code;
            } else {
                out += c;
            }
        }
    }
    return out;
}

bool keyOrder(std::string_view a, std::string_view b) {
    const auto rank = [](std::string_view key) {
        return static_cast<std::size_t>(std::find(preferredKeys.begin(), preferredKeys.end(), key) -
                                        preferredKeys.begin());
    };
    const std::size_t ra = rank(a);
    const std::size_t rb = rank(b);
    if (ra != rb) return ra < rb;
    return ra == preferredKeys.size() && a < b;
}

std::string canonical(const nlohmann::json& value) {
    std::string out;
    write(out, value, std::nullopt, 0);
    return out;
}

bool semanticallyEqual(std::string_view a, std::string_view b) {
    const auto first = parseJson(a);
    const auto second = parseJson(b);
    return first && second && canonical(*first) == canonical(*second);
}

} // namespace norrow::HookInstaller
