#include "core/Files.h"
#include "core/KnownEditors.h"
#include "support/Process.h"

#include <gtest/gtest.h>
#include <sstream>

namespace norrow {
namespace {

// The awk function bundleFor as the built bridge script carries it.
std::string bridgeBundleFor() {
    const std::string script = files::read(NORROW_BINARY_DIR "/app/norrow-bridge").value_or("");
    const auto start = script.find("\nfunction bundleFor(");
    const auto end = script.find("\n}\n", start);
    if (start == std::string::npos || end == std::string::npos) return {};
    return script.substr(start + 1, end + 2 - start);
}

// The script and the app must name the same editor for every executable, or "frontmost at
// start" and "frontmost now" stop comparing like with like.
TEST(BridgeEditorsTest, TheScriptAndTheAppNameTheSameEditor) {
    const std::pair<std::string, std::string> executables[] = {
        {"code", "com.microsoft.vscode"},
        {"/usr/share/code/code", "com.microsoft.vscode"},
        {"/usr/bin/CODE", "com.microsoft.vscode"},
        {"/usr/share/code-insiders/code-insiders", "com.microsoft.vscodeinsiders"},
        {"/usr/bin/codium", "com.visualstudio.code.oss"},
        {"/usr/lib/code-oss/code-oss", "com.visualstudio.code.oss"},
        {"/opt/Cursor/cursor", "com.todesktop.230313mzl4w4u92"},
        {"/usr/share/windsurf/windsurf", "com.exafunction.windsurf"},
        {"/Applications/Visual Studio Code.app/Contents/MacOS/Electron", "com.microsoft.vscode"},
        {"/Applications/Visual Studio Code.app/Contents/Frameworks/Code Helper.app/Contents/"
         "MacOS/Code Helper",
         "com.microsoft.vscode"},
        {"/Applications/Visual Studio Code - Insiders.app/Contents/MacOS/Electron",
         "com.microsoft.vscodeinsiders"},
        {"/Applications/VSCodium.app/Contents/MacOS/Electron", "com.visualstudio.code.oss"},
        {"/Applications/Cursor.app/Contents/MacOS/Cursor", "com.todesktop.230313mzl4w4u92"},
        {"/Applications/Windsurf.app/Contents/MacOS/Electron", "com.exafunction.windsurf"},
        {"/opt/idea-IU-241/bin/idea.sh", "com.jetbrains.intellij"},
        {"/home/a/.local/share/JetBrains/Toolbox/apps/intellij-idea-ultimate/bin/idea64",
         "com.jetbrains.intellij"},
        {"/opt/pycharm-2024.1/jbr/bin/java", "com.jetbrains.pycharm"},
        {"/Applications/PyCharm.app/Contents/MacOS/pycharm", "com.jetbrains.pycharm"},
        {"/snap/goland/123/jbr/bin/java", "com.jetbrains.goland"},
        {"/usr/local/bin/rider64.sh", "com.jetbrains.rider"},
        {"/opt/jbr/bin/java", ""},
        {"/home/rider/bin/zsh", ""},
        {"/usr/bin/java", ""},
        {"/usr/bin/xterm", ""},
        {"/usr/bin/gnome-terminal-server", ""},
        {"/usr/bin/codex", ""},
        {"/Applications/iTerm.app/Contents/MacOS/iTerm2", ""},
        {"", ""},
    };
    std::string input;
    for (const auto& [path, identifier] : executables) {
        EXPECT_EQ(editors::identifierForExecutable(path).value_or(""), identifier) << path;
        input += path + "\n";
    }

    const std::string function = bridgeBundleFor();
    ASSERT_FALSE(function.empty());
    const auto awk =
        test::run({"awk", function + "{ print bundleFor($0) }\n"}, input, {{"LC_ALL", "C"}});
    ASSERT_EQ(awk.status, 0) << awk.err;
    std::istringstream answers(awk.out);
    for (const auto& [path, identifier] : executables) {
        std::string answer;
        std::getline(answers, answer);
        EXPECT_EQ(answer, identifier) << path;
    }
}

} // namespace
} // namespace norrow
