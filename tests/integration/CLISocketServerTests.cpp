#include "Marlune/CLIListener.h"
#include "Marlune/CLISocketServer.h"
#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCore/Log.h"
#include "support/LibraryFixture.h"
#include "support/MainQueue.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using test::MainQueue;
using test::TempDir;

const std::string token(64, 'a');

// A raw client: connects, sends exactly `bytes`, optionally half-closes, reads the answer.
struct RawClient {
    static int connectTo(const std::string& path) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ::close(fd);
            return -1;
        }
        return fd;
    }

    static std::optional<CLIResponse> exchange(const std::string& path, const std::string& bytes) {
        const int fd = connectTo(path);
        if (fd < 0) {
            return std::nullopt;
        }
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const auto n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) {
                break;
            }
            sent += static_cast<std::size_t>(n);
        }
        std::string answer;
        char buffer[65536];
        for (;;) {
            const auto n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) {
                break;
            }
            answer.append(buffer, static_cast<std::size_t>(n));
        }
        ::close(fd);
        if (answer.size() < 4) {
            return std::nullopt;
        }
        return CLIResponse::decode(std::string_view(answer).substr(4));
    }
};

std::string frame(const std::string& payload) {
    return std::get<std::string>(CLIWire::encodeFrame(payload));
}

std::string requestJSON(std::int64_t v, const std::string& presentedToken,
                        const std::string& command, const std::string& argsJSON = "{}") {
    nlohmann::json request = {{"v", v},
                              {"token", presentedToken},
                              {"command", command},
                              {"argsJSON", CLIBase64::encode(argsJSON)}};
    return request.dump();
}

// Answered with a result too large for any frame.
const std::string hugeCommand = "data.export";

// A server on a real socket in a private directory, answering "echo" on the test's thread.
class ServerFixture : public ::testing::Test {
protected:
    void startServer(CLIPeerPolicy policy = {false, {}},
                     std::chrono::milliseconds timeout = std::chrono::milliseconds(3000)) {
        path = (dir / "marlune.sock").string();
        server = std::make_unique<CLISocketServer>(
            path, token,
            [this](const CLIRequest& request) {
                auto promise = std::make_shared<std::promise<CLIResponse>>();
                auto future = promise->get_future();
                queue.post([request, promise] {
                    if (request.command == hugeCommand) {
                        // Over the frame limit once in Base64.
                        promise->set_value(CLIResponse::success(
                            "\"" + std::string(std::size_t{13} << 20, 'x') + "\""));
                        return;
                    }
                    promise->set_value(CLIResponse::success(nlohmann::json{
                        {"command", request.command},
                        {"size", request.argsJSON.size()}}.dump()));
                });
                return future.get();
            },
            std::move(policy));
        server->requestTimeout = timeout;
        server->start();
    }

    // Runs the client on a thread while the test's thread serves the main queue.
    std::optional<CLIResponse> send(const std::string& bytes) {
        std::promise<std::optional<CLIResponse>> done;
        auto future = done.get_future();
        std::thread client([&] { done.set_value(RawClient::exchange(path, bytes)); });
        auto response = queue.runUntil(future);
        client.join();
        return response;
    }

    TempDir dir;
    std::string path;
    MainQueue queue;
    std::unique_ptr<CLISocketServer> server;
};

struct BadInput {
    const char* name;
    std::function<std::string()> bytes;
    const char* code;
    const char* message;
};

class CLIServerRefuses : public ServerFixture, public ::testing::WithParamInterface<BadInput> {};

TEST_P(CLIServerRefuses, BadInputIsAnsweredAndTheNextClientIsServed) {
    startServer();
    const auto response = send(GetParam().bytes());
    ASSERT_TRUE(response) << "no answer frame";
    EXPECT_FALSE(response->ok);
    ASSERT_TRUE(response->error);
    EXPECT_EQ(response->error->code, GetParam().code);
    EXPECT_EQ(response->error->message, GetParam().message);
    const auto next = send(frame(requestJSON(1, token, "echo")));
    ASSERT_TRUE(next);
    EXPECT_TRUE(next->ok) << "the server must keep serving after a bad client";
}

