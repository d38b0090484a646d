#pragma once

#include "app/platform/SoundPlayer.h"

#include <cstdint>

struct ca_context;

namespace norrow {

// Plays through libcanberra, which reaches the user's sound server (or ALSA) and honours
// the desktop's event-sound settings. Without a sound server or device, playing fails
// quickly with the reason and never blocks.
class CanberraPlayer : public SoundPlayer {
public:
    CanberraPlayer();

    std::string_view fileExtension() const override { return "wav"; }
    std::shared_ptr<Sound> load(const std::filesystem::path& file) override;
    // The sound theme's "message-new-instant", the desktop's sound for a message that wants
    // attention.
    std::shared_ptr<Sound> systemSound() override;

private:
    // Every sound has its own id, so that cancelling one stops only that one.
    std::uint32_t nextId();

    // Shared with the sounds: libcanberra keeps playing while the context lives.
    std::shared_ptr<ca_context> context_;
    std::uint32_t lastId_ = 0;
};

} // namespace norrow
