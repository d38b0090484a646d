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
    // The temporary file's name in the target's folder; when empty, a fresh unique name
    // made from the target's own (".settings.json.XXXXXX").
    std::string temporaryName;
    // The permissions of the new file.
    mode_t mode = 0600;
    // A file being replaced keeps its own permissions instead of `mode`.
    bool keepPermissions = false;
    // A symbolic link is followed, so that the file it names is replaced, not the link.
    bool followSymlinks = false;
};

// On failure, the step that failed, its error number, and the paths involved.
struct AtomicWriteFailure {
    enum class Step {
        create, // the temporary file could not be made
        write,  // its permissions, bytes, flush or close failed
        rename, // it could not take the target's place
    };
    Step step = Step::create;
    int error = 0;
    // The file replaced: the target, or with followSymlinks the file its link names.
    std::filesystem::path target;
    std::filesystem::path temporary;
};

// Replaces `file` with `bytes` through a temporary file in the same folder, flushed to
// disk and then renamed over it, so that a reader sees the old bytes or the new ones.
// A temporary file is never left behind.
std::optional<AtomicWriteFailure> writeAtomically(const std::filesystem::path& file,
                                                  std::string_view bytes,
                                                  const AtomicWrite& how = {});

} // namespace norrow::files