INSTANTIATE_TEST_SUITE_P(
    Frames, CLIServerRefuses,
    ::testing::Values(
        BadInput{"ThreeByteHeader", [] { return std::string("\0\0\0", 3); }, "E_USAGE",
                 "Malformed request."},
        BadInput{"HeaderOverLimit",
                 [] { return std::string("\x01\x00\x00\x01", 4); }, // 16,777,217, no payload sent
                 "E_USAGE", "Malformed request."},
        BadInput{"ZeroLengthPayload", [] { return frame(""); }, "E_USAGE", "Malformed request."},
        BadInput{"NotJSON", [] { return frame("hello there"); }, "E_USAGE", "Malformed request."},
        BadInput{"JSONNotARequest", [] { return frame(R"({"hello":1})"); }, "E_USAGE",
                 "Malformed request."},
        BadInput{"BadBase64Args",
                 [] {
                     return frame(R"({"v":1,"token":")" + token +
                                  R"(","command":"echo","argsJSON":"%%%"})");
                 },
                 "E_USAGE", "Malformed request."},
        BadInput{"VersionZero", [] { return frame(requestJSON(0, token, "echo")); }, "E_USAGE",
                 "Protocol version mismatch (app 1, client 0). Reinstall the CLI."},
        BadInput{"VersionTwo", [] { return frame(requestJSON(2, token, "echo")); }, "E_USAGE",
                 "Protocol version mismatch (app 1, client 2). Reinstall the CLI."},
        BadInput{"TokenOneByteShorter",
                 [] { return frame(requestJSON(1, token.substr(1), "echo")); }, "E_UNAUTHORIZED",
                 "Bad token."},
        BadInput{"TokenLastByteChanged",
                 [] { return frame(requestJSON(1, token.substr(0, 63) + "b", "echo")); },
                 "E_UNAUTHORIZED", "Bad token."}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(ServerFixture, LargestFrameIsReadWhole) {
    startServer();
    // Pad the request's id so the whole payload is exactly the limit.
    nlohmann::json request = {{"v", 1},
                              {"token", token},
                              {"command", "echo"},
                              {"argsJSON", CLIBase64::encode("{}")},
                              {"id", ""}};
    const std::size_t base = request.dump().size();
    request["id"] = std::string(CLIWire::maxPayloadBytes - base, 'x');
    const std::string payload = request.dump();
    ASSERT_EQ(payload.size(), CLIWire::maxPayloadBytes);
    const auto response = send(frame(payload));
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->ok);
}

TEST_F(ServerFixture, SilentClientIsDroppedAfterTheTimeoutAndOthersAreServed) {
    startServer({false, {}}, std::chrono::milliseconds(300));
    const int idle = RawClient::connectTo(path);
    ASSERT_GE(idle, 0);
    const auto response = send(frame(requestJSON(1, token, "echo")));
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->ok);
    ::close(idle);
}

// Sends the frame's bytes one at a time, a pause apart, until the server closes the connection;
// then reads what it answered.
struct Trickler {
    std::optional<CLIResponse> answer;
    std::chrono::steady_clock::duration heldFor{};

    void run(const std::string& path, const std::string& bytes, std::promise<void>& started) {
        const int fd = RawClient::connectTo(path);
        const auto begin = std::chrono::steady_clock::now();
        bool signalled = false;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            if (::send(fd, bytes.data() + i, 1, MSG_NOSIGNAL) != 1) {
                break;
            }
            if (!signalled && i == 4) {
                started.set_value();
                signalled = true;
            }
            pollfd closed{fd, POLLIN, 0};
            if (::poll(&closed, 1, 100) > 0) {
                break; // the server answered, or hung up
            }
        }
        if (!signalled) {
            started.set_value();
        }
        std::string received;
        char buffer[4096];
        for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;) {
            received.append(buffer, static_cast<std::size_t>(n));
        }
        heldFor = std::chrono::steady_clock::now() - begin;
        ::close(fd);
        if (received.size() >= 4) {
            answer = CLIResponse::decode(std::string_view(received).substr(4));
        }
    }
};

TEST_F(ServerFixture, SlowlyTricklingClientHoldsUpNobodyAndIsCutOffAtItsDeadline) {
    const auto deadline = std::chrono::milliseconds(1500);
    startServer({false, {}}, deadline);
    Trickler trickler;
    std::promise<void> started;
    auto trickling = started.get_future();
    std::thread slow([&] { trickler.run(path, frame(requestJSON(1, token, "echo")), started); });
    trickling.wait(); // its header is in: the server is reading its request

    const auto asked = std::chrono::steady_clock::now();
    const auto response = send(frame(requestJSON(1, token, "echo")));
    const auto waited = std::chrono::steady_clock::now() - asked;
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->ok);
    EXPECT_LT(waited, std::chrono::seconds(1)) << "the other client waited on the trickler";

    slow.join();
    EXPECT_GE(trickler.heldFor, deadline - std::chrono::milliseconds(100));
    EXPECT_LT(trickler.heldFor, deadline + std::chrono::seconds(2))
        << "a byte now and then must not keep the connection open";
    ASSERT_TRUE(trickler.answer) << "the trickler is answered before it is cut off";
    ASSERT_TRUE(trickler.answer->error);
    EXPECT_EQ(trickler.answer->error->message, "Malformed request.");
}

