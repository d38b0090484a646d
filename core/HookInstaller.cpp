#include "core/HookInstaller.h"

#include "core/Graphemes.h"
#include "core/JSONSplice.h"
#include "core/StrictJson.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <set>
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

// The keys that the splice could edit to no effect: it edits the first of a name and Claude
// Code reads the last.
struct RepeatedKeys {
    int hooksMembers = 0;
    std::optional<std::string> event;
};

// Strict parsing, the last of duplicate keys winning; none when the text is not JSON.
// `repeated`, when given, learns of repeated "hooks" members and events within them.
std::optional<json> parseJson(std::string_view text, RepeatedKeys* repeated = nullptr) {
    std::string topKey;
    std::set<std::string> events;
    json value = StrictJson::parse(text, [&](int depth, json::parse_event_t event, json& parsed) {
        if (depth > maximumDepth) throw TooDeep{};
        if (repeated == nullptr || event != json::parse_event_t::key) return true;
        if (depth == 1) {
            topKey = parsed.get<std::string>();
            if (topKey == "hooks") ++repeated->hooksMembers;
        } else if (depth == 2 && topKey == "hooks") {
            std::string name = parsed.get<std::string>();
            if (!events.insert(name).second) repeated->event = std::move(name);
        }
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

json parseDocument(std::string_view document, const std::string& failure) {
    rejectTrailingCommas(document);
    RepeatedKeys repeated;
    auto value = parseJson(document, &repeated);
    if (!value || !value->is_object()) throw InstallError::notJSON(failure);
    if (repeated.hooksMembers > 1) throw InstallError::duplicateHooks();
    if (repeated.event) throw InstallError::duplicateEvent(*repeated.event);
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

// The groups stored under an event; none unless they form an array of objects.
const json* groupList(const json& groups) {
    const bool allObjects =
        groups.is_array() &&
        std::all_of(groups.begin(), groups.end(), [](const json& g) { return g.is_object(); });
    return allObjects ? &groups : nullptr;
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

json ownGroup(const EventHook& hook, std::string_view bridgePath) {
    json entry = {{"type", "command"}, {"command", bridgePath}, {"timeout", hook.timeout.count()}};
    return {{"matcher", hook.matcher}, {"hooks", json::array({entry})}};
}

const EventHook* eventHook(std::string_view event) {
    const auto it = std::find_if(eventHooks.begin(), eventHooks.end(),
                                 [event](const EventHook& hook) { return hook.event == event; });
    return it != eventHooks.end() ? &*it : nullptr;
}

// One event's groups as they stand with regard to our entries.
struct EventGroups {
    // The groups without our entries: a group left empty by that is dropped, one that was
    // already empty stays as its owner wrote it.
    json others = json::array();
    // The places of the groups that held nothing but our entries.
    std::vector<std::size_t> ownGroups;
    // Some group holds our entries beside another tool's.
    bool shared = false;
    int ownEntries = 0;
    int foreignEntries = 0;
    // Exactly the `wanted` group's entry and matcher are there, or, with nothing wanted,
    // nothing of ours.
    bool current = false;
};

// A group without a matcher runs for every tool, as one with "" does.
json matcherOf(const json& group) {
    const auto matcher = group.find("matcher");
    return matcher != group.end() ? *matcher : json("");
}

EventGroups sortGroups(const json& groups, const json* wanted) {
    EventGroups result;
    const std::string wantedEntry = wanted ? canonical((*wanted)["hooks"][0]) : std::string();
    bool holdsWanted = false;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        json group = groups[i];
        const auto entries = group.find("hooks");
        if (entries == group.end() || !entries->is_array()) {
            result.others.push_back(std::move(group));
            continue;
        }
        json kept = json::array();
        for (const json& entry : *entries) {
            if (!isOwnEntry(entry)) {
                kept.push_back(entry);
                ++result.foreignEntries;
                continue;
            }
            ++result.ownEntries;
            holdsWanted = holdsWanted || (wanted && matcherOf(group) == (*wanted)["matcher"] &&
                                          canonical(entry) == wantedEntry);
        }
        if (kept.size() == entries->size()) {
            result.others.push_back(std::move(group));
        } else if (kept.empty()) {
            result.ownGroups.push_back(i);
        } else {
            result.shared = true;
            *entries = std::move(kept);
            result.others.push_back(std::move(group));
        }
    }
    result.current = wanted ? result.ownEntries == 1 && holdsWanted : result.ownEntries == 0;
    return result;
}

// Edits of the event arrays inside "hooks", each one spliced into the document on its own.
class HooksText {
public:
    explicit HooksText(std::string_view document) : text_(document) {}

    const std::string& text() const { return text_; }
    bool changed() const { return changed_; }

    // Replaces the event's array with `groups`, or adds the event after the others.
    void write(std::string_view event, const json& groups) {
        edit(JSONSplice::set({"hooks", event}, render(groups, indentUnit, 2), text_, indentUnit));
    }
    void append(std::string_view event, std::size_t place, const json& group) {
        edit(JSONSplice::set({"hooks", event, place}, render(group, indentUnit, 3), text_,
                             indentUnit));
    }

    // Takes our entries out of the event. Other tools' groups keep their bytes unless one of
    // them held an entry of ours, which rewrites the array.
    void takeOutOwn(std::string_view event, const EventGroups& groups) {
        if (groups.shared) {
            write(event, groups.others);
            return;
        }
        for (auto place = groups.ownGroups.rbegin(); place != groups.ownGroups.rend(); ++place)
            remove({"hooks", event, *place});
    }

    // The same, taking the event too when nothing else is left in it.
    void removeOwn(std::string_view event, const EventGroups& groups) {
        if (groups.others.empty())
            remove({"hooks", event});
        else
            takeOutOwn(event, groups);
    }

private:
    void remove(const JSONSplice::Path& path) { edit(JSONSplice::remove(path, text_)); }
    void edit(std::string text) {
        text_ = std::move(text);
        changed_ = true;
    }

    std::string text_;
    bool changed_ = false;
};

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

InstallError InstallError::duplicateEvent(const std::string& event) {
    return {Case::duplicateEvent,
            "settings.json lists the hook event " + event +
                " more than once and Claude Code reads only the last, so it will not be "
                "modified. Merge them into one, then try again."};
}

Plan planInstall(std::string_view document, std::string_view bridgePath) {
    const json root = parseDocument(document, "top level is not a JSON object");
    const auto existing = root.find("hooks");
    const bool hasHooks = existing != root.end() && existing->is_object();
    HooksText text(hasHooks ? document : JSONSplice::set({"hooks"}, "{}", document, indentUnit));
    const json hooks = hasHooks ? *existing : json::object();
    Plan plan;
    for (const EventHook& hook : eventHooks) {
        const json group = ownGroup(hook, bridgePath);
        const auto it = hooks.find(hook.event);
        const json* groups = it != hooks.end() ? groupList(*it) : nullptr;
        const EventGroups sorted = groups != nullptr ? sortGroups(*groups, &group) : EventGroups{};
        plan.foreignHookCount += sorted.foreignEntries;
        if (sorted.current) continue;
        if (sorted.others.empty()) {
            text.write(hook.event, json::array({group}));
            continue;
        }
        text.takeOutOwn(hook.event, sorted);
        text.append(hook.event, sorted.others.size(), group);
    }
    // Events an earlier Norrow registered that it no longer needs.
    for (const auto& [event, value] : hooks.items()) {
        const json* groups = eventHook(event) == nullptr ? groupList(value) : nullptr;
        if (groups == nullptr) continue;
        const EventGroups sorted = sortGroups(*groups, nullptr);
        if (!sorted.current) text.removeOwn(event, sorted);
    }
    plan.alreadyCorrect = hasHooks && !text.changed();
    if (!plan.alreadyCorrect) plan.updatedDocument = text.text();
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
    HooksText text(document);
    std::size_t emptied = 0;
    for (const auto& [event, value] : existing->items()) {
        const json* groups = groupList(value);
        if (groups == nullptr) continue;
        const EventGroups sorted = sortGroups(*groups, nullptr);
        if (eventHook(event) != nullptr) plan.foreignHookCount += sorted.foreignEntries;
        if (sorted.current) continue;
        if (sorted.others.empty()) ++emptied;
        text.removeOwn(event, sorted);
    }
    if (!text.changed()) {
        plan.alreadyCorrect = true;
        return plan;
    }
    // A "hooks" left with no events goes as a whole.
    plan.updatedDocument =
        emptied == existing->size() ? JSONSplice::remove({"hooks"}, document) : text.text();
    return plan;
}

Status status(std::string_view document, std::string_view bridgePath) {
    const json root = parseDocument(document, "top level is not a JSON object");
    const auto hooks = root.find("hooks");
    const bool holdsOwn =
        hooks != root.end() && hooks->is_object() &&
        std::any_of(hooks->begin(), hooks->end(), [](const json& value) {
            const json* groups = groupList(value);
            return groups != nullptr && sortGroups(*groups, nullptr).ownEntries > 0;
        });
    if (!holdsOwn) return Status::notInstalled;
    return planInstall(document, bridgePath).alreadyCorrect ? Status::current : Status::outOfDate;
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

} // namespace norrow::HookInstaller
