#include "support/Process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace norrow::test {
namespace {

struct Pipe {
    int read = -1;
    int write = -1;
    Pipe() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) == 0) read = fds[0], write = fds[1];
    }
};

pid_t spawn(const std::vector<std::string>& argv, const Environment& environment, Pipe& in,
            Pipe& out, Pipe& err) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    ::dup2(in.read, 0);
    ::dup2(out.write, 1);
    ::dup2(err.write, 2);
    for (const auto& [name, value] : environment) {
        if (value)
            ::setenv(name.c_str(), value->c_str(), 1);
        else
            ::unsetenv(name.c_str());
    }
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    ::execvp(args[0], args.data());
    ::_exit(127);
}

int decodeStatus(int raw) {
    if (WIFEXITED(raw)) return WEXITSTATUS(raw);
    if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
    return -1;
}

// Appends what is readable now; false at end of file.
bool drain(int fd, std::string& into) {
    char buffer[4096];
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) into.append(buffer, static_cast<std::size_t>(n));
    return n > 0 || (n < 0 && errno == EINTR);
}

} // namespace

Finished run(const std::vector<std::string>& argv, const std::string& input,
             const Environment& environment) {
    Pipe in, out, err;
    const pid_t pid = spawn(argv, environment, in, out, err);
    ::close(in.read);
    ::close(out.write);
    ::close(err.write);
    Finished result;
    std::size_t written = 0;
    int inFd = in.write;
    if (input.empty()) ::close(inFd), inFd = -1;
    bool outOpen = true, errOpen = true;
    while (outOpen || errOpen) {
        pollfd fds[3] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}, {inFd, POLLOUT, 0}};
        if (::poll(fds, inFd >= 0 ? 3 : 2, -1) < 0 && errno != EINTR) break;
        if (outOpen && (fds[0].revents & (POLLIN | POLLHUP))) outOpen = drain(out.read, result.out);
        if (errOpen && (fds[1].revents & (POLLIN | POLLHUP))) errOpen = drain(err.read, result.err);
        if (inFd >= 0 && (fds[2].revents & (POLLOUT | POLLERR))) {
            const ssize_t n = ::write(inFd, input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<std::size_t>(n);
            if (n < 0 || written == input.size()) ::close(inFd), inFd = -1;
        }
    }
    if (inFd >= 0) ::close(inFd);
    ::close(out.read);
    ::close(err.read);
    int raw = 0;
    ::waitpid(pid, &raw, 0);
    result.status = decodeStatus(raw);
    return result;
}

Process::Process(const std::vector<std::string>& argv, const Environment& environment) {
    Pipe in, out, err;
    pid_ = spawn(argv, environment, in, out, err);
    ::close(in.read);
    ::close(in.write);
    ::close(out.write);
    ::close(err.write);
    out_ = out.read;
    err_ = err.read;
    ::fcntl(err_, F_SETFL, O_NONBLOCK);
}

Process::~Process() {
    if (!status_) stop(SIGKILL);
    ::close(out_);
    ::close(err_);
}

std::optional<std::string> Process::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (const auto eol = pending_.find('\n'); eol != std::string::npos) {
            std::string line = pending_.substr(0, eol);
            pending_.erase(0, eol + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return std::nullopt;
        pollfd fd{out_, POLLIN, 0};
        if (::poll(&fd, 1, static_cast<int>(left.count())) <= 0) continue;
        if (!drain(out_, pending_)) return std::nullopt;
    }
}

int Process::stop(int signal) {
    if (status_) return *status_;
    ::kill(pid_, signal);
    int raw = 0;
    ::waitpid(pid_, &raw, 0);
    status_ = decodeStatus(raw);
    errors();
    return *status_;
}

std::string Process::errors() {
    while (drain(err_, errors_)) {
    }
    return errors_;
}

} // namespace norrow::test
