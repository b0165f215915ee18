#include "support/Process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace marlune::test {

namespace {

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& extra) {
    std::map<std::string, std::string> all;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        const auto eq = entry.find('=');
        if (eq != std::string::npos) {
            all[entry.substr(0, eq)] = entry.substr(eq + 1);
        }
    }
    for (const auto& [key, value] : extra) {
        if (value.empty()) {
            all.erase(key); // an empty value unsets the variable
        } else {
            all[key] = value;
        }
    }
    std::vector<std::string> out;
    for (const auto& [key, value] : all) {
        out.push_back(key + "=" + value);
    }
    return out;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) {
        out.push_back(s.data());
    }
    out.push_back(nullptr);
    return out;
}

int decodeStatus(int status) {
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    return -1;
}

} // namespace

ProcessResult runProcess(const std::vector<std::string>& argv,
                         const std::map<std::string, std::string>& environment,
                         const std::optional<std::string>& input, std::chrono::milliseconds timeout) {
    int outPipe[2];
    int errPipe[2];
    int inPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0 ||
        ::pipe2(inPipe, O_CLOEXEC) != 0) {
        return {};
    }
    auto env = mergedEnvironment(environment);
    auto args = argv;
    auto envp = pointers(env);
    auto argp = pointers(args);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(inPipe[0], 0);
        ::dup2(outPipe[1], 1);
        ::dup2(errPipe[1], 2);
        ::execve(argp[0], argp.data(), envp.data());
        ::_exit(127);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    ::close(inPipe[0]);
    if (input) {
        std::size_t written = 0;
        while (written < input->size()) {
            const auto n = ::write(inPipe[1], input->data() + written, input->size() - written);
            if (n <= 0) {
                break;
            }
            written += static_cast<std::size_t>(n);
        }
    }
    ::close(inPipe[1]);

    ProcessResult result;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    int open = 2;
    char buffer[65536];
    while (open > 0 && std::chrono::steady_clock::now() < deadline) {
        if (::poll(fds, 2, 100) <= 0) {
            continue;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && (fds[i].revents & (POLLIN | POLLHUP)) != 0) {
                const auto n = ::read(fds[i].fd, buffer, sizeof buffer);
                if (n <= 0) {
                    ::close(fds[i].fd);
                    fds[i].fd = -1;
                    --open;
                } else {
                    (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
                }
            }
        }
    }
    if (open > 0) {
        ::kill(pid, SIGKILL);
        for (auto& fd : fds) {
            if (fd.fd >= 0) {
                ::close(fd.fd);
            }
        }
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    result.exitStatus = decodeStatus(status);
    return result;
}

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& argv,
                                     const std::map<std::string, std::string>& environment,
                                     std::filesystem::path logFile)
    : logFile_(std::move(logFile)) {
    auto env = mergedEnvironment(environment);
    auto args = argv;
    auto envp = pointers(env);
    auto argp = pointers(args);
    const int log = ::open(logFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    pid_ = ::fork();
    if (pid_ == 0) {
        const int null = ::open("/dev/null", O_RDONLY);
        ::dup2(null, 0);
        ::dup2(log, 1);
        ::dup2(log, 2);
        ::execve(argp[0], argp.data(), envp.data());
        ::_exit(127);
    }
    ::close(log);
}

BackgroundProcess::~BackgroundProcess() {
    if (pid_ > 0 && !status_) {
        stop(std::chrono::seconds(5));
    }
}

bool BackgroundProcess::running() {
    if (status_) {
        return false;
    }
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = decodeStatus(status);
        return false;
    }
    return true;
}

int BackgroundProcess::stop(std::chrono::milliseconds grace) {
    if (status_) {
        return *status_;
    }
    ::kill(pid_, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + grace;
    while (std::chrono::steady_clock::now() < deadline) {
        if (!running()) {
            return *status_;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    status_ = decodeStatus(status);
    return *status_;
}

std::string BackgroundProcess::log() const {
    std::ifstream in(logFile_);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool waitForSocket(const std::filesystem::path& path, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        const bool up = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        ::close(fd);
        if (up) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

} // namespace marlune::test
