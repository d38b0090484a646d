#pragma once

#include "app/platform/SoundPlayer.h"
#include "app/shared/Settings.h"
#include "core/Summary.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace norrow {

// Plays the alert sound in the style the user chose. Main thread only.
class Notifier {
public:
    enum class SoundStyle { bell, voice, silent };

    // Sounds are the files named after the sound, with the player's extension, in `folder`.
    Notifier(Settings& settings, SoundPlayer& player,
             std::filesystem::path folder = SoundPlayer::bundledSounds());

    // What "soundStyle" holds; voice when it holds nothing known.
    SoundStyle style() const;
    void setStyle(SoundStyle style);

    // The sound for an alert of `kind`, in the current style.
    void play(SummaryKind kind);
    // The sound that stands for `style`, when the user picks it.
    void preview(SoundStyle style);

    // The named sound, loaded once and kept; nothing when it is missing or unreadable (and
    // then nothing is kept, so a later call looks again).
    std::shared_ptr<SoundPlayer::Sound> sound(const std::string& name);
    // The desktop's own alert sound, loaded once and kept; nothing when there is none.
    std::shared_ptr<SoundPlayer::Sound> fallback();

private:
    void playNamed(std::optional<std::string_view> name);

    Settings& settings_;
    SoundPlayer& player_;
    const std::filesystem::path folder_;
    // Lives as long as the notifier, which the controller keeps for the whole run.
    std::map<std::string, std::shared_ptr<SoundPlayer::Sound>, std::less<>> cache_;
    bool warned_ = false;
};

// "bell", "voice", "silent": the style's stored form.
std::string_view rawValue(Notifier::SoundStyle style);
// The style stored as `raw`; nothing for any other text.
std::optional<Notifier::SoundStyle> soundStyle(std::string_view raw);

namespace sounds {

// The sound an alert of `kind` plays in `style`; nothing for silence.
std::optional<std::string_view> forAlert(Notifier::SoundStyle style, SummaryKind kind);
// The sound that previews `style`; nothing for silence.
std::optional<std::string_view> forPreview(Notifier::SoundStyle style);

} // namespace sounds
} // namespace norrow
