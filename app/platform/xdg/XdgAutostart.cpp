// Linux: Norrow's own entry in the XDG autostart folder.
#include "app/shared/Autostart.h"
#include "app/shared/FileSystem.h"

#include <QDir>
#include <QFile>
#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;

// Norrow's launcher entry with the program left open, carried as a resource.
constexpr const char* entryTemplate = ":/autostart.desktop";
constexpr std::string_view tryExecKey = "TryExec=";

// $XDG_CONFIG_HOME when it is an absolute path (the XDG rule), else ~/.config.
fs::path configFolder() {
    const char* configured = std::getenv("XDG_CONFIG_HOME");
    if (configured && fs::path(configured).is_absolute()) return configured;
    return fs::path(QDir::homePath().toStdString()) / ".config";
}

// A desktop entry's string value: a backslash is written twice.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\') out += '\\';
        out += c;
    }
    return out;
}

std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '\\') ++i;
        out += text[i];
    }
    return out;
}

// The program as the one word of an Exec line: quoted when it holds a character that the
// launcher would otherwise read, with a percent sign doubled since it starts a field code.
std::string execWord(const std::string& program) {
    constexpr std::string_view reserved = " \t\"'\\><~|&;$*?#()`";
    std::string word;
    for (const char c : program) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') word += '\\';
        if (c == '%') word += '%';
        word += c;
    }
    const bool quote = program.find_first_of(reserved) != std::string::npos;
    return escaped(quote ? '"' + word + '"' : word);
}

std::string replaced(std::string text, std::string_view placeholder, const std::string& value) {
    if (const auto at = text.find(placeholder); at != std::string::npos)
        text.replace(at, placeholder.size(), value);
    return text;
}

// Norrow's own entry for `program`.
std::string entryFor(const fs::path& program) {
    QFile resource(entryTemplate);
    if (!resource.open(QIODevice::ReadOnly))
        throw std::runtime_error("the autostart entry is missing from Norrow's resources");
    const std::string text = resource.readAll().toStdString();
    // The Exec line follows the TryExec line, so filling it in first keeps a program path that
    // happens to hold a placeholder from being taken for one.
    return replaced(replaced(text, "{exec}", execWord(program.string())), "{tryexec}",
                    escaped(program.string()));
}

// The program that `text` starts when Norrow wrote it exactly so.
std::optional<fs::path> programOf(const std::string& text) {
    const auto key = text.find("\n" + std::string(tryExecKey));
    if (key == std::string::npos) return std::nullopt;
    const auto start = key + 1 + tryExecKey.size();
    const auto end = text.find('\n', start);
    const fs::path program = unescaped(std::string_view(text).substr(start, end - start));
    if (!program.is_absolute() || entryFor(program) != text) return std::nullopt;
    return program;
}

bool usable(const fs::path& program) {
    const auto text = program.string();
    return program.is_absolute() && std::none_of(text.begin(), text.end(), [](char c) {
               return static_cast<unsigned char>(c) < 0x20;
           });
}

} // namespace

Autostart::Autostart() : location_(configFolder() / "autostart" / "com.qelvane.Norrow.desktop") {}

Autostart::Status Autostart::status() const {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(location_, error))) return {State::off, location_, {}};
    const auto program = programOf(LocalFileSystem().read(location_));
    return {program ? State::on : State::editedByHand, location_, program};
}

Autostart::Change Autostart::enable(const fs::path& program) {
    if (!usable(program)) throw AutostartError::unusableProgramPath(program);
    if (::access(program.c_str(), X_OK) != 0 || fs::is_directory(program))
        throw AutostartError::programMissing(program);
    const auto now = status();
    if (now.state == State::editedByHand) throw AutostartError::editedByHand(location_);
    if (now.program == program) return Change::alreadySo;
    LocalFileSystem files;
    files.makeFolders(location_.parent_path());
    files.write(location_, entryFor(program));
    return Change::made;
}

Autostart::Change Autostart::disable() {
    const auto now = status();
    if (now.state == State::off) return Change::alreadySo;
    if (now.state == State::editedByHand) throw AutostartError::editedByHand(location_);
    std::error_code error;
    if (!fs::remove(location_, error) && error)
        throw std::runtime_error("could not remove " + location_.string() + ": " + error.message());
    return Change::made;
}

fs::path Autostart::defaultProgram() {
    std::error_code error;
    const auto self = fs::read_symlink("/proc/self/exe", error);
    return (error ? fs::path("/usr/bin") : self.parent_path()) / "norrow";
}

} // namespace norrow
