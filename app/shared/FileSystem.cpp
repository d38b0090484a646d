#include "app/shared/FileSystem.h"

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

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

} // namespace

std::string LocalFileSystem::read(const std::filesystem::path& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw failure("cannot read", file, errno);
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            throw failure("cannot read", file, error);
        }
        if (n == 0) break;
        text.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return text;
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
    bool written = writeAll(fd, bytes) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
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
    std::filesystem::path partial;
    for (const auto& component : folder) {
        partial /= component;
        if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST)
            throw failure("could not create the folder", partial, errno);
    }
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
        throw failure("could not create the folder", folder, ENOTDIR);
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
