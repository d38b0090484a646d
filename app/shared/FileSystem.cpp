#include "app/shared/FileSystem.h"

#include "core/Files.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace norrow {
namespace {

std::runtime_error failure(const std::string& action, const std::filesystem::path& path,
                           int error) {
    return std::runtime_error(action + " " + path.string() + ": " + std::strerror(error));
}

} // namespace

std::string LocalFileSystem::read(const std::filesystem::path& file) {
    auto text = files::read(file);
    if (!text) throw failure("cannot read", file, errno);
    return std::move(*text);
}

void LocalFileSystem::write(const std::filesystem::path& file, std::string_view bytes) {
    const auto problem = files::writeAtomically(
        file, bytes,
        {.temporaryStem = {}, .mode = 0600, .keepAttributes = true, .followSymlinks = true});
    if (problem) throw failure("could not write", problem->target, problem->error);
}

void LocalFileSystem::makeFolders(const std::filesystem::path& folder) {
    if (const auto problem = files::makeFolders(folder, 0700))
        throw failure("could not create the folder", problem->path, problem->error);
}

void LocalFileSystem::setPermissions(const std::filesystem::path& file,
                                     std::filesystem::perms permissions) {
    std::error_code error;
    std::filesystem::permissions(file, permissions, error);
    if (error) throw failure("could not set the permissions of", file, error.value());
}

void LocalFileSystem::remove(const std::filesystem::path& path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

} // namespace norrow
