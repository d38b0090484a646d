#include "app/platform/SoundPlayer.h"

#if defined(__APPLE__)
#include "app/platform/mac/MacSoundPlayer.h"
#else
#include "app/platform/canberra/CanberraPlayer.h"
#endif

namespace norrow {

#if defined(__APPLE__)

std::unique_ptr<SoundPlayer> SoundPlayer::create() {
    return std::make_unique<MacSoundPlayer>();
}

std::filesystem::path SoundPlayer::bundledSounds() {
    return MacSoundPlayer::resourceFolder();
}

#else

std::unique_ptr<SoundPlayer> SoundPlayer::create() {
    return std::make_unique<CanberraPlayer>();
}

std::filesystem::path SoundPlayer::bundledSounds() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return {};
    const auto beside = program.parent_path() / "sounds";
    if (std::filesystem::is_directory(beside, error)) return beside;
    return (program.parent_path() / NORROW_INSTALLED_SOUNDS).lexically_normal();
}

#endif

} // namespace norrow
