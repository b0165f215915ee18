#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace marlune::test {

struct ProcessResult {
    int exitStatus = -1; // the exit code, or 128 + signal
    std::string out;
    std::string err;
};

// Runs a program to completion with extra environment variables, capturing both streams.
// Standard input is /dev/null unless `input` is given.
ProcessResult runProcess(const std::vector<std::string>& argv,
                         const std::map<std::string, std::string>& environment = {},
                         const std::optional<std::string>& input = std::nullopt,
                         std::chrono::milliseconds timeout = std::chrono::seconds(30));

// A program left running in the background; ended (SIGTERM, then SIGKILL) by its PID when
// the value dies. Its output goes to a log file kept for failure messages.
class BackgroundProcess {
public:
    BackgroundProcess(const std::vector<std::string>& argv,
                      const std::map<std::string, std::string>& environment,
                      std::filesystem::path logFile);
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    pid_t pid() const { return pid_; }
    bool running();
    // Sends SIGTERM and waits; returns the exit status (or 128 + signal).
    int stop(std::chrono::milliseconds grace = std::chrono::seconds(5));
    std::string log() const;

private:
    pid_t pid_ = -1;
    std::optional<int> status_;
    std::filesystem::path logFile_;
};

// Waits until `path` exists as a socket that accepts a connection.
bool waitForSocket(const std::filesystem::path& path, std::chrono::milliseconds timeout);

} // namespace marlune::test
