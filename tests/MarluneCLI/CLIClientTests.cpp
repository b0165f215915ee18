#include "MarluneCLI/CLIClient.h"
#include "MarluneCLI/ToolRunner.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/ContentLimits.h"
#include "support/TempDir.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace marlune {
namespace {

constexpr const char* token = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

// Serves exactly one connection on a real Unix socket: reads one request frame and, unless
// told to hang up or stay silent, answers with the canned response.
class FakeApplication {
public:
    enum class Behaviour { answer, hangUp, staySilent };

    FakeApplication(const std::filesystem::path& socketPath, CLIResponse answer,
                    Behaviour behaviour = Behaviour::answer)
        : answer_(std::move(answer)), behaviour_(behaviour) {
        listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listener_, 4) != 0) {
            ADD_FAILURE() << "cannot listen at " << socketPath << ": " << std::strerror(errno);
            return;
        }
        thread_ = std::thread([this] { serve(); });
    }

    ~FakeApplication() {
        ::shutdown(listener_, SHUT_RDWR);
        if (thread_.joinable()) {
            thread_.join();
        }
        ::close(listener_);
    }

    FakeApplication(const FakeApplication&) = delete;
    FakeApplication& operator=(const FakeApplication&) = delete;

    // Waits for the connection to be served; call it once the tool has returned.
    const std::optional<CLIRequest>& received() {
        if (thread_.joinable()) {
            thread_.join();
        }
        return received_;
    }

private:
    void serve() {
        const int fd = ::accept(listener_, nullptr, nullptr);
        if (fd < 0) {
            return;
        }
        const auto frame = CLIWire::readFrame([fd](std::span<std::uint8_t> buffer) {
            const ssize_t n = ::recv(fd, buffer.data(), buffer.size(), 0);
            if (n > 0) {
                return CLIWireIO{CLIWireIO::Status::transferred, static_cast<std::size_t>(n)};
            }
            return CLIWireIO{n == 0 ? CLIWireIO::Status::closed : CLIWireIO::Status::failed, 0};
        });
        if (const auto* payload = std::get_if<std::string>(&frame)) {
            received_ = CLIRequest::decode(*payload);
        }
        if (behaviour_ == Behaviour::answer) {
            CLIWire::writeFrame(
                [fd](std::span<const std::uint8_t> bytes) {
                    const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
                    return n < 0 ? CLIWireIO{CLIWireIO::Status::failed, 0}
                                 : CLIWireIO{CLIWireIO::Status::transferred,
                                             static_cast<std::size_t>(n)};
                },
                answer_.encode());
        } else if (behaviour_ == Behaviour::staySilent) {
            // Wait for the tool to give up and close its end.
            char byte = 0;
            while (::recv(fd, &byte, 1, 0) > 0) {
            }
        }
        ::close(fd);
    }

    int listener_ = -1;
    CLIResponse answer_;
    Behaviour behaviour_;
    std::optional<CLIRequest> received_;
    std::thread thread_;
};

class CLIClientTest : public ::testing::Test {
protected:
    ToolEnvironment environment(std::map<std::string, std::string> extra = {}) {
        extra.emplace("MARLUNE_HOME", home.path().string());
        ToolEnvironment result;
        result.variables = [extra](std::string_view name) -> std::optional<std::string> {
            const auto found = extra.find(std::string(name));
            if (found == extra.end()) {
                return std::nullopt;
            }
            return found->second;
        };
        result.appExecutable = home / "no-such-marlune-app";
        result.launchWait = std::chrono::milliseconds(3000);
        return result;
    }

    void writeToken(const std::string& contents) const {
        test::writeFileBytes(home / "cli-token", contents);
    }

    std::filesystem::path socketPath() const { return home / "marlune.sock"; }

    CLIClientSettings settings() const {
        CLIClientSettings s;
        s.endpoint.directory = home.path();
        s.noLaunch = true;
        return s;
    }

    test::TempDir home;
};

