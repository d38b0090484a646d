#include "support/Terminal.h"

#include "support/Eventually.h"
#include "support/Files.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace norrow::test {

namespace {

// `text` as one word for sh.
std::string quoted(const std::string& text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

// Whether a process of `group` still runs; zombies, which nobody may reap here, do not count.
bool running(pid_t group) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string pid = entry.path().filename();
        if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream in(entry.path() / "stat");
        std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const auto name = stat.rfind(')');
        if (name == std::string::npos) continue;
        char state = 0;
        int pgrp = 0;
        if (std::sscanf(stat.c_str() + name + 1, " %c %*d %d", &state, &pgrp) == 2 &&
            pgrp == group && state != 'Z')
            return true;
    }
    return false;
}

} // namespace

Terminal::Terminal(const std::vector<std::string>& argv, const Options& options)
    : socket_((options.folder / "tmux.socket").string()),
      errors_(options.folder / "program.stderr") {
    // env -i keeps the tmux server's own environment from the program; timeout stops a program
    // that outlives a crashed test, in the foreground so that it can read the terminal.
    std::vector<std::string> command = {"new-session", "-d", "-s", "main"};
    command.insert(command.end(), {"-x", std::to_string(options.columns)});
    command.insert(command.end(), {"-y", std::to_string(options.rows)});
    command.insert(command.end(), {"-c", options.workingDirectory.string(), "--", "env", "-i"});
    for (const auto& [name, value] : options.environment)
        command.push_back(name + "=" + value);
    std::string program = "exec";
    for (const auto& word : argv)
        program += " " + quoted(word);
    command.insert(command.end(), {"timeout", "--foreground", "--kill-after=5",
                                   std::to_string(options.lifetime.count()), "sh", "-c",
                                   program + " 2>>" + quoted(errors_.string())});
    const auto started = tmux(command);
    if (started.status != 0) throw std::runtime_error("tmux did not start: " + started.err);
    // Zero when the program has already ended and taken the server with it.
    group_ = std::atoi(tmux({"display-message", "-p", "-t", "main", "#{pane_pid}"}).out.c_str());
}

Terminal::~Terminal() {
    // The hangup lets the program finish its own way (Claude Code runs its SessionEnd hooks);
    // what still runs after that is killed, so that nothing writes into a removed folder.
    tmux({"kill-server"});
    if (group_ > 0 && !eventually([&] { return !running(group_); }, std::chrono::seconds(5))) {
        ::kill(-group_, SIGKILL);
        eventually([&] { return !running(group_); }, std::chrono::seconds(2));
    }
}

Finished Terminal::tmux(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"tmux", "-S", socket_, "-f", "/dev/null"});
    return run(arguments);
}

void Terminal::type(const std::string& text) {
    tmux({"send-keys", "-t", "main", "-l", "--", text});
}

void Terminal::press(const std::vector<std::string>& keys) {
    std::vector<std::string> arguments = {"send-keys", "-t", "main"};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    tmux(arguments);
}

std::string Terminal::screen() const {
    return tmux({"capture-pane", "-p", "-t", "main"}).out;
}

bool Terminal::waitFor(const std::string& text, std::chrono::milliseconds timeout) const {
    return eventually([&] { return screen().find(text) != std::string::npos; }, timeout);
}

std::string Terminal::errors() const {
    return contents(errors_);
}

} // namespace norrow::test