TEST_F(ServerFixture, StopDoesNotWaitForAClientsDeadline) {
    startServer({false, {}}, std::chrono::seconds(60));
    std::vector<int> idle;
    for (int i = 0; i < 3; ++i) {
        idle.push_back(RawClient::connectTo(path));
        ASSERT_GE(idle.back(), 0);
        ASSERT_EQ(::send(idle.back(), "\0\0", 2, MSG_NOSIGNAL), 2); // half a header, then nothing
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto begin = std::chrono::steady_clock::now();
    server->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    for (const int fd : idle) {
        char byte = 0;
        EXPECT_LE(::recv(fd, &byte, 1, 0), 0) << "the connection must be closed by the stop";
        ::close(fd);
    }
}

TEST_F(ServerFixture, AnswerTooLargeForAFrameBecomesAFailureThatSaysSo) {
    startServer();
    std::vector<std::string> warnings;
    std::mutex logged;
    const auto previous =
        Logger::setSink([&](std::string_view, LogLevel level, std::string_view line) {
            if (level == LogLevel::warning) {
                const std::lock_guard lock(logged);
                warnings.emplace_back(line);
            }
        });
    const auto response = send(frame(requestJSON(1, token, hugeCommand)));
    Logger::setSink(previous);
    ASSERT_TRUE(response) << "the tool must get an answer, not a closed connection";
    EXPECT_FALSE(response->ok);
    ASSERT_TRUE(response->error);
    EXPECT_EQ(response->error->code, "E_RUNTIME");
    EXPECT_TRUE(response->error->message.starts_with("The answer to `marlune data export` is "))
        << response->error->message;
    EXPECT_TRUE(response->error->message.ends_with(" MB, over the 16 MiB limit for one answer."))
        << response->error->message;
    ASSERT_TRUE(response->error->hint);
    EXPECT_NE(response->error->hint->find("--limit"), std::string::npos);

    const std::lock_guard lock(logged);
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings[0].find(hugeCommand), std::string::npos);
    EXPECT_EQ(warnings[0].find("xxxx"), std::string::npos) << "content must never be logged";

    const auto next = send(frame(requestJSON(1, token, "echo")));
    ASSERT_TRUE(next);
    EXPECT_TRUE(next->ok);
}

TEST_F(ServerFixture, ClientThatLeavesBeforeTheAnswerDoesNotStopTheServer) {
    std::signal(SIGPIPE, SIG_DFL); // a write to the vanished client must not raise it
    startServer();
    {
        const int fd = RawClient::connectTo(path);
        const std::string bytes = frame(requestJSON(1, token, "echo"));
        ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        ::close(fd);
    }
    const auto response = send(frame(requestJSON(1, token, "echo")));
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->ok);
}

TEST_F(ServerFixture, SocketIsPrivateAndASecondServerIsRefused) {
    startServer();
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600U);
    CLISocketServer second(path, token, [](const CLIRequest&) { return CLIResponse{}; }, {});
    try {
        second.start();
        FAIL() << "a second server took a live socket";
    } catch (const CLISocketServerError& error) {
        EXPECT_EQ(std::string(error.what()), "Another Marlune instance is already serving " + path +
                                                 "; not starting a second CLI listener.");
    }
}

TEST_F(ServerFixture, StaleSocketFileDoesNotBlockStartUp) {
    path = (dir / "marlune.sock").string();
    {
        CLISocketServer first(path, token, [](const CLIRequest&) { return CLIResponse{}; },
                              {false, {}});
        first.start();
    } // stopped: the file stays, nobody listens
    ASSERT_TRUE(fs::exists(path));
    EXPECT_NO_THROW(startServer());
    const auto response = send(frame(requestJSON(1, token, "echo")));
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->ok);
}