TEST_F(CLIClientTest, RequestTravelsWithTokenAndArgumentsAndTheAnswerIsPrinted) {
    writeToken(std::string(token) + "\n");
    ExpandResultDTO result;
    result.text = "Hello Jo";
    result.actions.stdOut = true;
    FakeApplication app(socketPath(), successResponse(result));

    const auto output = ToolRunner::run(
        {"snippet", "expand", ";hi", "--fill", "name=Jo", "--no-launch"}, environment());

    EXPECT_EQ(output.out, "Hello Jo");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(output.exitStatus, 0);
    ASSERT_TRUE(app.received().has_value());
    const auto& request = *app.received();
    EXPECT_EQ(request.v, 1);
    EXPECT_EQ(request.token, token);
    EXPECT_EQ(request.command, "snippet.expand");
    EXPECT_EQ(request.clientPID, static_cast<std::int32_t>(::getpid()));
    const auto args = decodeWireText<ExpandArgs>(request.argsJSON);
    EXPECT_EQ(args.ref, ";hi");
    EXPECT_EQ(args.fills, (std::map<std::string, std::string>{{"name", "Jo"}}));
}

TEST_F(CLIClientTest, ApplicationErrorsExitWithTheirCodesStatus) {
    writeToken(token);
    FakeApplication app(socketPath(),
                        CLIResponse::failure("E_AMBIGUOUS", "'Sig' matches 2 snippets.",
                                             "Pass an id, or disambiguate with --by."));
    const auto output = ToolRunner::run({"snippet", "get", "Sig"}, environment());
    EXPECT_EQ(output.exitStatus, 5);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "marlune: 'Sig' matches 2 snippets.\n"
                          "hint: Pass an id, or disambiguate with --by.\n");
}

TEST_F(CLIClientTest, NoLaunchWithoutApplicationOrTokenIsUnavailableWithTheExactMessage) {
    const auto output = ToolRunner::run({"ping", "--no-launch"}, environment());
    EXPECT_EQ(output.exitStatus, 4);
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "marlune: Marlune isn't running (no CLI token).\n"
                          "hint: Start Marlune, or run without --no-launch.\n");

    writeToken(" \n\t");
    EXPECT_EQ(ToolRunner::run({"ping", "--no-launch"}, environment()).err,
              "marlune: Marlune isn't running (no CLI token).\n"
              "hint: Start Marlune, or run without --no-launch.\n");
}

TEST_F(CLIClientTest, NoLaunchWithAStaleTokenAndSocketFileIsStillUnavailable) {
    writeToken(token);
    // A socket file that nobody listens on, as a crashed application leaves behind.
    {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath().c_str(), sizeof address.sun_path - 1);
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
    }
    const auto output = ToolRunner::run({"ping", "--no-launch"}, environment());
    EXPECT_EQ(output.exitStatus, 4);
    EXPECT_EQ(output.err, "marlune: Marlune isn't running (nothing answers at " +
                              socketPath().string() +
                              ").\nhint: Start Marlune, or run without --no-launch.\n");
}

TEST_F(CLIClientTest, ServingSocketWithoutTokenIsRefusedBeforeSending) {
    FakeApplication app(socketPath(), CLIResponse::success("{}"),
                        FakeApplication::Behaviour::hangUp);
    const auto output = ToolRunner::run({"ping"}, environment());
    EXPECT_EQ(output.exitStatus, 4);
    EXPECT_EQ(output.err, "marlune: Marlune isn't running (no CLI token).\n"
                          "hint: Start Marlune, or run without --no-launch.\n");
    EXPECT_FALSE(app.received().has_value());
}

