#include "core/KnownEditors.h"

#include "core/Unicode.h"

#include <algorithm>
#include <string>

namespace norrow::editors {
namespace {

constexpr std::string_view kJetBrainsPrefix = "com.jetbrains.";

constexpr JetBrainsIde kJetBrainsIdes[]{
    {"intellij", "com.jetbrains.intellij", false},
    {"idea", "com.jetbrains.intellij", true},
    {"pycharm", "com.jetbrains.pycharm", true},
    {"webstorm", "com.jetbrains.webstorm", true},
    {"clion", "com.jetbrains.clion", true},
    {"goland", "com.jetbrains.goland", true},
    {"rider", "com.jetbrains.rider", true},
    {"phpstorm", "com.jetbrains.phpstorm", true},
    {"rubymine", "com.jetbrains.rubymine", true},
    {"datagrip", "com.jetbrains.datagrip", true},
    {"rustrover", "com.jetbrains.rustrover", true},
    {"dataspell", "com.jetbrains.dataspell", true},
    {"aqua", "com.jetbrains.aqua", true},
    {"writerside", "com.jetbrains.writerside", true},
};

constexpr std::string_view kJetBrainsPathMarkers[]{"jetbrains", "/jbr/"};

// The bridge's awk lowers case with LC_ALL=C: ASCII letters only, byte by byte.
std::string asciiLowercased(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// A launcher's name is the IDE's word, then optionally "64", then optionally ".sh".
std::string_view launcherStem(std::string_view name) {
    if (name.ends_with(".sh")) name.remove_suffix(3);
    if (name.ends_with("64")) name.remove_suffix(2);
    return name;
}

bool isJetBrainsPath(std::string_view lowerPath, std::string_view name) {
    const auto marked = [lowerPath](std::string_view marker) {
        return contains(lowerPath, marker);
    };
    const auto launches = [stem = launcherStem(name)](const JetBrainsIde& ide) {
        return ide.launcher && ide.word == stem;
    };
    return std::ranges::any_of(kJetBrainsPathMarkers, marked) ||
           std::ranges::any_of(kJetBrainsIdes, launches);
}

const Editor* editorFor(std::string_view lowerIdentifier) {
    for (const Editor& editor : table())
        if (editor.identifier == lowerIdentifier) return &editor;
    return nullptr;
}

} // namespace

const std::vector<Editor>& table() {
    static const std::vector<Editor> editors{
        {"com.microsoft.vscode", {"code"}, "Visual Studio Code.app", "vscode"},
        {"com.microsoft.vscodeinsiders",
         {"code-insiders"},
         "Visual Studio Code - Insiders.app",
         "vscode-insiders"},
        {"com.visualstudio.code.oss", {"codium", "vscodium", "code-oss"}, "VSCodium.app", "vscode"},
        {"com.todesktop.230313mzl4w4u92", {"cursor"}, "Cursor.app", "cursor"},
        {"com.exafunction.windsurf", {"windsurf"}, "Windsurf.app", "windsurf"},
    };
    return editors;
}

std::string applicationFolderInPath(const Editor& editor) {
    return "/" + asciiLowercased(editor.macApplication) + "/";
}

std::span<const JetBrainsIde> jetBrainsIdes() {
    return kJetBrainsIdes;
}

std::span<const std::string_view> jetBrainsPathMarkers() {
    return kJetBrainsPathMarkers;
}

std::optional<std::string_view> identifierForExecutable(std::string_view path) {
    const std::string lower = asciiLowercased(path);
    const std::string_view lowerPath = lower;
    const std::string_view name = lowerPath.substr(lowerPath.rfind('/') + 1);
    for (const Editor& editor : table()) {
        if (std::ranges::find(editor.executables, name) != editor.executables.end() ||
            contains(lowerPath, applicationFolderInPath(editor)))
            return editor.identifier;
    }
    if (!isJetBrainsPath(lowerPath, name)) return std::nullopt;
    for (const JetBrainsIde& ide : kJetBrainsIdes)
        if (contains(lowerPath, ide.word)) return ide.identifier;
    return std::nullopt;
}

bool hasIntegratedTerminal(std::string_view identifier) {
    const std::string lower = unicode::lowercased(identifier);
    return editorFor(lower) != nullptr || lower.starts_with(kJetBrainsPrefix);
}

std::optional<std::string_view> revealScheme(std::string_view identifier) {
    const Editor* editor = editorFor(unicode::lowercased(identifier));
    if (editor == nullptr || editor->revealScheme.empty()) return std::nullopt;
    return editor->revealScheme;
}

} // namespace norrow::editors
