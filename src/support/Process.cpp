#include "support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "support/CancelFlag.h"
#include "support/Errors.h"

extern char** environ;

namespace bc {

namespace {

struct Pipe {
    int read = -1, write = -1;
    Pipe() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            throw Error(std::string("Couldn't start a program: ") + std::strerror(errno));
        read = fds[0];
        write = fds[1];
    }
    ~Pipe() {
        closeRead();
        closeWrite();
    }
    void closeRead() {
        if (read >= 0) ::close(read);
        read = -1;
    }
    void closeWrite() {
        if (write >= 0) ::close(write);
        write = -1;
    }
};

int exitCode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int waitForExit(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return exitCode(status);
}

void killAndReap(pid_t pid) {
    ::kill(pid, SIGKILL);
    waitForExit(pid);
}

// Kills the child when the caller cancelled (throws) or the time-out passed (marks the result).
bool stoppedEarly(pid_t pid, const ProcessRequest& request,
                  std::chrono::steady_clock::time_point deadline, ProcessResult& result) {
    if (request.cancel && request.cancel->isCancelled()) {
        killAndReap(pid);
        throw CancelledError();
    }
    if (std::chrono::steady_clock::now() < deadline) return false;
    killAndReap(pid);
    result.timedOut = true;
    return true;
}

bool drain(int fd, std::string& into) {
    char buffer[65536];
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
        into.append(buffer, static_cast<size_t>(n));
        return true;
    }
    return n < 0 && (errno == EINTR || errno == EAGAIN);
}

}  // namespace

std::optional<std::string> findExecutable(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        if (::access(name.c_str(), X_OK) == 0) return name;
        return std::nullopt;
    }
    const char* path = std::getenv("PATH");
    std::stringstream folders(path ? path : "/usr/bin:/bin");
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        if (folder.empty()) continue;
        const auto candidate = std::filesystem::path(folder) / name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate.string();
    }
    return std::nullopt;
}

ProcessResult runProcess(const ProcessRequest& request) {
    // A child that exits before reading its input must not take this process down with it.
    static const bool ignoringBrokenPipes = [] {
        ::signal(SIGPIPE, SIG_IGN);
        return true;
    }();
    (void)ignoringBrokenPipes;
    const auto executable = findExecutable(request.executable);
    if (!executable)
        throw Error("Couldn't run " + request.executable + ": the program was not found.");

    Pipe input, output, error;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.read, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.write, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error.write, STDERR_FILENO);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(executable->c_str()));
    for (const auto& argument : request.arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    pid_t pid = 0;
    const int spawned =
        ::posix_spawn(&pid, executable->c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        throw Error("Couldn't run " + request.executable + ": " + std::strerror(spawned));

    input.closeRead();
    output.closeWrite();
    error.closeWrite();
    ::fcntl(input.write, F_SETFL, O_NONBLOCK);
    if (request.standardInput.empty()) input.closeWrite();

    ProcessResult result;
    size_t inputWritten = 0;
    const auto deadline =
        std::chrono::steady_clock::now() +
        std::chrono::milliseconds(static_cast<int64_t>(request.timeoutSeconds * 1000));
    bool outputOpen = true, errorOpen = true;
    while (outputOpen || errorOpen) {
        if (stoppedEarly(pid, request, deadline, result)) return result;
        std::array<pollfd, 3> fds{};
        nfds_t count = 0;
        if (outputOpen) fds[count++] = {output.read, POLLIN, 0};
        if (errorOpen) fds[count++] = {error.read, POLLIN, 0};
        if (input.write >= 0) fds[count++] = {input.write, POLLOUT, 0};
        if (::poll(fds.data(), count, 100) < 0 && errno != EINTR)
            throw Error(std::string("Couldn't run " + request.executable + ": ") +
                        std::strerror(errno));
        for (nfds_t i = 0; i < count; ++i) {
            if (!fds[i].revents) continue;
            if (fds[i].fd == output.read)
                outputOpen = drain(output.read, result.standardOutput);
            else if (fds[i].fd == error.read)
                errorOpen = drain(error.read, result.standardError);
            else {
                const ssize_t n = ::write(input.write, request.standardInput.data() + inputWritten,
                                          request.standardInput.size() - inputWritten);
                if (n > 0) inputWritten += static_cast<size_t>(n);
                if ((n < 0 && errno != EAGAIN && errno != EINTR) ||
                    inputWritten == request.standardInput.size())
                    input.closeWrite();
            }
        }
    }
    input.closeWrite();
    // The child may outlive its closed pipes; keep honouring the time-out and cancellation.
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            result.exitStatus = exitCode(status);
            return result;
        }
        if (done < 0 && errno != EINTR) return result;
        if (stoppedEarly(pid, request, deadline, result)) return result;
        ::usleep(10'000);
    }
}

}  // namespace bc
