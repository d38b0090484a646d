#include "app/shared/Credentials.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <regex>
#include <sys/stat.h>

namespace norrow {
namespace {

// The one keychain item, held in memory, that can be made to refuse every write.
struct FakeKeychain : SecretStore {
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override {
        EXPECT_EQ(service + "/" + account, "com.qelvane.Norrow/bridge-token");
        return item;
    }
    bool replace(const std::string& service, const std::string& account,
                 const std::string& secret) override {
        EXPECT_EQ(service + "/" + account, "com.qelvane.Norrow/bridge-token");
        item = writable ? std::optional(secret) : std::nullopt;
        return writable;
    }

    std::optional<std::string> item;
    bool writable = true;
};

class CredentialsTest : public ::testing::Test {
protected:
    // Fresh settings on every call, so what is checked is what reached the file.
    Settings freshSettings() const {
        return Settings(QString::fromStdString((folder / "settings.ini").string()));
    }
    std::string token() {
        Settings settings = freshSettings();
        const std::string token = Credentials(keychain, settings).token();
        EXPECT_TRUE(std::regex_match(token, std::regex("[0-9a-f]{64}"))) << token;
        return token;
    }

    test::TempDir folder;
    FakeKeychain keychain;
};

TEST_F(CredentialsTest, CreatesATokenOnceAndKeepsItInTheKeychain) {
    const std::string first = token();
    EXPECT_EQ(keychain.item, first);
    EXPECT_EQ(token(), first);
    EXPECT_FALSE(freshSettings().string("bridgeTokenFallback"));
    EXPECT_NE(Credentials::generateToken(), Credentials::generateToken());
}

TEST_F(CredentialsTest, AnUnusableKeychainValueCountsAsMissing) {
    for (const std::string& unusable : {std::string(), std::string("\xff\xfe")}) {
        keychain.item = unusable;
        const std::string fresh = token();
        EXPECT_EQ(keychain.item, fresh);
    }
}

// The settings then hold the token, so they are the owner's alone, also when an earlier
// version left them readable.
TEST_F(CredentialsTest, FallsBackToPrivateSettingsWhileTheKeychainRefusesWrites) {
    keychain.writable = false;
    const auto store = folder / "settings.ini";
    const auto expectPrivate = [&] {
        EXPECT_EQ(test::mode(store), 0600u);
        EXPECT_EQ(test::mode(folder.path()), 0700u);
    };
    ::chmod(folder.path().c_str(), 0755);
    const std::string first = token();
    expectPrivate();
    EXPECT_EQ(freshSettings().string("bridgeTokenFallback"), QString::fromStdString(first));
    ::chmod(store.c_str(), 0644);
    ::chmod(folder.path().c_str(), 0755);
    EXPECT_EQ(token(), first);
    expectPrivate();

    // Once the keychain holds a token again, it wins over the fallback.
    keychain.item = std::string(64, 'a');
    EXPECT_EQ(token(), std::string(64, 'a'));
}

TEST_F(CredentialsTest, PreferredPortIsAValidRememberedPortOnly) {
    const std::pair<QVariant, std::optional<std::uint16_t>> cases[] = {
        {QVariant(), std::nullopt},
        {0, std::nullopt},
        {-1, std::nullopt},
        {65536, std::nullopt},
        {QString("abc"), std::nullopt},
        {1, std::uint16_t{1}},
        {65535, std::uint16_t{65535}},
        {QString("8080"), std::uint16_t{8080}},
    };
    for (const auto& [stored, expected] : cases) {
        Settings settings = freshSettings();
        if (stored.isValid())
            settings.set("listenerPort", stored);
        else
            settings.remove("listenerPort");
        EXPECT_EQ(Credentials(keychain, settings).preferredPort(), expected)
            << stored.toString().toStdString();
    }

    Settings settings = freshSettings();
    Credentials(keychain, settings).rememberPort(51234);
    Settings reread = freshSettings();
    EXPECT_EQ(Credentials(keychain, reread).preferredPort(), 51234);
}

} // namespace
} // namespace norrow
