#include "core/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace norrow::files {

std::optional<std::string> read(const std::filesystem::path& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            errno = error;
            return std::nullopt;
        }
        if (n == 0) break;
        text.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return text;
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

std::optional<FolderFailure> makeFolders(const std::filesystem::path& folder, mode_t mode) {
    std::filesystem::path partial;
    for (const auto& component : folder) {
        partial /= component;
        if (::mkdir(partial.c_str(), mode) != 0 && errno != EEXIST)
            return FolderFailure{partial, errno};
    }
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return FolderFailure{folder, ENOTDIR};
    return std::nullopt;
}

} // namespace norrow::files
