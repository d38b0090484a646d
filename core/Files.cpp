#include "core/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
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

std::optional<FolderFailure> makePrivateFolder(const std::filesystem::path& folder) {
    if (auto failure = makeFolders(folder, 0700)) return failure;
    if (::chmod(folder.c_str(), 0700) != 0) return FolderFailure{folder, errno};
    return std::nullopt;
}

std::optional<AtomicWriteFailure> writeAtomically(const std::filesystem::path& file,
                                                  std::string_view bytes, const AtomicWrite& how) {
    std::filesystem::path target = file;
    if (std::error_code error; how.followSymlinks && std::filesystem::is_symlink(file, error)) {
        if (auto linked = std::filesystem::canonical(file, error); !error)
            target = std::move(linked);
    }
    mode_t mode = how.mode;
    if (struct stat info{}; how.keepPermissions && ::stat(target.c_str(), &info) == 0)
        mode = info.st_mode & 07777;

    using Step = AtomicWriteFailure::Step;
    AtomicWriteFailure failure{Step::create, 0, target, {}};
    int fd = -1;
    if (how.temporaryName.empty()) {
        std::string pattern =
            (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
        fd = ::mkostemp(pattern.data(), O_CLOEXEC);
        failure.temporary = pattern;
    } else {
        // A fixed name may be left over from an interrupted write.
        failure.temporary = target.parent_path() / how.temporaryName;
        ::unlink(failure.temporary.c_str());
        fd = ::open(failure.temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    }
    if (fd < 0) {
        failure.error = errno;
        return failure;
    }

    bool written = ::fchmod(fd, mode) == 0 && writeAll(fd, bytes) && ::fsync(fd) == 0;
    int error = written ? 0 : errno;
    if (::close(fd) != 0 && written) {
        written = false;
        error = errno;
    }
    if (written && ::rename(failure.temporary.c_str(), target.c_str()) == 0) return std::nullopt;
    failure.step = written ? Step::rename : Step::write;
    failure.error = written ? errno : error;
    ::unlink(failure.temporary.c_str());
    return failure;
}

} // namespace norrow::files
