// The real marlune-app beside clipboard owners that never hand over their data: the
// application must keep answering while its capture waits on them, and go on capturing
// everybody else's copies.
#include "DesktopAppTest.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIResponse.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCLIProtocol/CommonRecords.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace marlune {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class DesktopUnresponsiveOwner : public test::DesktopAppTest {
protected:
    void SetUp() override {
        // Raw clients measure the application itself, not the start-up of the tool.
        start(R"({"cliRequireBundledTool": false})");
    }

    void TearDown() override {
        owners.clear();
        DesktopAppTest::TearDown();
    }

    // One ping over the socket, from connecting to the end of the answer; nothing when it
    // was not answered "ok".
    std::optional<Clock::duration> ping() {
        std::stringstream tokenText;
        tokenText << std::ifstream(home / "cli-token").rdbuf();
        const std::string token(trimWhitespaceAndNewlines(tokenText.str()));
        const auto frame = std::get<std::string>(
            CLIWire::encodeFrame(makeRequest("ping", EmptyArgs{}, token).encode()));
        const auto started = Clock::now();
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (home / "marlune.sock").c_str(),
                     sizeof address.sun_path - 1);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ::close(fd);
            return std::nullopt;
        }
        ::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
        std::string answer;
        char buffer[4096];
        for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;) {
            answer.append(buffer, static_cast<std::size_t>(n));
        }
        ::close(fd);
        const auto took = Clock::now() - started;
        const auto response = answer.size() < CLIWire::headerBytes
                                  ? std::nullopt
                                  : CLIResponse::decode(std::string_view(answer).substr(4));
        if (!response || !response->ok) {
            return std::nullopt;
        }
        return took;
    }

    // Pings every 50 ms for `span`; the slowest answer.
    Clock::duration slowestPingOver(std::chrono::milliseconds span) {
        Clock::duration slowest{};
        const auto end = Clock::now() + span;
        int pings = 0;
        while (Clock::now() < end) {
            const auto took = ping();
            EXPECT_TRUE(took) << "a ping went unanswered; the log:\n" << app->log();
            if (!took) {
                break;
            }
            slowest = std::max(slowest, *took);
            ++pings;
            std::this_thread::sleep_for(50ms);
        }
        EXPECT_GT(pings, 10);
        return slowest;
    }

    // A clipboard owner of ours; returns once it holds the clipboard.
    void startOwner(std::vector<std::string> args, const std::string& offered) {
        args.insert(args.begin(), MARLUNE_CLIPBOARD_OWNER);
        owners.push_back(std::make_unique<test::BackgroundProcess>(
            args, environment(), dir / ("owner-" + std::to_string(owners.size()) + ".log")));
        ASSERT_TRUE(test::waitUntil([&] {
            return clipboardAs("TARGETS").find(offered) != std::string::npos;
        })) << owners.back()->log();
    }

    std::vector<std::string> previews() {
        const auto page =
            nlohmann::json::parse(tool({"clip", "list", "--json"}).out, nullptr, false);
        std::vector<std::string> texts;
        if (page.is_object() && page["items"].is_array()) {
            for (const auto& item : page["items"]) {
                texts.push_back(item.value("previewText", ""));
            }
        }
        return texts;
    }

    bool captured(const std::string& text, std::chrono::milliseconds timeout) {
        return test::waitUntil(
            [&] {
                const auto all = previews();
                return std::find(all.begin(), all.end(), text) != all.end();
            },
            timeout, 100ms);
    }

    static std::string milliseconds(Clock::duration d) {
        return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(d).count()) +
               " ms";
    }

    std::vector<std::unique_ptr<test::BackgroundProcess>> owners;
};

TEST_F(DesktopUnresponsiveOwner, OwnerThatNeverHandsOverItsDataFreezesNothing) {
    startOwner({"--withhold-data", "text/plain=never handed over"}, "text/plain");
    const auto slowest = slowestPingOver(4s);
    EXPECT_LT(slowest, 100ms) << "slowest ping " << milliseconds(slowest) << "; the log:\n"
                              << app->log();
    // The capture did ask, and gave up on its own thread.
    EXPECT_NE(app->log().find("did not hand over its copy"), std::string::npos) << app->log();

    copyWithXclip("UTF8_STRING", "copied after the hung owner");
    EXPECT_TRUE(captured("copied after the hung owner", 6s)) << app->log();
    const auto all = previews();
    EXPECT_EQ(std::find(all.begin(), all.end(), "never handed over"), all.end());
}

TEST_F(DesktopUnresponsiveOwner,
       OwnerRetakingTheClipboardEveryFewHundredMillisecondsStarvesNothing) {
    // 25 takes, 200 ms apart, none of which ever hands its data over; then it keeps the last.
    startOwner({"--repeat", "25", "--interval-ms", "200", "--withhold-data", "text/plain=again"},
               "text/plain");
    const auto slowest = slowestPingOver(5500ms);
    EXPECT_LT(slowest, 100ms) << "slowest ping " << milliseconds(slowest) << "; the log:\n"
                              << app->log();

    copyWithXclip("UTF8_STRING", "copied after the retakes");
    EXPECT_TRUE(captured("copied after the retakes", 8s)) << app->log();
    for (const auto& text : previews()) {
        EXPECT_EQ(text.rfind("again", 0), std::string::npos) << text;
    }
}

} // namespace
} // namespace marlune
