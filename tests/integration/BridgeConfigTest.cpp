#include "core/BridgeConfig.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <algorithm>
#include <climits>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
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
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()),
                                std::filesystem::directory_iterator()),
                  1);
        EXPECT_EQ(BridgeConfig::read(file), (BridgeConfig{port, token}));
    };
    expectWritten(51234, "abc123", R"({"port":51234,"token":"abc123"})");
    // Neither a killed writer's leftover nor a folder others can read survive the next write.
    std::ofstream(file.parent_path() / "config.json.new.x1Y2z3") << "half-written";
    ::chmod(file.parent_path().c_str(), 0755);
    expectWritten(1, "t", R"({"port":1,"token":"t"})");
}

TEST(BridgeConfigFile, WriteFailuresAreDescribed) {
    test::TempDir claude;
    // Nothing stops root from writing, but a folder stands where the file belongs and a
    // folder path one short name from the length limit leaves no room for the temporary name.
    const auto file = BridgeConfig::location(claude.path());
    std::filesystem::path deep = claude.path();
    while (deep.string().size() < PATH_MAX - 16)
        deep /= std::string(std::min<std::size_t>(200, PATH_MAX - 17 - deep.string().size()), 'd');
    const std::pair<std::filesystem::path, std::string> cases[] = {
        {file, "rename to " + file.string() + " failed: "},
        {deep / "config.json", "cannot create " + (deep / "config.json.new.XXXXXX").string()},
    };
    std::filesystem::create_directories(file / "inside");
    for (const auto& [target, description] : cases) {
        try {
            BridgeConfig::write(1, "t", target);
            ADD_FAILURE() << "expected a failure";
        } catch (const BridgeConfig::ConfigError& e) {
            EXPECT_EQ(e.kind(), BridgeConfig::ConfigError::Case::writeFailed);
            EXPECT_TRUE(std::string(e.what()).starts_with("could not write the bridge config: " +
                                                          description))
                << e.what();
        }
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(target.parent_path()),
                                std::filesystem::directory_iterator()),
                  target == file ? 1 : 0);
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
