#include "core/HookInstaller.h"
#include "core/JSONSplice.h"
#include "support/Files.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace norrow {
namespace {

using json = nlohmann::json;

const std::filesystem::path corpus = NORROW_CORPUS_DIR;
constexpr const char* bridge = "/Users/someone/.claude/norrow/bridge";

using test::contents;

// Settings as a removal leaves them: our events' empty lists and an emptied "hooks" go.
json afterRemoval(json settings) {
    json& hooks = settings["hooks"];
    for (const auto event : HookInstaller::events)
        if (hooks.is_object() && hooks.contains(event) && hooks[std::string(event)].empty())
            hooks.erase(std::string(event));
    if (hooks.empty()) settings.erase("hooks");
    return settings;
}

// Installs into a readable document and removes again, checking every step.
void installAndRemove(const std::string& document) {
    const auto plan = HookInstaller::planInstall(document, bridge);
    ASSERT_TRUE(plan.updatedDocument);
    const std::string& installed = *plan.updatedDocument;
    EXPECT_NO_THROW(HookInstaller::verify(document, installed));
    EXPECT_TRUE(HookInstaller::planInstall(installed, bridge).alreadyCorrect);
    const json original = json::parse(document);
    // Everything but the "hooks" member stays byte for byte.
    if (!original.empty()) {
        EXPECT_EQ(JSONSplice::remove("hooks", installed), JSONSplice::remove("hooks", document));
    }
    const auto removal = HookInstaller::planRemoval(installed);
    ASSERT_TRUE(removal.updatedDocument);
    EXPECT_EQ(removal.foreignHookCount, plan.foreignHookCount);
    EXPECT_EQ(afterRemoval(json::parse(*removal.updatedDocument)), afterRemoval(original));
    if (!original.empty() && !original.contains("hooks")) {
        EXPECT_EQ(*removal.updatedDocument, document);
    }
}

// Real settings files and the JSON parsing suite: every readable object takes the hooks and
// gives them up again; everything else is refused (the suite's i_ cases may go either way).
TEST(HookInstallerCorpus, InstallsIntoEveryReadableObjectAndRefusesTheRest) {
    int accepted = 0;
    for (const char* folder : {"settings", "json/test_parsing"}) {
        for (const auto& entry : std::filesystem::directory_iterator(corpus / folder)) {
            const std::string name = entry.path().filename().string();
            if (name == "index.tsv") continue;
            SCOPED_TRACE(name);
            const std::string document = contents(entry.path());
            bool readable = true;
            try {
                HookInstaller::planInstall(document, bridge);
            } catch (const std::runtime_error&) {
                readable = false;
            }
            if (!name.starts_with("i_")) {
                EXPECT_EQ(readable, json::parse(document, nullptr, false).is_object());
            }
            if (readable) {
                ++accepted;
                installAndRemove(document);
            }
        }
    }
    EXPECT_EQ(accepted, 118 + 12); // readable settings files and parsing cases
}

} // namespace
} // namespace norrow
