#include "app/shared/FileSystem.h"

#include "core/Files.h"

#include <cerrno>
#include <cstring>
#include <pwd.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace norrow {
namespace {

using Step = files::AtomicWriteFailure::Step;

std::runtime_error failure(const std::string& action, const std::filesystem::path& path,
                           int error) {
    return std::runtime_error(action + " " + path.string() + ": " + std::strerror(error));
}

files::AtomicWrite userFile() {
    return {.temporaryStem = {}, .mode = 0600, .keepAttributes = true, .followSymlinks = true};
}

// Throws for a failed write; false when the file no longer held the expected bytes.
bool written(const std::optional<files::AtomicWriteFailure>& problem) {
    if (!problem) return true;
    if (problem->step == Step::changed) return false;
    if (problem->step == Step::owner)
        throw std::runtime_error("could not keep the owner and group of " +
                                 problem->target.string() + " (" + std::strerror(problem->error) +
                                 "), so it was left as it is. Run Norrow as the user it belongs "
                                 "to, then try again.");
    throw failure("could not write", problem->target, problem->error);
}

std::string userName(uid_t uid) {
    passwd entry{};
    passwd* found = nullptr;
    char buffer[4096];
    if (::getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr)
        return found->pw_name;
    return "user " + std::to_string(uid);
}

} // namespace

std::string LocalFileSystem::read(const std::filesystem::path& file) {
    auto text = files::read(file);
    if (!text) throw failure("cannot read", file, errno);
    return std::move(*text);
}

void LocalFileSystem::write(const std::filesystem::path& file, std::string_view bytes) {
    written(files::writeAtomically(file, bytes, userFile()));
}

bool LocalFileSystem::replace(const std::filesystem::path& file, std::string_view expected,
                              std::string_view bytes) {
    auto how = userFile();
    how.keepLinks = true;
    how.expected = expected;
    return written(files::writeAtomically(file, bytes, how));
}

std::optional<std::string> LocalFileSystem::reasonToLeaveAlone(const std::filesystem::path& file) {
    struct stat info {};
    // A file that cannot be examined is left to the read or the write to report.
    if (::stat(file.c_str(), &info) != 0) return std::nullopt;
    const std::string name = file.string();
    if ((info.st_mode & S_IWUSR) == 0)
        return name + " is read-only, so Norrow leaves it as it is. To let Norrow change it, " +
               "make it writable (chmod u+w " + name + "), then try again.";
    if (info.st_uid != ::geteuid()) {
        const std::string owner = userName(info.st_uid);
        return name + " belongs to " + owner + ", but Norrow is running as " +
               userName(::geteuid()) + ", so Norrow leaves it as it is. Run Norrow as " + owner +
               " instead, so that the file and Norrow's own files stay theirs.";
    }
    return std::nullopt;
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
