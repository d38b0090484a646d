#include "core/Graphemes.h"
#include "core/HookInstaller.h"
#include "core/JSONSplice.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

namespace norrow {
namespace {

using json = nlohmann::json;

const std::filesystem::path corpus = NORROW_CORPUS_DIR;
constexpr const char* bridge = "/Users/someone/.claude/norrow/bridge";

std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The text around the "hooks" value (or the whole text without the member), which an edit
// must leave as it was.
std::string outsideHooks(const std::string& document) {
    const auto member = JSONSplice::find("hooks", document);
    if (!member) return document;
    const Graphemes characters(document);
    return std::string(characters.slice(0, member->valueRange.start)) + "\u2026" +
           std::string(characters.slice(member->valueRange.end, characters.size()));
}

// A file's hooks as a removal must leave them: events whose list of groups is empty go.
json hooksAfterRemoval(const json& settings) {
    json hooks = settings.contains("hooks") && settings["hooks"].is_object() ? settings["hooks"]
                                                                             : json::object();
    for (const auto event : HookInstaller::events)
        if (hooks.contains(event) && hooks[std::string(event)].empty())
            hooks.erase(std::string(event));
    return hooks;
}

TEST(HookInstallerCorpus, EverySettingsFileInstallsAndRemovesCleanly) {
    std::istringstream index(contents(corpus / "settings/index.tsv"));
    std::string line;
    std::getline(index, line);
    int refused = 0;
    while (std::getline(index, line)) {
        std::istringstream fields(line);
        std::string name, valid;
        std::getline(fields, name, '\t');
        for (int i = 0; i < 5; ++i)
            std::getline(fields, valid, '\t');
        SCOPED_TRACE(name);
        const std::string document = contents(corpus / "settings" / name);
        if (valid != "yes") {
            ++refused;
            EXPECT_THROW(HookInstaller::planInstall(document, bridge), HookInstaller::InstallError);
            continue;
        }

        const json original = json::parse(document);
        const auto plan = HookInstaller::planInstall(document, bridge);
        ASSERT_TRUE(plan.updatedDocument);
        const std::string& installed = *plan.updatedDocument;
        EXPECT_NO_THROW(HookInstaller::verify(document, installed));
        if (original.contains("hooks")) {
            EXPECT_EQ(outsideHooks(installed), outsideHooks(document));
        } else if (!original.empty()) {
            EXPECT_EQ(JSONSplice::remove("hooks", installed), document);
        }
        EXPECT_TRUE(HookInstaller::planInstall(installed, bridge).alreadyCorrect);

        const auto removal = HookInstaller::planRemoval(installed);
        ASSERT_TRUE(removal.updatedDocument);
        EXPECT_NO_THROW(HookInstaller::verify(installed, *removal.updatedDocument));
        EXPECT_EQ(removal.foreignHookCount, plan.foreignHookCount);
        EXPECT_EQ(hooksAfterRemoval(json::parse(*removal.updatedDocument)),
                  hooksAfterRemoval(original));
    }
    EXPECT_EQ(refused, 9);
}

TEST(HookInstallerCorpus, EveryParsingTestIsAcceptedOrRefusedAndRoundTrips) {
    int accepted = 0;
    for (const auto& entry : std::filesystem::directory_iterator(corpus / "json/test_parsing")) {
        const std::string name = entry.path().filename().string();
        SCOPED_TRACE(name);
        const std::string document = contents(entry.path());
        std::optional<HookInstaller::Plan> plan;
        try {
            plan = HookInstaller::planInstall(document, bridge);
        } catch (const HookInstaller::InstallError&) {
        } catch (const JSONSplice::SpliceError&) {
        }
        const json parsed = json::parse(document, nullptr, false);
        if (name.starts_with("n_")) {
            EXPECT_FALSE(plan);
        } else if (name.starts_with("y_")) {
            EXPECT_EQ(plan.has_value(), parsed.is_object());
        }
        if (!plan) continue;
        ++accepted;
        ASSERT_TRUE(plan->updatedDocument);
        EXPECT_NO_THROW(HookInstaller::verify(document, *plan->updatedDocument));
        const auto removal = HookInstaller::planRemoval(*plan->updatedDocument);
        EXPECT_TRUE(
            HookInstaller::semanticallyEqual(removal.updatedDocument.value_or(""), document));
        const std::string rendered = HookInstaller::render(parsed, "  ", 0);
        EXPECT_EQ(HookInstaller::canonical(json::parse(rendered)),
                  HookInstaller::canonical(parsed));
    }
    EXPECT_GE(accepted, 12);
}

} // namespace
} // namespace norrow