TEST_F(CLIClientTest, ApplicationThatHangsUpOrStaysSilentIsReportedNotWaitedOnForever) {
    writeToken(token);
    {
        FakeApplication app(socketPath(), {}, FakeApplication::Behaviour::hangUp);
        auto answer = CLIClient(settings()).send(makeRequest("ping", PingArgs{}, {}));
        ASSERT_TRUE(std::holds_alternative<CLIErrorPayload>(answer));
        EXPECT_EQ(std::get<CLIErrorPayload>(answer),
                  (CLIErrorPayload{"E_RUNTIME", "Marlune closed the connection without answering.",
                                   std::nullopt}));
    }
    std::filesystem::remove(socketPath());
    {
        FakeApplication app(socketPath(), {}, FakeApplication::Behaviour::staySilent);
        auto quick = settings();
        quick.replyTimeout = std::chrono::milliseconds(200);
        auto answer = CLIClient(quick).send(makeRequest("ping", PingArgs{}, {}));
        ASSERT_TRUE(std::holds_alternative<CLIErrorPayload>(answer));
        const auto& error = std::get<CLIErrorPayload>(answer);
        EXPECT_EQ(error.code, "E_TIMEOUT");
        EXPECT_EQ(error.message, "Marlune did not answer within 0.2 seconds.");
    }
}

TEST_F(CLIClientTest, ContentFileOrStandardInputBecomesTheSnippetsContentVerbatim) {
    writeToken(token);
    const std::string body = "Best,\nJo\n\n";
    test::writeFileBytes(home / "body.txt", body);
    for (const std::string& source : {(home / "body.txt").string(), std::string("-")}) {
        SCOPED_TRACE(source);
        FakeApplication app(socketPath(), CLIResponse::failure("E_CONFLICT", "Keyword in use."));
        auto env = environment();
        env.readStandardInput = [body] { return std::optional<std::string>(body); };
        const auto output =
            ToolRunner::run({"snippet", "create", "Sig", "--content-file", source}, env);
        EXPECT_EQ(output.exitStatus, 8);
        ASSERT_TRUE(app.received().has_value());
        const auto args = decodeWireText<SnippetCreateArgs>(app.received()->argsJSON);
        EXPECT_EQ(args.title, "Sig");
        EXPECT_EQ(args.content, body);
        std::filesystem::remove(socketPath());
    }
    const auto missing = ToolRunner::run(
        {"snippet", "update", "sig", "--content-file", "/nonexistent/body"}, environment());
    EXPECT_EQ(missing.exitStatus, 2);
    EXPECT_EQ(missing.err, "marlune: Cannot read /nonexistent/body.\n");
}

TEST_F(CLIClientTest, SocketPathTooLongIsRefusedWithThePath) {
    auto s = settings();
    s.endpoint.directory = std::filesystem::path("/tmp") / std::string(120, 'd');
    auto answer = CLIClient(s).send(makeRequest("ping", PingArgs{}, {}));
    ASSERT_TRUE(std::holds_alternative<CLIErrorPayload>(answer));
    EXPECT_EQ(std::get<CLIErrorPayload>(answer).message,
              "Socket path too long for a Unix-domain socket: " + s.endpoint.socketPath().string());
}

// The application reads no frame over the limit, so the tool must not send one: the size it
// checks before connecting has to be the size it then sends, to the byte.
TEST_F(CLIClientTest, RequestOverTheFrameLimitIsRefusedBeforeConnecting) {
    writeToken(token);
    for (const std::size_t over : {std::size_t{0}, std::size_t{1}}) {
        SCOPED_TRACE(over);
        CLIRequest request;
        request.command = "ping";
        request.argsJSON = "{}";
        CLIRequest sized = request;
        sized.token = token;
        sized.clientPID = static_cast<std::int32_t>(::getpid());
        sized.id = "";
        request.id = std::string(CLIWire::maxPayloadBytes - sized.encode().size() + over, 'x');

        std::optional<FakeApplication> app;
        if (over == 0) {
            app.emplace(socketPath(), CLIResponse::success("{}"));
        }
        const auto answer = CLIClient(settings()).send(request);
        if (over == 0) {
            EXPECT_TRUE(std::holds_alternative<CLIResponse>(answer));
            ASSERT_TRUE(app->received().has_value()) << "a request of exactly the limit is sent";
            EXPECT_EQ(app->received()->id, request.id);
            app.reset();
            std::filesystem::remove(socketPath());
            continue;
        }
        // Nobody serves the socket: had the tool tried to connect, it would say so instead.
        ASSERT_TRUE(std::holds_alternative<CLIErrorPayload>(answer));
        const auto& error = std::get<CLIErrorPayload>(answer);
        EXPECT_EQ(error.code, "E_VALIDATION");
        EXPECT_EQ(error.message, "The request is 16.8 MB, over the 16 MiB limit for a request.");
        EXPECT_TRUE(error.hint.has_value());
    }
}

