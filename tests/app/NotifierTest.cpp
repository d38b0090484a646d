#include "app/Notifier.h"

#include "support/LogCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace norrow {
namespace {

namespace fs = std::filesystem;

// A player that plays nothing and writes down what it was asked: "load NAME" for every file
// it read, "play NAME" for every restart, NAME being the file's name or "system".
class FakePlayer : public SoundPlayer {
public:
    class FakeSound : public Sound {
    public:
        FakeSound(FakePlayer& player, std::string name) : player_(player), name_(std::move(name)) {}
        std::optional<PlayError> restart() override {
            player_.calls.push_back("play " + name_);
            if (player_.failing) return PlayError{"no device"};
            return std::nullopt;
        }

    private:
        FakePlayer& player_;
        std::string name_;
    };

    std::string_view fileExtension() const override { return "wav"; }
    std::shared_ptr<Sound> load(const fs::path& file) override {
        if (!files.contains(file)) return nullptr;
        calls.push_back("load " + file.filename().string());
        return std::make_shared<FakeSound>(*this, file.filename().string());
    }
    std::shared_ptr<Sound> systemSound() override {
        if (!hasSystemSound) return nullptr;
        calls.push_back("load system");
        return std::make_shared<FakeSound>(*this, "system");
    }

    std::set<fs::path> files;
    bool hasSystemSound = true;
    bool failing = false;
    std::vector<std::string> calls;
};

class NotifierTest : public testing::Test {
protected:
    NotifierTest() {
        for (const char* name : {"Norrow", "NorrowDone", "NorrowNeedsYou"})
            player.files.insert(folder / (std::string(name) + ".wav"));
    }

    test::TempDir top;
    Settings settings{QString::fromStdString((top / "settings.ini").string())};
    fs::path folder = "/sounds";
    FakePlayer player;
    Notifier notifier{settings, player, folder};
};

TEST_F(NotifierTest, EachStoredStylePlaysItsSoundForEachKind) {
    struct Case {
        std::optional<QString> stored;
        SummaryKind kind;
        std::optional<std::string> played;
    };
    const std::vector<Case> cases{
        {"bell", SummaryKind::done, "Norrow.wav"},
        {"bell", SummaryKind::needsYou, "Norrow.wav"},
        {"bell", SummaryKind::waiting, "Norrow.wav"},
        {"voice", SummaryKind::done, "NorrowDone.wav"},
        {"voice", SummaryKind::needsYou, "NorrowNeedsYou.wav"},
        {"voice", SummaryKind::waiting, "NorrowNeedsYou.wav"},
        {"silent", SummaryKind::done, std::nullopt},
        {"silent", SummaryKind::needsYou, std::nullopt},
        {"silent", SummaryKind::waiting, std::nullopt},
        // Never chosen, or a text no version wrote: the spoken sounds.
        {std::nullopt, SummaryKind::done, "NorrowDone.wav"},
        {std::nullopt, SummaryKind::waiting, "NorrowNeedsYou.wav"},
        {"loud", SummaryKind::done, "NorrowDone.wav"},
        {"Bell", SummaryKind::needsYou, "NorrowNeedsYou.wav"},
        {"", SummaryKind::done, "NorrowDone.wav"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.stored.value_or("(unset)").toStdString() + " " +
                     std::string(rawValue(c.kind)));
        if (c.stored)
            settings.set(SettingKey::soundStyle, *c.stored);
        else
            settings.remove(SettingKey::soundStyle);
        player.calls.clear();
        notifier.play(c.kind);
        std::vector<std::string> played;
        for (const auto& call : player.calls)
            if (call.starts_with("play ")) played.push_back(call.substr(5));
        EXPECT_EQ(played, c.played ? std::vector{*c.played} : std::vector<std::string>{});
    }
}

TEST_F(NotifierTest, APreviewPlaysTheStylesSoundWhateverIsStored) {
    settings.set(SettingKey::soundStyle, QStringLiteral("silent"));
    notifier.preview(Notifier::SoundStyle::bell);
    notifier.preview(Notifier::SoundStyle::voice);
    notifier.preview(Notifier::SoundStyle::silent);
    EXPECT_EQ(player.calls,
              (std::vector<std::string>{"load Norrow.wav", "play Norrow.wav", "load NorrowDone.wav",
                                        "play NorrowDone.wav"}));
}

TEST_F(NotifierTest, ASoundIsReadOnceAndRestartedEachTime) {
    settings.set(SettingKey::soundStyle, QStringLiteral("voice"));
    notifier.play(SummaryKind::needsYou);
    notifier.play(SummaryKind::waiting);
    notifier.play(SummaryKind::done);
    notifier.play(SummaryKind::needsYou);
    EXPECT_EQ(player.calls,
              (std::vector<std::string>{"load NorrowNeedsYou.wav", "play NorrowNeedsYou.wav",
                                        "play NorrowNeedsYou.wav", "load NorrowDone.wav",
                                        "play NorrowDone.wav", "play NorrowNeedsYou.wav"}));
    EXPECT_EQ(notifier.sound("NorrowDone"), notifier.sound("NorrowDone"));
}

TEST_F(NotifierTest, AMissingSoundFallsBackToTheSystemSoundUntilItIsThere) {
    player.files.erase(folder / "NorrowDone.wav");
    settings.set(SettingKey::soundStyle, QStringLiteral("voice"));
    notifier.play(SummaryKind::done);
    notifier.play(SummaryKind::done);
    EXPECT_EQ(player.calls,
              (std::vector<std::string>{"load system", "play system", "play system"}));
    EXPECT_EQ(notifier.sound("NorrowDone"), nullptr);

    // Nothing was kept for the missing file, so once it is there it plays.
    player.files.insert(folder / "NorrowDone.wav");
    player.calls.clear();
    notifier.play(SummaryKind::done);
    EXPECT_EQ(player.calls,
              (std::vector<std::string>{"load NorrowDone.wav", "play NorrowDone.wav"}));
}

TEST_F(NotifierTest, WithoutTheSoundOrASystemSoundNothingPlays) {
    player.files.clear();
    player.hasSystemSound = false;
    notifier.play(SummaryKind::done);
    notifier.preview(Notifier::SoundStyle::bell);
    EXPECT_TRUE(player.calls.empty());
    EXPECT_EQ(notifier.fallback(), nullptr);
}

TEST_F(NotifierTest, SoundsThatCannotPlayAreReportedOnceAndNeverStopTheNext) {
    const test::LogCapture log;
    player.failing = true;
    notifier.play(SummaryKind::done);
    notifier.play(SummaryKind::needsYou);
    notifier.preview(Notifier::SoundStyle::bell);
    EXPECT_EQ(player.calls.size(), 6u);
    EXPECT_EQ(test::LogCapture::lines(),
              std::vector<std::string>{"Norrow: could not play the alert sound: no device"});
}

} // namespace
} // namespace norrow
