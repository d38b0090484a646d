#include "core/SessionNames.h"

#include "core/Files.h"
#include "core/Graphemes.h"
#include "core/StrictJson.h"
#include "core/Unicode.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <system_error>

namespace norrow {
namespace {

// A CR LF pair is one character and no line feed, so only a line feed on its own ends a line.
std::size_t nextLineEnd(std::string_view text, std::size_t from) {
    for (std::size_t at = text.find('\n', from); at != std::string_view::npos;
         at = text.find('\n', at + 1)) {
        if (at == 0 || text[at - 1] != '\r') return at;
    }
    return text.size();
}

// The non-empty string member "cwd" of a line holding a JSON object.
std::optional<std::string> cwdOf(std::string_view line) {
    // Any spelling of the key shows plainly or escapes one of its letters; most long lines of a
    // transcript have neither and need no parsing.
    constexpr std::string_view spellings[] = {R"("cwd")", R"(\u0063)", R"(\u0077)", R"(\u0064)"};
    if (std::none_of(std::begin(spellings), std::end(spellings), [&](std::string_view spelling) {
            return line.find(spelling) != std::string_view::npos;
        }))
        return std::nullopt;
    const auto value = StrictJson::parse(unicode::toValidUtf8(line));
    if (!value.is_object()) return std::nullopt;
    const auto cwd = value.find("cwd");
    if (cwd == value.end() || !cwd->is_string() || cwd->get_ref<const std::string&>().empty())
        return std::nullopt;
    return cwd->get<std::string>();
}

} // namespace

void SessionNames::remember(const HookEvent& event) {
    if (!event.sessionId) return;
    if (auto name = event.projectName())
        cache_.insert_or_assign(*event.sessionId, std::move(*name));
    if (event.sessionTitle && !event.sessionTitle->empty())
        titles_.insert_or_assign(*event.sessionId, *event.sessionTitle);
}

std::optional<std::string> SessionNames::projectName(const std::string& id,
                                                     const std::filesystem::path& projectsFolder) {
    if (const auto known = cache_.find(id); known != cache_.end()) return known->second;
    // The folder's last component names the project, as it does for an event's cwd.
    HookEvent located(HookEvent::Name::stop);
    located.cwd = findCWD(id, projectsFolder);
    auto name = located.projectName();
    if (name) cache_.emplace(id, *name);
    return name;
}

std::string SessionNames::displayName(const std::string& id,
                                      const std::filesystem::path& projectsFolder) {
    if (const auto title = titles_.find(id); title != titles_.end()) return title->second;
    if (auto name = projectName(id, projectsFolder)) return std::move(*name);
    const Graphemes characters(id);
    return std::string(characters.slice(0, std::min(fallbackLength, characters.size())));
}

std::optional<std::string> SessionNames::findCWD(const std::string& id,
                                                 const std::filesystem::path& projectsFolder) {
    const std::string transcriptName = id + ".jsonl";
    std::error_code error;
    for (std::filesystem::directory_iterator it(projectsFolder, error), end; !error && it != end;
         it.increment(error)) {
        const auto transcript = it->path() / transcriptName;
        std::error_code missing;
        if (std::filesystem::exists(transcript, missing)) return firstCWD(transcript);
    }
    return std::nullopt;
}

std::optional<std::string> SessionNames::firstCWD(const std::filesystem::path& transcript) {
    const auto text = files::readPrefix(transcript, readLimit);
    if (!text) return std::nullopt;
    std::size_t examined = 0;
    for (std::size_t start = 0; start < text->size() && examined < lineLimit;) {
        const std::size_t end = nextLineEnd(*text, start);
        const std::string_view line = std::string_view(*text).substr(start, end - start);
        start = end + 1;
        if (line.empty()) continue;
        ++examined;
        if (auto cwd = cwdOf(line)) return cwd;
    }
    return std::nullopt;
}

std::filesystem::path SessionNames::projectsFolder(const std::filesystem::path& claudeFolder) {
    return claudeFolder / "projects";
}

} // namespace norrow
