#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace norrow {

// The one place that knows how the system plays a sound: libcanberra on Linux (which goes
// through the user's sound server and event-sound settings), AppKit on macOS. Main thread
// only; a player outlives the sounds it gave.
class SoundPlayer {
public:
    // Why the system did not play a sound, in its own words.
    struct PlayError {
        std::string reason;
    };

    class Sound {
    public:
        virtual ~Sound() = default;
        // Stops the sound if it is still playing and plays it from its beginning. Never
        // waits for the sound to end.
        virtual std::optional<PlayError> restart() = 0;
    };

    virtual ~SoundPlayer() = default;

    // How the names of the files this player takes end, without the dot: "wav", "aiff".
    virtual std::string_view fileExtension() const = 0;
    // The sound in `file`; nothing when the file is missing or cannot be read.
    virtual std::shared_ptr<Sound> load(const std::filesystem::path& file) = 0;
    // The desktop's own alert sound; nothing when there is none.
    virtual std::shared_ptr<Sound> systemSound() = 0;

    // The player for this system.
    static std::unique_ptr<SoundPlayer> create();
    // Where the app's own sounds are: on Linux beside the program in a folder "sounds" (the
    // build puts them there), else in share/norrow/sounds next to the installed program's
    // folder; the bundle's resources on macOS.
    static std::filesystem::path bundledSounds();
};

} // namespace norrow
