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

} // namespace norrow::files