// Bytes this process has read so far, or nothing where the kernel does not count them.
std::optional<std::uint64_t> bytesRead() {
    std::ifstream io("/proc/self/io");
    std::string key;
    std::uint64_t value = 0;
    while (io >> key >> value) {
        if (key == "rchar:") {
            return value;
        }
    }
    return std::nullopt;
}

// Feeds `bytes` into a named pipe at `path` once a reader opens it (gives up after 5 s).
std::thread feedPipe(const std::filesystem::path& path, std::string bytes) {
    ::mkfifo(path.c_str(), 0600);
    return std::thread([path, bytes = std::move(bytes)] {
        int fd = -1;
        for (int attempt = 0; attempt < 500 && fd < 0; ++attempt) {
            fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK);
            if (fd < 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        if (fd < 0) {
            return;
        }
        ::fcntl(fd, F_SETFL, 0);
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (n <= 0) {
                break;
            }
            done += static_cast<std::size_t>(n);
        }
        ::close(fd);
    });
}

TEST_F(CLIClientTest, ContentFileOverTheSnippetBodyLimitIsRefusedWithItsSize) {
    writeToken(token);
    constexpr auto limit = ContentLimits::snippetBodyBytes;
    const std::string refusal = "marlune: The snippet body is 67.1 MB, over the 1 MiB limit for a "
                                "snippet body.\nhint: Shorten the body, or split it into several "
                                "snippets.\n";
    const std::string overByOne = "marlune: The snippet body is 1.0 MB, over the 1 MiB limit for a "
                                  "snippet body.\nhint: Shorten the body, or split it into several "
                                  "snippets.\n";

    // A 64 MiB file, sparse: refused from its size, so hardly any of it may be read.
    const auto large = home / "large.txt";
    std::ofstream(large).close();
    std::filesystem::resize_file(large, std::uint64_t{64} << 20);
    const auto before = bytesRead();
    const auto fromFile = ToolRunner::run(
        {"snippet", "create", "Big", "--content-file", large.string()}, environment());
    const auto after = bytesRead();
    EXPECT_EQ(fromFile.exitStatus, 6);
    EXPECT_EQ(fromFile.err, refusal);
    if (before && after) {
        EXPECT_LT(*after - *before, std::uint64_t{1} << 20) << "the file was read to be refused";
    }

    // What has no size before it is read is measured as it arrives.
    std::thread feeder = feedPipe(home / "pipe", std::string(limit + 1, 'p'));
    const auto fromPipe = ToolRunner::run(
        {"snippet", "create", "Big", "--content-file", (home / "pipe").string()}, environment());
    feeder.join();
    EXPECT_EQ(fromPipe.exitStatus, 6);
    EXPECT_EQ(fromPipe.err, overByOne);

    auto env = environment();
    env.readStandardInput = [&] { return std::optional<std::string>(std::string(limit + 1, 's')); };
    const auto fromInput =
        ToolRunner::run({"snippet", "create", "Big", "--content-file", "-"}, env);
    EXPECT_EQ(fromInput.exitStatus, 6);
    EXPECT_EQ(fromInput.err, overByOne);

    // Exactly the limit goes through whole.
    test::writeFileBytes(home / "full.txt", std::string(limit, 'f'));
    FakeApplication app(socketPath(), CLIResponse::failure("E_CONFLICT", "Keyword in use."));
    const auto full = ToolRunner::run(
        {"snippet", "create", "Full", "--content-file", (home / "full.txt").string()},
        environment());
    EXPECT_EQ(full.exitStatus, 8) << full.err;
    ASSERT_TRUE(app.received().has_value());
    const auto sent = decodeWireText<SnippetCreateArgs>(app.received()->argsJSON).content;
    ASSERT_TRUE(sent.has_value());
    EXPECT_EQ(sent->size(), limit);
}

