#include "app/shared/Credentials.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <map>
#include <regex>

namespace norrow {
namespace {

// A keychain held in memory that can be made to refuse every write.
class FakeKeychain : public SecretStore {
public:
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override {
        const auto it = items.find({service, account});
        if (it == items.end()) return std::nullopt;
        return it->second;
    }
    bool replace(const std::string& service, const std::string& account,
                 const std::string& secret) override {
        items.erase({service, account});
        if (!writable) return false;
        items[{service, account}] = secret;
        return true;
    }

    std::map<std::pair<std::string, std::string>, std::string> items;
    bool writable = true;
};

class CredentialsTest : public ::testing::Test {
protected:
    // A fresh settings object each time, so what is checked is what reached the file.
    std::string tokenNow() {
        UserDefaults defaults(settingsFile());
        return Credentials(keychain, defaults).token();
    }
    std::optional<std::string> storedFallback() {
        const auto value = UserDefaults(settingsFile()).string("bridgeTokenFallback");
        return value ? std::optional(value->toStdString()) : std::nullopt;
    }
    std::optional<std::string> keychainItem() {
        return keychain.read("com.qelvane.Norrow", "bridge-token");
    }
    QString settingsFile() const {
        return QString::fromStdString((folder / "settings.ini").string());
    }

    test::TempDir folder;
    FakeKeychain keychain;
};

bool isHexToken(const std::string& token) {
    return std::regex_match(token, std::regex("[0-9a-f]{64}"));
}

TEST_F(CredentialsTest, CreatesATokenOnceAndKeepsItInTheKeychain) {
    const std::string first = tokenNow();
    EXPECT_TRUE(isHexToken(first)) << first;
    EXPECT_EQ(keychainItem(), first);
    EXPECT_EQ(tokenNow(), first);
    EXPECT_FALSE(storedFallback());
    EXPECT_NE(Credentials::generateToken(), Credentials::generateToken());
}

TEST_F(CredentialsTest, AnUnusableKeychainValueCountsAsMissing) {
    for (const std::string& unusable : {std::string(), std::string("\xff\xfe")}) {
        keychain.items[{"com.qelvane.Norrow", "bridge-token"}] = unusable;
        const std::string token = tokenNow();
        EXPECT_TRUE(isHexToken(token)) << token;
        EXPECT_EQ(keychainItem(), token);
    }
}

TEST_F(CredentialsTest, FallsBackToSettingsWhileTheKeychainRefusesWrites) {
    keychain.writable = false;
    const std::string first = tokenNow();
    EXPECT_TRUE(isHexToken(first));
    EXPECT_EQ(storedFallback(), first);
    EXPECT_EQ(tokenNow(), first);

    // Once the keychain holds a token again, it wins over the fallback.
    keychain.items[{"com.qelvane.Norrow", "bridge-token"}] = "from-keychain";
    EXPECT_EQ(tokenNow(), "from-keychain");
}

TEST_F(CredentialsTest, PreferredPortIsAValidRememberedPortOnly) {
    const std::pair<QVariant, std::optional<std::uint16_t>> cases[] = {
        {QVariant(), std::nullopt},
        {0, std::nullopt},
        {-1, std::nullopt},
        {70000, std::nullopt},
        {65536, std::nullopt},
        {QString("abc"), std::nullopt},
        {1, std::uint16_t{1}},
        {65535, std::uint16_t{65535}},
        {QString("8080"), std::uint16_t{8080}},
    };
    for (const auto& [stored, expected] : cases) {
        UserDefaults defaults(settingsFile());
        if (stored.isValid())
            defaults.set("listenerPort", stored);
        else
            defaults.remove("listenerPort");
        EXPECT_EQ(Credentials(keychain, defaults).preferredPort(), expected)
            << stored.toString().toStdString();
    }

    UserDefaults defaults(settingsFile());
    Credentials(keychain, defaults).rememberPort(51234);
    UserDefaults reread(settingsFile());
    EXPECT_EQ(Credentials(keychain, reread).preferredPort(), 51234);
}

} // namespace
} // namespace norrow
