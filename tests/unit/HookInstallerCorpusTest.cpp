#include "core/Graphemes.h"
#include "core/HookInstaller.h"
#include "core/JSONSplice.h"
#include "support/Files.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>

namespace norrow {
namespace {

using json = nlohmann::json;
using Status = HookInstaller::Status;

const std::filesystem::path corpus = NORROW_CORPUS_DIR;
constexpr const char* bridge = "/Users/someone/.claude/norrow/bridge";

using test::contents;

// The text of every group under every event, by event and place.
std::map<std::pair<std::string, std::size_t>, std::string> groupTexts(const std::string& document) {
    std::map<std::pair<std::string, std::size_t>, std::string> texts;
    const Graphemes characters(document);
    const json hooks = json::parse(document).value("hooks", json::object());
    for (const auto& [event, groups] : hooks.items())
        for (std::size_t i = 0; groups.is_array() && i < groups.size(); ++i) {
            const auto range = JSONSplice::find({"hooks", event, i}, document)->valueRange;
            texts[{event, i}] = characters.slice(range.start, range.end);
        }
    return texts;
}

// Installs into a readable document, brings an earlier installation up to date and removes
// again, checking every step.
void installAndRemove(const std::string& document) {
    const auto plan = HookInstaller::planInstall(document, bridge);
    ASSERT_TRUE(plan.updatedDocument);
    const std::string& installed = *plan.updatedDocument;
    EXPECT_NO_THROW(HookInstaller::verify(document, installed));
    EXPECT_EQ(HookInstaller::status(document, bridge), Status::notInstalled);
    EXPECT_EQ(HookInstaller::status(installed, bridge), Status::current);
    // Other tools' groups keep their bytes and their places.
    auto kept = groupTexts(installed);
    for (const auto& [place, text] : groupTexts(document))
        EXPECT_EQ(kept[place], text) << place.first << " " << place.second;

    // An earlier installation, here with another bridge path, becomes what a fresh one is.
    const std::string old =
        *HookInstaller::planInstall(document, "/old/norrow/bridge").updatedDocument;
    EXPECT_EQ(HookInstaller::status(old, bridge), Status::outOfDate);
    EXPECT_EQ(HookInstaller::planInstall(old, bridge).updatedDocument, installed);

    // Removal gives back the very bytes, but a "hooks" that held nothing goes too, and an
    // emptied object keeps a line break.
    const auto removal = HookInstaller::planRemoval(installed);
    EXPECT_EQ(removal.foreignHookCount, plan.foreignHookCount);
    const json original = json::parse(document);
    EXPECT_EQ(removal.updatedDocument, original.value("hooks", json()) == json::object()
                                           ? JSONSplice::remove({"hooks"}, document)
                                       : original.empty() ? "{\n}"
                                                          : document);
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