// A stand-in application that writes its arguments down, then serves one request the way
// the real one would: token first, then the socket.
std::string fakeAppScript(const std::filesystem::path& home) {
    return "#!/usr/bin/python3\n"
           "import base64, json, os, socket, struct, sys\n"
           "home = " +
           nlohmann::json(home.string()).dump() +
           "\n"
           "open(os.path.join(home, 'argv'), 'w').write(' '.join(sys.argv[1:]))\n"
           "open(os.path.join(home, 'cli-token'), 'w').write('" +
           token +
           "')\n"
           "server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)\n"
           "server.bind(os.path.join(home, 'marlune.sock'))\n"
           "server.listen(1)\n"
           "connection, _ = server.accept()\n"
           "def read(n):\n"
           "    data = b''\n"
           "    while len(data) < n:\n"
           "        data += connection.recv(n - len(data))\n"
           "    return data\n"
           "request = json.loads(read(struct.unpack('>I', read(4))[0]))\n"
           "result = json.dumps({'version': '9.9', 'pid': os.getpid(), 'protocolVersion': 1,\n"
           "                     'apiVersion': request['command'], 'menuBarOnly': False})\n"
           "answer = json.dumps({'v': 1, 'ok': True, 'warnings': [],\n"
           "                     'resultJSON': base64.b64encode(result.encode()).decode()})\n"
           "connection.sendall(struct.pack('>I', len(answer)) + answer.encode())\n"
           "connection.close()\n";
}

TEST_F(CLIClientTest, MissingApplicationIsStartedDetachedAndHeadlessWithoutADisplay) {
    if (::access("/usr/bin/python3", X_OK) != 0) {
        GTEST_SKIP() << "needs /usr/bin/python3 for the stand-in application";
    }
    auto env = environment();
    env.appExecutable = home / "marlune-app";
    test::writeFileBytes(env.appExecutable, fakeAppScript(home.path()));
    ::chmod(env.appExecutable.c_str(), 0755);

    const auto output = ToolRunner::run({"ping"}, env);
    // The stand-in is still this process's child and ends after its one answer; reaping it
    // here keeps it from lingering as a zombie under an init that does not reap.
    int status = 0;
    ::waitpid(-1, &status, 0);

    EXPECT_EQ(output.exitStatus, 0) << output.err;
    EXPECT_NE(output.out.find("api:           ping"), std::string::npos) << output.out;
    const auto argv = test::readFileBytes(home / "argv");
    EXPECT_EQ(std::string(argv.begin(), argv.end()), "--headless");
}

TEST_F(CLIClientTest, ApplicationThatCannotStartIsReportedAsUnavailable) {
    auto env = environment({{"DISPLAY", ":0"}});
    const auto missing = ToolRunner::run({"ping"}, env);
    EXPECT_EQ(missing.exitStatus, 4);
    EXPECT_EQ(missing.err, "marlune: Marlune isn't running, and marlune-app was not found at " +
                               env.appExecutable.string() +
                               ".\nhint: Start Marlune yourself, then try again.\n");

    env.appExecutable = home / "marlune-app";
    test::writeFileBytes(env.appExecutable, "#!/bin/sh\nexit 3\n");
    ::chmod(env.appExecutable.c_str(), 0755);
    const auto crashed = ToolRunner::run({"ping"}, env);
    EXPECT_EQ(crashed.exitStatus, 4);
    EXPECT_TRUE(
        crashed.err.starts_with("marlune: Marlune stopped during start-up (exit status 3).\n"))
        << crashed.err;
}

} // namespace
} // namespace marlune
