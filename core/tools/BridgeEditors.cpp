// Build tool: writes the bridge script from its template, with the awk function bundleFor
// written from the editor table in place of the marker line, so that the script and the app
// cannot disagree about which editor an executable belongs to.
//
// Usage: norrow_bridge_editors TEMPLATE OUTPUT

#include "core/Files.h"
#include "core/KnownEditors.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using namespace norrow;

// The template's line that the function replaces, with the line feeds around it.
constexpr std::string_view kMarker = "\n#:known-editors\n";

// An awk string literal. The awk program stands in single quotes in the shell script, where
// a single quote cannot appear at all.
std::string literal(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '\'') throw std::invalid_argument("a single quote in " + std::string(text));
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out + '"';
}

// The awk twin of editors::identifierForExecutable; the bridge runs it with LC_ALL=C, so
// tolower changes ASCII letters only, as the C++ does.
std::string bundleFor() {
    std::string awk = "function bundleFor(path,    lower, name, stem) {\n"
                      "    lower = tolower(path)\n"
                      "    name = lower\n"
                      "    sub(/.*\\//, \"\", name)\n";
    for (const editors::Editor& editor : editors::table()) {
        awk += "    if (";
        for (const std::string_view executable : editor.executables)
            awk += "name == " + literal(executable) + " || ";
        awk += "index(lower, " + literal(editors::applicationFolderInPath(editor)) + ")) return " +
               literal(editor.identifier) + "\n";
    }
    awk += "    stem = name\n"
           "    sub(/\\.sh$/, \"\", stem)\n"
           "    sub(/64$/, \"\", stem)\n"
           "    if (!(";
    std::string separator;
    for (const std::string_view marker : editors::jetBrainsPathMarkers()) {
        awk += separator + "index(lower, " + literal(marker) + ")";
        separator = " || ";
    }
    for (const editors::JetBrainsIde& ide : editors::jetBrainsIdes())
        if (ide.launcher) awk += " || stem == " + literal(ide.word);
    awk += ")) return \"\"\n";
    for (const editors::JetBrainsIde& ide : editors::jetBrainsIdes())
        awk += "    if (index(lower, " + literal(ide.word) + ")) return " +
               literal(ide.identifier) + "\n";
    return awk + "    return \"\"\n}\n";
}

void write(const char* templatePath, const char* outputPath) {
    const auto read = files::read(templatePath);
    if (!read) throw std::runtime_error(std::string("cannot read ") + templatePath);
    std::string script = *read;
    const auto at = script.find(kMarker);
    if (at == std::string::npos)
        throw std::runtime_error(std::string(templatePath) + " has no line #:known-editors");
    script.replace(at + 1, kMarker.size() - 1, bundleFor());
    std::ofstream out(outputPath, std::ios::binary | std::ios::trunc);
    out << script;
    out.close();
    if (!out) throw std::runtime_error(std::string("cannot write ") + outputPath);
    namespace fs = std::filesystem;
    fs::permissions(outputPath, fs::perms::owner_all | fs::perms::group_read |
                                    fs::perms::group_exec | fs::perms::others_read |
                                    fs::perms::others_exec);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: norrow_bridge_editors TEMPLATE OUTPUT\n";
        return 2;
    }
    try {
        write(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::cerr << "norrow_bridge_editors: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
