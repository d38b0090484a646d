#include "app/platform/mac/MacDesktop.h"

#import <AppKit/AppKit.h>

namespace norrow {
namespace {

std::optional<std::string> utf8(NSString* text) {
    if (text == nil || text.UTF8String == nullptr) return std::nullopt;
    return std::string(text.UTF8String);
}

// Nil for text that is not UTF-8, which names no application.
NSString* nsString(const std::string& text) {
    return [NSString stringWithUTF8String:text.c_str()];
}

std::optional<std::string> identityOf(NSRunningApplication* app) {
    if (auto bundle = utf8(app.bundleIdentifier)) return bundle;
    return utf8(app.executableURL.path);
}

Desktop::RunningApp describe(NSRunningApplication* app) {
    return {identityOf(app).value_or(""), utf8(app.localizedName).value_or(""),
            app.processIdentifier};
}

// The bridge reports the executable inside the bundle where it knows no bundle identifier,
// so either of the two may be the path of the event.
bool runsFrom(NSRunningApplication* app, NSURL* wanted) {
    return [app.bundleURL.standardizedFileURL isEqual:wanted] ||
           [app.executableURL.standardizedFileURL isEqual:wanted];
}

} // namespace

std::optional<std::string> MacDesktop::frontmostApplication() {
    @autoreleasepool {
        NSRunningApplication* front = NSWorkspace.sharedWorkspace.frontmostApplication;
        if (front == nil) return std::nullopt;
        return identityOf(front);
    }
}

std::optional<Desktop::RunningApp> MacDesktop::runningApp(const HookEvent& event) {
    @autoreleasepool {
        if (event.termBundleId) {
            if (NSString* bundle = nsString(*event.termBundleId)) {
                NSArray<NSRunningApplication*>* apps =
                    [NSRunningApplication runningApplicationsWithBundleIdentifier:bundle];
                if (apps.count > 0) return describe(apps.firstObject);
            }
        }
        if (event.termAppPath) {
            NSString* path = nsString(*event.termAppPath);
            if (path.length > 0) {
                NSURL* wanted = [NSURL fileURLWithPath:path].standardizedFileURL;
                for (NSRunningApplication* app in NSWorkspace.sharedWorkspace.runningApplications)
                    if (runsFrom(app, wanted)) return describe(app);
            }
        }
        return std::nullopt;
    }
}

bool MacDesktop::activate(const RunningApp& app) {
    @autoreleasepool {
        NSRunningApplication* running =
            [NSRunningApplication runningApplicationWithProcessIdentifier:app.pid];
        return running != nil && [running activateWithOptions:NSApplicationActivateAllWindows];
    }
}

// The window server always composites.
bool MacDesktop::composited() {
    return true;
}

} // namespace norrow
