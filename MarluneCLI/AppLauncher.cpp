#include "MarluneCLI/AppLauncher.h"

#include "MarluneCLIProtocol/CLIErrorCode.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace marlune {

std::filesystem::path AppLauncher::besideTool() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return appName;
    }
    return self.parent_path() / appName;
}

std::variant<pid_t, CLIErrorPayload> AppLauncher::start(const std::filesystem::path& app,
                                                        bool headless) {
    if (::access(app.c_str(), X_OK) != 0) {
        return CLIErrorPayload{std::string(CLIErrorCode::appUnavailable),
                               "Marlune isn't running, and " + std::string(appName) +
                                   " was not found at " + app.string() + ".",
                               "Start Marlune yourself, then try again."};
    }
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null",
                                         fd == STDIN_FILENO ? O_RDONLY : O_WRONLY, 0);
    }
    // A session of its own: closing the tool's terminal must not take the application down.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);

    std::string path = app.string();
    std::string headlessFlag = "--headless";
    std::vector<char*> argv{path.data()};
    if (headless) {
        argv.push_back(headlessFlag.data());
    }
    argv.push_back(nullptr);

    pid_t pid = 0;
    const int status = posix_spawn(&pid, path.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (status != 0) {
        return CLIErrorPayload{std::string(CLIErrorCode::appUnavailable),
                               "Could not start " + path + ": " + std::strerror(status) + ".",
                               "Start Marlune yourself, then try again."};
    }
    return pid;
}

std::optional<int> AppLauncher::endedStatus(pid_t pid) {
    int status = 0;
    const pid_t ended = ::waitpid(pid, &status, WNOHANG);
    if (ended != pid) {
        return std::nullopt;
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return 128 + WTERMSIG(status);
}

} // namespace marlune
