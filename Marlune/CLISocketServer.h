#pragma once

#include "MarluneCLIProtocol/CLIRequest.h"
#include "MarluneCLIProtocol/CLIResponse.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace marlune {

class CLISocketServerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Who may speak to the server besides the token holder: the same user always; and, while
// `requireBundledTool` is on, only the `marlune` tool installed beside the application (the
// peer's executable must be that very file).
struct CLIPeerPolicy {
    bool requireBundledTool = true;
    std::filesystem::path bundledTool;
};

// Serves the command-line socket: one connection at a time on a thread of its own, one
// request frame in and one response frame out per connection. The handler is called on the
// server's thread; it must hand the request to the main thread itself.
class CLISocketServer {
public:
    using Handler = std::function<CLIResponse(const CLIRequest&)>;

    CLISocketServer(std::string path, std::string token, Handler handler, CLIPeerPolicy policy);
    ~CLISocketServer();
    CLISocketServer(const CLISocketServer&) = delete;
    CLISocketServer& operator=(const CLISocketServer&) = delete;

    // Probes for another instance, binds (mode 0600), listens and starts the accept loop.
    // Throws CLISocketServerError with the user-facing reason.
    void start();
    // Ends the accept loop and waits for it; the socket file stays (the next start replaces it).
    void stop();

    const std::string& path() const { return path_; }
    int listenFD() const { return listenFD_; }

    // How long a connected client may take to send its request or read its answer.
    std::chrono::milliseconds ioTimeout{3000};

private:
    void acceptLoop();
    void serve(int fd);
    bool peerAllowed(int fd) const;

    std::string path_;
    std::string token_;
    Handler handler_;
    CLIPeerPolicy policy_;
    int listenFD_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread queue_;
};

} // namespace marlune
