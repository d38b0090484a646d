#include "cli/Cli.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace norrow::cli {

std::string readInput(const std::string& file) {
    if (file.empty() || file == "-") {
        return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + file + ": " + std::strerror(errno));
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void printJson(const nlohmann::ordered_json& value) {
    std::cout << value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n' << std::flush;
}

void printJson(const nlohmann::json& value) {
    std::cout << value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n' << std::flush;
}

int refuse(const std::string& description) {
    std::cerr << description << '\n' << std::flush;
    return refused;
}

} // namespace norrow::cli
