#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>

namespace norrow::test {

// The whole file; empty when it cannot be read.
inline std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Writes `text` as the whole file, making its folder first.
inline void put(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

// The permission bits of a file or folder, a link followed.
inline unsigned mode(const std::filesystem::path& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return info.st_mode & 07777;
}

// The status of a file, a link followed.
inline struct stat status(const std::filesystem::path& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return info;
}

} // namespace norrow::test