TEST_F(ServerFixture, OnlyTheBundledToolIsServedWhileRequired) {
    // This test program is not the bundled tool: refused.
    startServer({true, dir / "marlune"});
    const auto refused = send(frame(requestJSON(1, token, "echo")));
    ASSERT_TRUE(refused);
    ASSERT_TRUE(refused->error);
    EXPECT_EQ(refused->error->code, "E_UNAUTHORIZED");
    EXPECT_EQ(refused->error->message, "Rejected peer.");
    server.reset();
    // The same program named as the bundled tool: served.
    startServer({true, fs::read_symlink("/proc/self/exe")});
    const auto served = send(frame(requestJSON(1, token, "echo")));
    ASSERT_TRUE(served);
    EXPECT_TRUE(served->ok);
}

TEST_F(ServerFixture, AnotherUserIsRejectedBeforeAnyByteIsRead) {
    if (::getuid() != 0 || ::access("/usr/bin/setpriv", X_OK) != 0 ||
        ::access("/usr/bin/python3", X_OK) != 0) {
        GTEST_SKIP() << "needs root, setpriv and /usr/bin/python3 to run a client as another user";
    }
    startServer();
    // Open the socket to everyone, so only the peer check stands in the way.
    ::chmod(dir.path().c_str(), 0755);
    ::chmod(path.c_str(), 0666);
    const std::string script = "import socket,struct,sys\n"
                               "s=socket.socket(socket.AF_UNIX);s.connect(sys.argv[1])\n"
                               "d=b''\n"
                               "while True:\n"
                               "  c=s.recv(65536)\n"
                               "  if not c: break\n"
                               "  d+=c\n"
                               "sys.stdout.write(d[4:].decode())\n";
    const fs::path scriptFile = dir / "client.py";
    std::ofstream(scriptFile) << script;
    ::chmod(scriptFile.c_str(), 0644);
    std::promise<std::string> done;
    auto future = done.get_future();
    std::thread client([&] {
        const std::string command =
            "setpriv --reuid=65534 --regid=65534 --clear-groups /usr/bin/python3 " +
            scriptFile.string() + " " + path;
        std::string out;
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            char buffer[4096];
            while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
                out += buffer;
            }
            ::pclose(pipe);
        }
        done.set_value(out);
    });
    const std::string answer = queue.runUntil(future);
    client.join();
    const auto response = CLIResponse::decode(answer);
    ASSERT_TRUE(response) << "answer: " << answer;
    ASSERT_TRUE(response->error);
    EXPECT_EQ(response->error->message, "Rejected peer.");
}

// The listener: registry, exact command names, the thread hand-over.
TEST(CLIListener, RoutesByExactNameAndTurnsThrownErrorsIntoPayloads) {
    test::Library library;
    CLIEnvironment environment;
    environment.container = std::shared_ptr<ModelContainer>(std::move(library.container));
    CLIListener listener(environment, [](std::function<void()> task) { task(); });
    listener.add("ping", [](const CLIRequest&) { return CLIResponse::success("{}"); });
    listener.add("boom", [](const CLIRequest&) -> CLIResponse {
        throw CLIError(CLIErrorCode::conflict, "Already there.", "Try another name.");
    });
    CLIRequest request;
    request.command = "ping";
    EXPECT_TRUE(listener.dispatch(request).ok);
    request.command = "Ping";
    auto unknown = listener.dispatch(request);
    ASSERT_TRUE(unknown.error);
    EXPECT_EQ(unknown.error->code, "E_USAGE");
    EXPECT_EQ(unknown.error->message, "Unknown command 'Ping'.");
    request.command = "boom";
    auto failed = listener.dispatch(request);
    ASSERT_TRUE(failed.error);
    EXPECT_EQ(failed.error->code, "E_CONFLICT");
    EXPECT_EQ(failed.error->hint, "Try another name.");
}

TEST(CLIListener, StartCreatesAPrivateTokenAndReusesIt) {
    TempDir dir;
    MainQueue queue;
    CLIEnvironment environment;
    environment.libraryDirectory = dir.path() / "Marlune";
    auto start = [&] {
        CLIListener listener(environment, [&](std::function<void()> task) { queue.post(task); });
        EXPECT_TRUE(listener.start());
        EXPECT_TRUE(listener.isServing());
    };
    start();
    const fs::path tokenFile = environment.libraryDirectory / "cli-token";
    ASSERT_TRUE(fs::exists(tokenFile));
    struct stat st {};
    ::stat(tokenFile.c_str(), &st);
    EXPECT_EQ(st.st_mode & 0777, 0600U);
    std::string first;
    std::getline(std::ifstream(tokenFile), first);
    EXPECT_EQ(first.size(), 64U);
    start();
    std::string second;
    std::getline(std::ifstream(tokenFile), second);
    EXPECT_EQ(first, second);
}

} // namespace
} // namespace marlune
