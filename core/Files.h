#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

// Small POSIX file helpers shared by everything that reads or writes the user's files.
// Failures leave errno set, so each caller can word its own message.
namespace norrow::files {

// The whole file, or nothing when it cannot be opened or read.
std::optional<std::string> read(const std::filesystem::path& file);

// The first `limit` bytes of the file, or nothing when it cannot be opened or read. Opened
// without blocking, so that a FIFO in its place cannot stall the caller.
std::optional<std::string> readPrefix(const std::filesystem::path& file, std::size_t limit);

// Writes every byte, retrying short and interrupted writes; false on an error.
bool writeAll(int fd, std::string_view bytes);

// Creates the folder and any missing parents with `mode`. On failure gives the path that
// could not be made a folder and the error number.
struct FolderFailure {
    std::filesystem::path path;
    int error = 0;
};
std::optional<FolderFailure> makeFolders(const std::filesystem::path& folder, mode_t mode);
// Like makeFolders with 0700, and makes the folder itself 0700 even when it existed, for a
// folder that is to hold a secret.
std::optional<FolderFailure> makePrivateFolder(const std::filesystem::path& folder);

// How writeAtomically goes about it.
struct AtomicWrite {
    // The temporary file's name in the target's folder, before the unique suffix (".XXXXXX")
    // that keeps concurrent writers apart; when empty, "." and the target's own name.
    std::string temporaryStem{};
    // The permissions of the new file.
    mode_t mode = 0600;
    // A file being replaced keeps its own permissions, owner and group instead of `mode`
    // and the writer's; when they cannot be kept, nothing is replaced.
    bool keepAttributes = false;
    // A symbolic link is followed, so that the file it names is replaced, not the link.
    bool followSymlinks = false;
    // A file with further hard links is rewritten in place, so that every name keeps seeing
    // it; that one write is not atomic.
    bool keepLinks = false;
    // When set, the file is replaced only while it still holds these bytes, checked once the
    // new bytes are on disk, just before they take its place.
    std::optional<std::string_view> expected{};
};

// On failure, the step that failed, its error number, and the paths involved.
struct AtomicWriteFailure {
    enum class Step {
        create,  // the temporary file could not be made
        owner,   // the replaced file's owner and group could not be kept
        write,   // its permissions, bytes or flush failed
        changed, // the file no longer held the expected bytes; nothing was written
        rename,  // it could not take the target's place
    };
    Step step = Step::create;
    int error = 0;
    // The file replaced: the target, or with followSymlinks the file its link names.
    std::filesystem::path target;
    std::filesystem::path temporary;
};

// Replaces `file` with `bytes` through a temporary file in the same folder, flushed to
// disk and then renamed over it, so that a reader sees the old bytes or the new ones.
// A temporary file is never left behind, and those of earlier writers that were killed
// before they could remove theirs are removed first.
std::optional<AtomicWriteFailure> writeAtomically(const std::filesystem::path& file,
                                                  std::string_view bytes,
                                                  const AtomicWrite& how = {});

} // namespace norrow::files
