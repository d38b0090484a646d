#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The editors with a built-in terminal that Norrow knows by name: the one table from which
// the app and the bridge script (its awk function bundleFor, written at build time) both
// derive an application's identifier, so the two always agree.
namespace norrow::editors {

struct Editor {
    std::string_view identifier;
    // Names of its executable on Linux, in lower case.
    std::vector<std::string_view> executables;
    // Its application folder on macOS, such as "Cursor.app".
    std::string_view macApplication;
    // The scheme of its links that open a folder, such as "vscode"; empty when it has none.
    std::string_view revealScheme;
};

// JetBrains IDEs share one launcher and runtime layout, so each is told apart by a word in
// its executable's path.
struct JetBrainsIde {
    // Looked for anywhere in the lower-case path.
    std::string_view word;
    std::string_view identifier;
    // Whether the word is also its launcher's name (idea, idea64, idea.sh, idea64.sh).
    bool launcher;
};

// In the order they are tried.
const std::vector<Editor>& table();
// What a lower-case path inside the editor's macOS application holds: "/cursor.app/".
std::string applicationFolderInPath(const Editor& editor);
std::span<const JetBrainsIde> jetBrainsIdes();
// Text of a lower-case path that marks a JetBrains installation or its bundled runtime.
std::span<const std::string_view> jetBrainsPathMarkers();

// The identifier of the editor whose executable this is. Upper and lower case count alike
// for ASCII letters only, as in the bridge's awk run with LC_ALL=C.
std::optional<std::string_view> identifierForExecutable(std::string_view path);

// Whether the identifier, in any case, is an editor with a built-in terminal: one of the
// table or any JetBrains IDE.
bool hasIntegratedTerminal(std::string_view identifier);

// The scheme of the editor's links that open a folder, for an identifier in any case.
std::optional<std::string_view> revealScheme(std::string_view identifier);

} // namespace norrow::editors
