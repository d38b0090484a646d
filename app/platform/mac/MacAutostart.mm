// macOS: the app as a login item, registered with the Service Management framework. The
// command-line tool registers the app it sits in, so it must run from inside the bundle.
#include "app/shared/Autostart.h"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

namespace norrow {
namespace {

// The app bundle that holds the running program; empty when it runs from elsewhere.
std::filesystem::path enclosingBundle() {
    NSURL* url = NSBundle.mainBundle.bundleURL;
    if (![url.pathExtension isEqualToString:@"app"]) return {};
    return std::filesystem::path(url.fileSystemRepresentation);
}

constexpr const char* tooOld = "login items need macOS 13 or later";

} // namespace

Autostart::Autostart() : location_(enclosingBundle()) {}

Autostart::Status Autostart::status() const {
    if (location_.empty()) return {State::off, location_, {}};
    if (@available(macOS 13.0, *)) {
        switch (SMAppService.mainAppService.status) {
        case SMAppServiceStatusEnabled:
            return {State::on, location_, location_};
        case SMAppServiceStatusRequiresApproval:
            return {State::awaitingApproval, location_, location_};
        default:
            return {State::off, location_, {}};
        }
    }
    return {State::off, location_, {}};
}

// The login item is always the enclosing app, whatever program is named.
Autostart::Change Autostart::enable(const std::filesystem::path&) {
    if (location_.empty()) throw AutostartError::notInBundle();
    if (@available(macOS 13.0, *)) {
        if (status().state != State::off) return Change::alreadySo;
        NSError* error = nil;
        if (![SMAppService.mainAppService registerAndReturnError:&error])
            throw AutostartError::refused(error.localizedDescription.UTF8String);
        return Change::made;
    }
    throw AutostartError::refused(tooOld);
}

Autostart::Change Autostart::disable() {
    if (location_.empty()) throw AutostartError::notInBundle();
    if (@available(macOS 13.0, *)) {
        if (status().state == State::off) return Change::alreadySo;
        NSError* error = nil;
        if (![SMAppService.mainAppService unregisterAndReturnError:&error])
            throw AutostartError::refused(error.localizedDescription.UTF8String);
        return Change::made;
    }
    throw AutostartError::refused(tooOld);
}

std::filesystem::path Autostart::defaultProgram() {
    return enclosingBundle();
}

} // namespace norrow
