#include "AppUI/QtClipboardAccess.h"
#include "AppUI/QtScheduler.h"
#include "Marlune/ClipboardCaptureService.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/Settings.h"
#include "support/Desktop.h"
#include "support/FakeActiveWindow.h"
#include "support/LibraryFixture.h"
#include "support/Process.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QImage>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace marlune {
namespace {

using namespace std::chrono_literals;

QGuiApplication* application = nullptr;

// Runs the event loop until `done` holds or `timeout` passes; returns `done()`.
template <typename Done> bool pumpUntil(Done done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

void pumpFor(std::chrono::milliseconds span) {
    pumpUntil([] { return false; }, span);
}

// The test-support runner executes a path, not a name looked up in PATH.
std::string xclipPath() {
    const char* path = std::getenv("PATH");
    std::string_view dirs = path != nullptr ? path : "/usr/bin";
    while (!dirs.empty()) {
        const auto colon = dirs.find(':');
        const std::filesystem::path candidate =
            std::filesystem::path(dirs.substr(0, colon)) / "xclip";
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate.string();
        }
        dirs = colon == std::string_view::npos ? std::string_view() : dirs.substr(colon + 1);
    }
    return {};
}

std::vector<std::uint8_t> pngBytes() {
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return {bytes.begin(), bytes.end()};
}

// A photograph-like image: noise does not compress, so its PNG is about `side`² × 3 bytes,
// far more than one X request carries, and it travels in INCR pieces.
std::vector<std::uint8_t> largePngBytes(int side) {
    QImage image(side, side, QImage::Format_RGB888);
    std::mt19937 noise(42);
    for (int y = 0; y < side; ++y) {
        std::uint8_t* line = image.scanLine(y);
        for (int x = 0; x < side * 3; ++x) {
            line[x] = static_cast<std::uint8_t>(noise());
        }
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG", 100);
    return {bytes.begin(), bytes.end()};
}

class DesktopClipboard : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        application = test::startQtOnTestDisplay("DesktopClipboardTests");
    }
    static void TearDownTestSuite() {
        delete application;
        application = nullptr;
    }

    void SetUp() override {
        if (application == nullptr) {
            GTEST_SKIP() << "DISPLAY is not set: run through scripts/test-session.sh, which "
                            "starts an X server.";
        }
        xclip_ = xclipPath();
        if (xclip_.empty()) {
            GTEST_SKIP() << "xclip is not installed.";
        }
        Logger::setSink([this](std::string_view, LogLevel, std::string_view line) {
            if (line.find("Skipped a likely secret") != std::string_view::npos) {
                secretLines.emplace_back(line);
            }
        });
        window.window = ActiveWindow{"XClip", "xclip", std::nullopt};
        clipboard = std::make_unique<QtClipboardAccess>();
        service = std::make_unique<ClipboardCaptureService>(
            *clipboard, window, scheduler, library.context(), settings, [] { return dateNow(); });
        service->start();
    }

    void TearDown() override {
        service.reset();
        owners.clear(); // ends every clipboard owner we started
        Logger::setSink({});
    }

    // Another application takes the clipboard: xclip with one target.
    void xclip(const std::string& type, const std::vector<std::uint8_t>& data) {
        const auto file = library.dir.path() / ("copy-" + std::to_string(owners.size()));
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(data.data()),
                   static_cast<std::streamsize>(data.size()));
        startOwner({xclip_, "-selection", "clipboard", "-t", type, "-quiet", file.string()});
    }
    void xclipText(const std::string& text) {
        xclip("text/plain", std::vector<std::uint8_t>(text.begin(), text.end()));
    }
    void startOwner(const std::vector<std::string>& argv) {
        const std::int64_t before = clipboard->changeCount();
        const auto log = library.dir.path() / ("owner-" + std::to_string(owners.size()) + ".log");
        owners.push_back(std::make_unique<test::BackgroundProcess>(
            argv, std::map<std::string, std::string>{}, log));
        ASSERT_TRUE(pumpUntil([&] { return clipboard->changeCount() != before; }, 10s))
            << "the clipboard owner never took the selection: " << owners.back()->log();
    }

    std::vector<Clip> clips() { return ClipStore(library.context(), {}).recent(100); }
    bool waitForClips(std::size_t count) {
        return pumpUntil([&] { return clips().size() >= count; }, 5s);
    }

    test::Library library;
    Settings settings = Settings::load(library.dir.path() / "settings.json", {});
    test::FakeActiveWindow window;
    QtScheduler scheduler;
    std::unique_ptr<QtClipboardAccess> clipboard;
    std::unique_ptr<ClipboardCaptureService> service;
    std::vector<std::unique_ptr<test::BackgroundProcess>> owners;
    std::vector<std::string> secretLines;
    std::string xclip_;
};

