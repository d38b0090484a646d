#include "core/KnownEditors.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

TEST(KnownEditorsTest, RevealSchemes) {
    const std::pair<const char*, std::optional<std::string_view>> hosts[] = {
        {"com.todesktop.230313mzl4w4u92", "cursor"},
        {"com.exafunction.windsurf", "windsurf"},
        {"com.microsoft.vscodeinsiders", "vscode-insiders"},
        {"com.microsoft.vscode", "vscode"},
        {"Com.Microsoft.VSCode", "vscode"},
        {"com.visualstudio.code.oss", "vscode"},
        {"com.microsoft.vscode.helper", std::nullopt},
        {"com.jetbrains.pycharm", std::nullopt},
        {"com.apple.Terminal", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [host, scheme] : hosts)
        EXPECT_EQ(editors::revealScheme(host), scheme) << host;
}

TEST(KnownEditorsTest, IntegratedTerminals) {
    const std::pair<const char*, bool> identifiers[] = {
        {"COM.VISUALSTUDIO.CODE.OSS", true},
        {"com.exafunction.windsurf", true},
        {"Com.JetBrains.Rider", true},
        {"com.jetbrains.fleet", true},
        {"com.jetbrains", false},
        {"com.microsoft.vscode2", false},
        {"com.apple.Terminal", false},
        {"/usr/bin/xterm", false},
        {"", false},
    };
    for (const auto& [identifier, integrated] : identifiers)
        EXPECT_EQ(editors::hasIntegratedTerminal(identifier), integrated) << identifier;

    // Whatever an executable is mapped to counts as an editor's terminal.
    for (const auto& editor : editors::table())
        EXPECT_TRUE(editors::hasIntegratedTerminal(editor.identifier)) << editor.identifier;
    for (const auto& ide : editors::jetBrainsIdes())
        EXPECT_TRUE(editors::hasIntegratedTerminal(ide.identifier)) << ide.identifier;
}

} // namespace
} // namespace norrow
