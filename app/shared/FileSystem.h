#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace norrow {

// The few file operations the setup flow needs, behind an interface so that tests can make
// them fail. Failures throw std::runtime_error whose text is meant for the user.
class FileSystem {
public:
    virtual ~FileSystem() = default;

    virtual std::string read(const std::filesystem::path& file) = 0;
    // Replaces the file atomically, so a reader sees the old bytes or the new ones.
    virtual void write(const std::filesystem::path& file, std::string_view bytes) = 0;
    // Replaces the user's file as `write` does, but only while it still holds `expected`:
    // false, with nothing written, when another program has changed it since.
    virtual bool replace(const std::filesystem::path& file, std::string_view expected,
                         std::string_view bytes) = 0;
    // Why the user's file is to be left as it is, in words for the user; none when it may
    // be edited.
    virtual std::optional<std::string> reasonToLeaveAlone(const std::filesystem::path& file) = 0;
    // Creates the folder and any missing parents, readable by their owner only.
    virtual void makeFolders(const std::filesystem::path& folder) = 0;
    virtual void setPermissions(const std::filesystem::path& file,
                                std::filesystem::perms permissions) = 0;
    // Deletes a file, or a folder with everything in it; failures are ignored.
    virtual void remove(const std::filesystem::path& path) = 0;
};

// The machine's own files. `write` goes through a temporary file in the same folder and a
// rename; a replaced file keeps its permissions, owner and group, a new one is private to
// its owner, and a symbolic link is followed so that the file it names is replaced rather
// than the link. `replace` also keeps a file's other hard links, by rewriting it in place.
// A file that its owner made read-only, or that belongs to someone else, is left alone.
class LocalFileSystem : public FileSystem {
public:
    std::string read(const std::filesystem::path& file) override;
    void write(const std::filesystem::path& file, std::string_view bytes) override;
    bool replace(const std::filesystem::path& file, std::string_view expected,
                 std::string_view bytes) override;
    std::optional<std::string> reasonToLeaveAlone(const std::filesystem::path& file) override;
    void makeFolders(const std::filesystem::path& folder) override;
    void setPermissions(const std::filesystem::path& file,
                        std::filesystem::perms permissions) override;
    void remove(const std::filesystem::path& path) override;
};

} // namespace norrow
