#pragma once

#include "MarluneCLIProtocol/CLIRequest.h"
#include "MarluneCLIProtocol/CLIResponse.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <list>
#include <mutex>
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

// Serves the command-line socket: one request frame in and one response frame out per
// connection. Each connection is read on a thread of its own, so that a client that sends
// slowly holds up nobody but itself. The handler is called on those threads, possibly several
// at once; it must hand the request to the main thread itself.
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
    // Ends the accept loop and every connection, and waits for their threads; the socket file
    // stays (the next start replaces it). A connection waiting on the handler ends when the
    // handler returns.
    void stop();

    const std::string& path() const { return path_; }
    int listenFD() const { return listenFD_; }

    // How long a connected client has to send its whole request, and again to take its whole
    // answer: the tool sends at once, so a request still arriving after this never will.
    std::chrono::milliseconds requestTimeout{3000};

    // Connections read at the same time; more wait in the listen backlog until one ends. Each
    // may hold a request and an answer of up to a frame's size.
    static constexpr std::size_t maxConnections = 16;

private:
    struct Connection {
        int fd = -1; // -1 once closed
        bool done = false;
        std::thread thread;
    };

    void acceptLoop();
    void serve(int fd);
    bool peerAllowed(int fd) const;
    // Joins the threads of connections that have ended; called with mutex_ held.
    void reapFinished();

    std::string path_;
    std::string token_;
    Handler handler_;
    CLIPeerPolicy policy_;
    int listenFD_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread acceptor_;
    std::mutex mutex_;
    std::condition_variable connectionEnded_;
    std::list<Connection> connections_;
};

} // namespace marlune
