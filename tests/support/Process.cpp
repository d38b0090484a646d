#include "support/Process.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace norrow::test {
namespace {

// A file in memory: a child's input or output of any size, with no pipe to keep flowing.
int memoryFile(const std::string& contents = {}) {
    const int fd = ::memfd_create("norrow-test", MFD_CLOEXEC);
    if (::pwrite(fd, contents.data(), contents.size(), 0) != static_cast<ssize_t>(contents.size()))
        throw std::runtime_error("could not create a memory file");
    return fd;
}

// Reads without moving the offset a running child writes at.
std::string contents(int fd) {
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = ::pread(fd, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
        text.append(buffer, static_cast<std::size_t>(n));
    return text;
}

pid_t spawn(const std::vector<std::string>& argv, const Environment& environment, int in, int out,
            int err) {
    const pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error("could not start " + argv[0]);
    if (pid != 0) return pid;
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(err, 2);
    for (const auto& [name, value] : environment)
        ::setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    ::execvp(args[0], args.data());
    ::_exit(127);
}

int waitFor(pid_t pid) {
    int raw = 0;
    ::waitpid(pid, &raw, 0);
    if (WIFEXITED(raw)) return WEXITSTATUS(raw);
    return WIFSIGNALED(raw) ? 128 + WTERMSIG(raw) : -1;
}

} // namespace

Finished run(const std::vector<std::string>& argv, const std::string& input,
             const Environment& environment) {
    const int in = memoryFile(input), out = memoryFile(), err = memoryFile();
    const Finished result{waitFor(spawn(argv, environment, in, out, err)), contents(out),
                          contents(err)};
    for (const int fd : {in, out, err})
        ::close(fd);
    return result;
}

Process::Process(const std::vector<std::string>& argv, const Environment& environment)
    : err_(memoryFile()) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("could not create a pipe");
    const int in = memoryFile();
    pid_ = spawn(argv, environment, in, out[1], err_);
    ::close(in);
    ::close(out[1]);
    out_ = out[0];
}

Process::~Process() {
    stop(SIGKILL);
    ::close(out_);
    ::close(err_);
}

std::optional<std::string> Process::readLine(std::chrono::milliseconds timeout) {
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + timeout;
    std::size_t eol;
    while ((eol = pending_.find('\n')) == std::string::npos) {
        const auto left =
            std::max(duration_cast<milliseconds>(deadline - steady_clock::now()), 0ms);
        pollfd fd{out_, POLLIN, 0};
        if (::poll(&fd, 1, static_cast<int>(left.count())) <= 0) return std::nullopt;
        char buffer[4096];
        const ssize_t n = ::read(out_, buffer, sizeof buffer);
        if (n <= 0) return std::nullopt;
        pending_.append(buffer, static_cast<std::size_t>(n));
    }
    std::string line = pending_.substr(0, eol);
    pending_.erase(0, eol + 1);
    return line;
}

int Process::stop(int signal) {
    if (!status_) {
        ::kill(pid_, signal);
        status_ = waitFor(pid_);
    }
    return *status_;
}

std::string Process::errors() const {
    return contents(err_);
}

} // namespace norrow::test