TEST_F(DesktopClipboard, CopiesFromAnotherApplicationLandWithTheirKindAndFlavours) {
    struct Case {
        const char* mimeType;
        std::vector<std::uint8_t> data;
        ClipKind kind;
        const char* utType;
    };
    const std::string text = "Meet at the north gate at noon.";
    const Case cases[] = {
        {"text/plain", {text.begin(), text.end()}, ClipKind::text, "public.utf8-plain-text"},
        {"image/png", pngBytes(), ClipKind::image, "public.png"},
        {"image/png", largePngBytes(2048), ClipKind::image, "public.png"},
    };
    std::size_t expected = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.mimeType) + ", " + std::to_string(c.data.size()) + " bytes");
        xclip(c.mimeType, c.data);
        ASSERT_TRUE(waitForClips(++expected));
        const Clip clip = clips().front();
        EXPECT_EQ(clip.primaryKind, c.kind);
        EXPECT_EQ(clip.sourceAppBundleID, "XClip");
        const auto reps = ClipStore(library.context(), {}).representations(clip.id);
        ASSERT_EQ(reps.size(), 1U);
        EXPECT_EQ(reps[0].utTypeIdentifier, c.utType);
        const auto stored =
            reps[0].text ? std::vector<std::uint8_t>(reps[0].text->begin(), reps[0].text->end())
                         : reps[0].data.value_or(std::vector<std::uint8_t>{});
        EXPECT_TRUE(stored == c.data) << stored.size() << " bytes stored of " << c.data.size();
    }
}

TEST_F(DesktopClipboard, ConcealedCopiesLeaveNoClip) {
    for (const char* marker :
         {"x-kde-passwordManagerHint=secret", "org.nspasteboard.ConcealedType="}) {
        SCOPED_TRACE(marker);
        startOwner({MARLUNE_CLIPBOARD_OWNER, "text/plain=hunter2", marker});
        pumpFor(1s); // well past the settle time and two polls
    }
    // The service was watching all along: an ordinary copy after them is captured.
    xclipText("ordinary");
    ASSERT_TRUE(waitForClips(1));
    pumpFor(500ms);
    const auto all = clips();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].previewText, "ordinary");
    EXPECT_TRUE(secretLines.empty());
}

TEST_F(DesktopClipboard, AccessKeyLeavesNoClipAndOneLogLine) {
    xclipText(std::string("AKIA") + "IOSFODNN7" + "EXAMPLE");
    ASSERT_TRUE(pumpUntil([&] { return !secretLines.empty(); }, 5s));
    pumpFor(1s); // later polls must not log it again
    EXPECT_TRUE(clips().empty());
    EXPECT_EQ(secretLines, std::vector<std::string>{"[Marlune] Skipped a likely secret (apiKey)"});
}

TEST_F(DesktopClipboard, BurstOfCopiesBecomesOneClipOfTheLastContent) {
    // Five writes 40 ms apart: within 0.2 s.
    startOwner(
        {MARLUNE_CLIPBOARD_OWNER, "--repeat", "5", "--interval-ms", "40", "text/plain=burst"});
    ASSERT_TRUE(waitForClips(1));
    pumpFor(1s);
    const auto all = clips();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].previewText, "burst 5");
}

TEST_F(DesktopClipboard, SameTextCopiedTwiceIsOneClipCopiedAgain) {
    xclipText("twice");
    ASSERT_TRUE(waitForClips(1));
    xclipText("twice");
    ASSERT_TRUE(pumpUntil([&] { return clips().front().recopyCount == 1; }, 5s));
    pumpFor(500ms);
    const auto all = clips();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].recopyCount, 1);
}

TEST_F(DesktopClipboard, OwnWriteOffersEveryTypeGivenAndIsNotCaptured) {
    const auto payload = [](const char* type, std::string_view value) {
        return PasteboardSnapshot::Payload::fromText(type, value);
    };
    clipboard->write(PasteboardSnapshot::fromItems(
        {{{payload("text/plain", "expanded text"), payload("text/html", "<b>expanded</b>"),
           payload("x-kde-passwordManagerHint", "secret"),
           payload("org.nspasteboard.ConcealedType", "")}}}));
    // xclip waits for us to answer, so it runs beside the event loop.
    auto read = [this](std::vector<std::string> argv) {
        argv.insert(argv.begin(), xclip_);
        return std::async(std::launch::async, [argv] { return test::runProcess(argv).out; });
    };
    auto targets = read({"-selection", "clipboard", "-o", "-t", "TARGETS"});
    ASSERT_TRUE(pumpUntil([&] { return targets.wait_for(0s) == std::future_status::ready; }, 10s));
    const std::string offered = targets.get();
    for (const char* type : {"text/plain", "text/html", "x-kde-passwordManagerHint",
                             "org.nspasteboard.ConcealedType"}) {
        EXPECT_NE(offered.find(type), std::string::npos) << type << " not in " << offered;
    }
    auto html = read({"-selection", "clipboard", "-o", "-t", "text/html"});
    ASSERT_TRUE(pumpUntil([&] { return html.wait_for(0s) == std::future_status::ready; }, 10s));
    EXPECT_EQ(html.get(), "<b>expanded</b>");
    pumpFor(1s);
    EXPECT_TRUE(clips().empty());
}

} // namespace
} // namespace marlune
