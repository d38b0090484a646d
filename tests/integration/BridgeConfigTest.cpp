#include "core/BridgeConfig.h"

#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>

namespace norrow {
namespace {

std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

unsigned mode(const std::filesystem::path& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return info.st_mode & 07777;
}

void put(const std::filesystem::path& file, const std::string& text) {
    std::ofstream(file, std::ios::binary) << text;
}

TEST(BridgeConfigFile, ExactBytesAndPrivatePermissions) {
    test::TempDir claude;
    const auto file = BridgeConfig::location(claude.path());
    BridgeConfig::write(51234, "abc123", file);
    EXPECT_EQ(contents(file), R"({"port":51234,"token":"abc123"})");
    EXPECT_EQ(mode(file), 0600u);
    EXPECT_EQ(mode(file.parent_path()), 0700u);
    EXPECT_FALSE(std::filesystem::exists(file.parent_path() / "config.json.new"));
    EXPECT_EQ(BridgeConfig::read(file), (BridgeConfig{51234, "abc123"}));
}

TEST(BridgeConfigFile, ReplacesALeftoverAndTightensAnOpenFolder) {
    test::TempDir claude;
    const auto folder = claude / "norrow";
    std::filesystem::create_directories(folder);
    ::chmod(folder.c_str(), 0755);
    put(folder / "config.json.new", "half-written");
    BridgeConfig::write(1, "t", folder / "config.json");
    EXPECT_EQ(contents(folder / "config.json"), R"({"port":1,"token":"t"})");
    EXPECT_EQ(mode(folder), 0700u);
    EXPECT_FALSE(std::filesystem::exists(folder / "config.json.new"));
}

TEST(BridgeConfigFile, WriteFailuresAreDescribed) {
    test::TempDir claude;
    const auto folder = claude / "norrow";
    // A folder where the temporary file belongs cannot be replaced, even by root.
    std::filesystem::create_directories(folder / "config.json.new" / "inside");
    try {
        BridgeConfig::write(1, "t", folder / "config.json");
        FAIL() << "expected a failure";
    } catch (const BridgeConfig::ConfigError& e) {
        EXPECT_EQ(e.kind(), BridgeConfig::ConfigError::Case::writeFailed);
        EXPECT_EQ(std::string(e.what()), "could not write the bridge config: cannot create " +
                                             (folder / "config.json.new").string());
    }
}

TEST(BridgeConfigFile, RenameOntoAFolderFailsAndLeavesNoTemporary) {
    test::TempDir claude;
    const auto file = BridgeConfig::location(claude.path());
    std::filesystem::create_directories(file / "occupied");
    try {
        BridgeConfig::write(1, "t", file);
        FAIL() << "expected a failure";
    } catch (const BridgeConfig::ConfigError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("could not write the bridge config: rename to " +
                                                  file.string() + " failed: ",
                                              0),
                  0u);
    }
    EXPECT_FALSE(std::filesystem::exists(file.parent_path() / "config.json.new"));
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
        put(dir / "config.json", text);
        EXPECT_EQ(BridgeConfig::read(dir / "config.json"), expected) << text;
    }
    EXPECT_EQ(BridgeConfig::read(dir / "missing.json"), std::nullopt);
}

} // namespace
} // namespace norrow
