#include "core/BridgeConfig.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace norrow {
namespace {

using test::mode;

TEST(BridgeConfigFile, ExactBytesPrivatePermissionsAndALeftoverReplaced) {
    test::TempDir claude;
    const auto file = BridgeConfig::location(claude.path());
    const auto expectWritten = [&](std::uint16_t port, const std::string& token,
                                   const std::string& bytes) {
        BridgeConfig::write(port, token, file);
        EXPECT_EQ(test::contents(file), bytes);
        EXPECT_EQ(mode(file), 0600u);
        EXPECT_EQ(mode(file.parent_path()), 0700u);
        EXPECT_FALSE(std::filesystem::exists(file.parent_path() / "config.json.new"));
        EXPECT_EQ(BridgeConfig::read(file), (BridgeConfig{port, token}));
    };
    expectWritten(51234, "abc123", R"({"port":51234,"token":"abc123"})");
    // Neither a half-written leftover nor a folder others can read survive the next write.
    std::ofstream(file.parent_path() / "config.json.new") << "half-written";
    ::chmod(file.parent_path().c_str(), 0755);
    expectWritten(1, "t", R"({"port":1,"token":"t"})");
}

TEST(BridgeConfigFile, WriteFailuresAreDescribed) {
    test::TempDir claude;
    const auto file = BridgeConfig::location(claude.path());
    const auto leftover = file.parent_path() / "config.json.new";
    // Folders stand where the files belong: nothing can replace them, not even root.
    const std::pair<std::filesystem::path, std::string> cases[] = {
        {leftover / "inside", "cannot create " + leftover.string()},
        {file / "inside", "rename to " + file.string() + " failed: "},
    };
    for (const auto& [blocker, description] : cases) {
        std::filesystem::create_directories(blocker);
        try {
            BridgeConfig::write(1, "t", file);
            ADD_FAILURE() << "expected a failure";
        } catch (const BridgeConfig::ConfigError& e) {
            EXPECT_EQ(e.kind(), BridgeConfig::ConfigError::Case::writeFailed);
            EXPECT_TRUE(std::string(e.what()).starts_with("could not write the bridge config: " +
                                                          description))
                << e.what();
        }
        std::filesystem::remove_all(blocker.parent_path());
        EXPECT_FALSE(std::filesystem::exists(leftover));
    }
}

TEST(BridgeConfigFile, ReadIsStrictAboutPortAndToken) {
    test::TempDir dir;
    const std::pair<const char*, std::optional<BridgeConfig>> cases[] = {
        {R"({"port":8080,"token":"t"})", BridgeConfig{8080, "t"}},
        {R"({"port":"8080","token":"t"})", BridgeConfig{8080, "t"}},
        {R"({"port":"+65535","token":"t"})", BridgeConfig{65535, "t"}},
        {R"({"port":0,"token":"t"})", BridgeConfig{0, "t"}},
        {R"({"port":70000,"token":"t"})", std::nullopt},
        {R"({"port":-1,"token":"t"})", std::nullopt},
        {R"({"port":"80a","token":"t"})", std::nullopt},
        {R"({"port":8080})", std::nullopt},
        {R"({"port":8080,"token":""})", std::nullopt},
        {R"({"port":8080,"token":5})", std::nullopt},
        {R"([8080,"t"])", std::nullopt},
        {"not json", std::nullopt},
    };
    for (const auto& [text, expected] : cases) {
        std::ofstream(dir / "config.json", std::ios::binary) << text;
        EXPECT_EQ(BridgeConfig::read(dir / "config.json"), expected) << text;
    }
    EXPECT_EQ(BridgeConfig::read(dir / "missing.json"), std::nullopt);
}

} // namespace
} // namespace norrow
