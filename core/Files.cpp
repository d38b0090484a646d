#include "core/Files.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace norrow::files {
namespace {

using Step = AtomicWriteFailure::Step;

// What mkostemp replaces with six letters and digits.
constexpr std::string_view uniqueSuffix = ".XXXXXX";
// Creating a temporary file is retried this often when another writer removed it as
// abandoned before it could be locked.
constexpr int creationAttempts = 3;

// The rest of the file from the descriptor's position; none on an error, errno set.
std::optional<std::string> readAll(int fd) {
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) return text;
        text.append(buffer, static_cast<std::size_t>(n));
    }
}

bool isTemporaryOf(std::string_view name, std::string_view stem) {
    if (name.size() != stem.size() + uniqueSuffix.size() || !name.starts_with(stem) ||
        name[stem.size()] != '.')
        return false;
    return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(stem.size()) + 1, name.end(),
                       [](unsigned char c) { return std::isalnum(c) != 0; });
}

// Whether `path` still names the file open as `fd`.
bool names(const std::filesystem::path& path, int fd) {
    struct stat byName {};
    struct stat byDescriptor {};
    return ::lstat(path.c_str(), &byName) == 0 && ::fstat(fd, &byDescriptor) == 0 &&
           byName.st_dev == byDescriptor.st_dev && byName.st_ino == byDescriptor.st_ino;
}

// A writer holds a lock on its temporary file until the file has taken the target's place,
// so one that nobody holds was left by a writer that was killed.
void removeAbandoned(const std::filesystem::path& folder, std::string_view stem) {
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        const auto& path = it->path();
        if (!isTemporaryOf(path.filename().string(), stem)) continue;
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd < 0) continue;
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && names(path, fd)) ::unlink(path.c_str());
        ::close(fd);
    }
}

// A new temporary file made from `pattern`, which becomes its name, and locked; -1 with
// errno set when none could be made, the pattern left as it was.
int createTemporary(std::string& pattern) {
    const std::string unique = pattern;
    int error = EAGAIN;
    for (int attempt = 0; attempt < creationAttempts; ++attempt) {
        pattern = unique;
        const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
        if (fd < 0) {
            error = errno;
            break;
        }
        // Where the file system has no locks, no other writer can take the file either.
        if (::flock(fd, LOCK_EX) != 0 || names(pattern, fd)) return fd;
        ::close(fd);
    }
    pattern = unique;
    errno = error;
    return -1;
}

std::optional<AtomicWriteFailure> failed(AtomicWriteFailure failure, Step step, int error) {
    failure.step = step;
    failure.error = step == Step::changed ? 0 : error;
    return failure;
}

// Keeps the file's inode, and so its other hard links, at the price of atomicity.
std::optional<AtomicWriteFailure> rewriteInPlace(std::string_view bytes, const AtomicWrite& how,
                                                 const AtomicWriteFailure& failure) {
    const int fd = ::open(failure.target.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return failed(failure, Step::write, errno);
    std::optional<Step> step;
    if (how.expected && readAll(fd) != *how.expected)
        step = Step::changed;
    else if (::lseek(fd, 0, SEEK_SET) != 0 || !writeAll(fd, bytes) ||
             ::ftruncate(fd, static_cast<off_t>(bytes.size())) != 0 || ::fsync(fd) != 0)
        step = Step::write;
    const int error = errno;
    ::close(fd);
    if (!step) return std::nullopt;
    return failed(failure, *step, error);
}

} // namespace

std::optional<std::string> read(const std::filesystem::path& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    auto text = readAll(fd);
    const int error = errno;
    ::close(fd);
    errno = error;
    return text;
}

std::optional<std::string> readPrefix(const std::filesystem::path& file, std::size_t limit) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return std::nullopt;
    std::string bytes(limit, '\0');
    std::size_t count = 0;
    while (count < limit) {
        const ssize_t n = ::read(fd, bytes.data() + count, limit - count);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN) {
            ::close(fd);
            return std::nullopt;
        }
        if (n <= 0) break;
        count += static_cast<std::size_t>(n);
    }
    ::close(fd);
    bytes.resize(count);
    return bytes;
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
    struct stat existing {};
    const bool exists = ::stat(target.c_str(), &existing) == 0;
    const std::string stem =
        how.temporaryStem.empty() ? "." + target.filename().string() : how.temporaryStem;
    removeAbandoned(target.parent_path(), stem);
    AtomicWriteFailure failure{Step::create, 0, target, {}};
    if (how.keepLinks && exists && existing.st_nlink > 1)
        return rewriteInPlace(bytes, how, failure);

    std::string temporary = (target.parent_path() / (stem + std::string(uniqueSuffix))).string();
    const int fd = createTemporary(temporary);
    const int creationError = errno;
    failure.temporary = temporary;
    if (fd < 0) return failed(failure, Step::create, creationError);

    const bool keep = how.keepAttributes && exists;
    const auto step = [&]() -> std::optional<Step> {
        struct stat created {};
        if (keep && (::fstat(fd, &created) != 0 ||
                     ((created.st_uid != existing.st_uid || created.st_gid != existing.st_gid) &&
                      ::fchown(fd, existing.st_uid, existing.st_gid) != 0)))
            return Step::owner;
        if (::fchmod(fd, keep ? existing.st_mode & 07777 : how.mode) != 0 || !writeAll(fd, bytes) ||
            ::fsync(fd) != 0)
            return Step::write;
        if (how.expected && read(target) != *how.expected) return Step::changed;
        if (::rename(temporary.c_str(), target.c_str()) != 0) return Step::rename;
        return std::nullopt;
    }();
    const int error = errno;
    // Closed only now, so that the lock lasts until the temporary file is gone; its bytes
    // were flushed to disk before the rename.
    if (step) ::unlink(temporary.c_str());
    ::close(fd);
    if (!step) return std::nullopt;
    return failed(failure, *step, error);
}

} // namespace norrow::files
