#pragma once

#include "app/platform/SoundPlayer.h"

namespace norrow {

// Plays with AppKit's NSSound: the bundle's AIFF files, and the system sound "Submarine" as
// the fallback.
class MacSoundPlayer : public SoundPlayer {
public:
    std::string_view fileExtension() const override { return "aiff"; }
    std::shared_ptr<Sound> load(const std::filesystem::path& file) override;
    std::shared_ptr<Sound> systemSound() override;

    // The application bundle's resources folder.
    static std::filesystem::path resourceFolder();
};

} // namespace norrow
