#include "app/platform/canberra/CanberraPlayer.h"

#include <canberra.h>
#include <fstream>

namespace norrow {
namespace {

// A file or a themed event sound, played under its own id.
class CanberraSound : public SoundPlayer::Sound {
public:
    enum class Source { file, themeEvent };

    CanberraSound(std::shared_ptr<ca_context> context, std::uint32_t id, Source source,
                  std::string name)
        : context_(std::move(context)), id_(id), source_(source), name_(std::move(name)) {}

    std::optional<SoundPlayer::PlayError> restart() override {
        if (!context_) return SoundPlayer::PlayError{"libcanberra could not start"};
        // Cancelling a sound that is not playing is harmless; its error says only that.
        ca_context_cancel(context_.get(), id_);
        const char* key = source_ == Source::file ? CA_PROP_MEDIA_FILENAME : CA_PROP_EVENT_ID;
        const int result = ca_context_play(context_.get(), id_, key, name_.c_str(),
                                           CA_PROP_MEDIA_ROLE, "event", nullptr);
        if (result == CA_SUCCESS) return std::nullopt;
        return SoundPlayer::PlayError{ca_strerror(result)};
    }

private:
    std::shared_ptr<ca_context> context_;
    std::uint32_t id_;
    Source source_;
    std::string name_;
};

std::shared_ptr<ca_context> createContext() {
    ca_context* context = nullptr;
    if (ca_context_create(&context) != CA_SUCCESS) return nullptr;
    ca_context_change_props(context, CA_PROP_APPLICATION_NAME, "Norrow", CA_PROP_APPLICATION_ID,
                            "com.qelvane.Norrow", nullptr);
    return {context, ca_context_destroy};
}

} // namespace

CanberraPlayer::CanberraPlayer() : context_(createContext()) {}

std::uint32_t CanberraPlayer::nextId() {
    return ++lastId_;
}

std::shared_ptr<SoundPlayer::Sound> CanberraPlayer::load(const std::filesystem::path& file) {
    // libcanberra reads the file each time it plays; what can be checked now is that it is
    // there and readable.
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error) || !std::ifstream(file).good())
        return nullptr;
    return std::make_shared<CanberraSound>(context_, nextId(), CanberraSound::Source::file,
                                           file.string());
}

std::shared_ptr<SoundPlayer::Sound> CanberraPlayer::systemSound() {
    return std::make_shared<CanberraSound>(context_, nextId(), CanberraSound::Source::themeEvent,
                                           "message-new-instant");
}

} // namespace norrow
