#include "app/Notifier.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/PulseServer.h"
#include "support/TempDir.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace norrow {
namespace {

namespace fs = std::filesystem;
using Style = Notifier::SoundStyle;

// The sounds as the build lays them out beside the program.
const fs::path bundled = NORROW_SOUNDS_DIR;

// Louder than this is a sound; a null sink's silence is exactly zero.
constexpr double audible = 0.01;

// The real player through libcanberra into a private PulseAudio server, recorded from the
// server's monitor and measured with sox.
class NotifierPlaybackTest : public testing::Test {
protected:
    NotifierPlaybackTest() {
        // Set before the player exists: libcanberra picks its driver when it is created.
        ::setenv("PULSE_SERVER", pulse.address().c_str(), 1);
        ::setenv("CANBERRA_DRIVER", "pulse", 1);
        player = SoundPlayer::create();
    }

    // Records from before `act` until nothing plays any more and a second is recorded.
    test::Recording::Levels recorded(const std::function<void(Notifier&)>& act,
                                     const fs::path& folder = bundled) {
        Notifier notifier(settings, *player, folder);
        test::Recording recording(pulse);
        act(notifier);
        EXPECT_TRUE(test::eventually(
            [&] { return pulse.playingStreams() == 0 && recording.seconds() >= 1.0; }));
        return recording.stop();
    }

    test::PulseServer pulse;
    test::TempDir top;
    Settings settings{QString::fromStdString((top / "settings.ini").string())};
    std::unique_ptr<SoundPlayer> player;
};

TEST_F(NotifierPlaybackTest, EveryStyleIsHeardOrSilentAsChosen) {
    struct Case {
        const char* name;
        std::function<void(Notifier&)> act;
        bool heard;
    };
    const auto alert = [](Style style, SummaryKind kind) {
        return [=](Notifier& notifier) {
            notifier.setStyle(style);
            notifier.play(kind);
        };
    };
    const auto preview = [](Style style) {
        return [=](Notifier& notifier) { notifier.preview(style); };
    };
    const std::vector<Case> cases{
        {"bell, done", alert(Style::bell, SummaryKind::done), true},
        {"bell, waiting", alert(Style::bell, SummaryKind::waiting), true},
        {"voice, done", alert(Style::voice, SummaryKind::done), true},
        {"voice, needs you", alert(Style::voice, SummaryKind::needsYou), true},
        {"voice, waiting", alert(Style::voice, SummaryKind::waiting), true},
        {"silent, done", alert(Style::silent, SummaryKind::done), false},
        {"silent, needs you", alert(Style::silent, SummaryKind::needsYou), false},
        {"bell preview", preview(Style::bell), true},
        {"voice preview", preview(Style::voice), true},
        {"silent preview", preview(Style::silent), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto levels = recorded(c.act);
        RecordProperty(std::string("rms ") + c.name, std::to_string(levels.rms));
        EXPECT_GE(levels.seconds, 1.0);
        if (c.heard) {
            EXPECT_GT(levels.rms, audible);
            // Loud, and never clipped.
            EXPECT_GT(levels.peak, 0.2);
            EXPECT_LT(levels.peak, 0.99);
        } else {
            EXPECT_EQ(levels.peak, 0.0);
        }
    }
}

TEST_F(NotifierPlaybackTest, WithoutItsOwnSoundsTheDesktopsSoundIsHeard) {
    const auto levels = recorded([](Notifier& notifier) { notifier.play(SummaryKind::done); },
                                 top / "no sounds here");
    EXPECT_GT(levels.rms, audible);
}

TEST_F(NotifierPlaybackTest, PlayingAgainRestartsTheSoundInsteadOfAddingAnother) {
    Notifier notifier(settings, *player, bundled);
    notifier.preview(Style::voice);
    notifier.preview(Style::voice);
    notifier.preview(Style::voice);
    // Each play first stops the one before; had it not, three would be playing now.
    EXPECT_LE(pulse.playingStreams(), 1u);
    EXPECT_TRUE(test::eventually([&] { return pulse.playingStreams() == 0; }));
}

TEST(NotifierWithoutSoundServerTest, AlertsGoOnQuietlyAndTheFailureIsLoggedOnce) {
    const test::TempDir top;
    ::setenv("PULSE_SERVER", ("unix:" + (top / "no-server").string()).c_str(), 1);
    ::setenv("CANBERRA_DRIVER", "pulse", 1);
    const auto player = SoundPlayer::create();
    Settings settings{QString::fromStdString((top / "settings.ini").string())};
    Notifier notifier(settings, *player, bundled);
    const test::LogCapture log;
    for (const auto style : {Style::bell, Style::voice})
        for (const auto kind : {SummaryKind::done, SummaryKind::needsYou, SummaryKind::waiting}) {
            notifier.setStyle(style);
            notifier.play(kind);
        }
    notifier.preview(Style::bell);
    ASSERT_EQ(test::LogCapture::lines().size(), 1u);
    EXPECT_TRUE(
        test::LogCapture::lines()[0].starts_with("Norrow: could not play the alert sound: "))
        << test::LogCapture::lines()[0];
}

} // namespace
} // namespace norrow
