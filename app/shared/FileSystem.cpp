#include "app/shared/FileSystem.h"

#include "core/Files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

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
    std::error_code linkError;
    std::filesystem::path target = file;
    if (std::filesystem::is_symlink(file, linkError)) {
        if (auto linked = std::filesystem::canonical(file, linkError); !linkError)
            target = std::move(linked);
    }
    mode_t mode = 0600;
    if (struct stat info{}; ::stat(target.c_str(), &info) == 0) mode = info.st_mode & 07777;

    std::string temporary =
        (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) throw failure("could not write", target, errno);
    bool written = files::writeAll(fd, bytes) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
    int error = written ? 0 : errno;
    if (::close(fd) != 0 && written) {
        written = false;
        error = errno;
    }
    if (!written) {
        ::unlink(temporary.c_str());
        throw failure("could not write", target, error);
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0) {
        const int renameError = errno;
        ::unlink(temporary.c_str());
        throw failure("could not write", target, renameError);
    }
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
