#include "app/platform/mac/MacSoundPlayer.h"

#import <AppKit/AppKit.h>

namespace norrow {
namespace {

class MacSound : public SoundPlayer::Sound {
public:
    explicit MacSound(NSSound* sound) : sound_(sound) {}

    std::optional<SoundPlayer::PlayError> restart() override {
        @autoreleasepool {
            [sound_ stop];
            if ([sound_ play]) return std::nullopt;
            return SoundPlayer::PlayError{"NSSound refused to play"};
        }
    }

private:
    NSSound* sound_;
};

} // namespace

std::shared_ptr<SoundPlayer::Sound> MacSoundPlayer::load(const std::filesystem::path& file) {
    @autoreleasepool {
        NSString* path = [NSString stringWithUTF8String:file.c_str()];
        if (path == nil) return nullptr;
        NSSound* sound = [[NSSound alloc] initWithContentsOfURL:[NSURL fileURLWithPath:path]
                                                    byReference:NO];
        if (sound == nil) return nullptr;
        return std::make_shared<MacSound>(sound);
    }
}

std::shared_ptr<SoundPlayer::Sound> MacSoundPlayer::systemSound() {
    @autoreleasepool {
        NSSound* sound = [NSSound soundNamed:@"Submarine"];
        if (sound == nil) return nullptr;
        return std::make_shared<MacSound>(sound);
    }
}

std::filesystem::path MacSoundPlayer::resourceFolder() {
    @autoreleasepool {
        NSString* folder = NSBundle.mainBundle.resourcePath;
        if (folder == nil || folder.fileSystemRepresentation == nullptr) return {};
        return std::filesystem::path(folder.fileSystemRepresentation);
    }
}

} // namespace norrow
