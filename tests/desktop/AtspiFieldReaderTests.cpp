// The accessibility-bus field reader against a real Qt field in another process: it must see
// which field has the focus and whose process it is, tell a password field apart, and read the
// text before the caret.
#include "AppUI/AtspiFieldReader.h"
#include "support/Desktop.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <QCoreApplication>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

const std::string fieldPath = MARLUNE_TEST_FIELD;
const std::string webPagePath = MARLUNE_FAKE_WEB_PAGE;

// The Qt application the reader's bus connection needs, and the reader: none when the session
// has no accessibility bus.
struct ReaderSession {
    ReaderSession() : app(argc, argv), reader(AtspiFieldReader::connect(why)) {}
    int argc = 1;
    char name[22] = "AtspiFieldReaderTests";
    char* argv[2] = {name, nullptr};
    QCoreApplication app;
    QString why;
    std::unique_ptr<AtspiFieldReader> reader;
};

struct FieldCase {
    const char* name;
    const char* mode;
    const char* typed;
    bool password;
    std::optional<std::string> before;
};

TEST(AtspiFieldReader, FollowsTheFocusAndReadsTheField) {
    const char* display = std::getenv("DISPLAY");
    const std::string xdotool = test::findProgram("xdotool");
    if (display == nullptr || *display == '\0' || xdotool.empty()) {
        GTEST_SKIP() << "needs a display and xdotool (run through scripts/test-session.sh)";
    }
    ReaderSession session;
    if (!session.reader) {
        GTEST_SKIP() << "no accessibility bus: " << session.why.toStdString();
    }
    auto& reader = session.reader;
    const std::vector<FieldCase> cases{
        {"password field", "--password", "secret", true, std::nullopt},
        {"text field", "", "hello ;sig", false, "hello ;sig"},
    };
    test::TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> args{fieldPath, (dir.path() / "report.txt").string()};
        if (*c.mode != '\0') {
            args.emplace_back(c.mode);
        }
        // A field whose accessibility bridge comes up after its window took the focus never
        // announces that focus; the next field does (the bus is up by then). So a field that
        // is not seen is started again, at most three times, rather than waited on longer.
        std::optional<FocusedField> seen;
        bool read = false;
        for (int attempt = 1; attempt <= 3 && !read; ++attempt) {
            test::BackgroundProcess field(
                args, {{"QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1"}},
                dir.path() / (std::string(c.name) + std::to_string(attempt) + ".log"));
            std::string window;
            ASSERT_TRUE(test::pumpUntil([&] {
                window = test::windowIdIn(field.log()).value_or("");
                return !window.empty();
            })) << field.log();
            test::runProcess({xdotool, "windowfocus", "--sync", window});
            test::runProcess({xdotool, "type", "--delay", "20", c.typed});
            // Wait for the focus event, then for the typed text to be in the field.
            read = test::pumpUntil([&] {
                seen = reader->focusedField();
                return seen && seen->isPassword == c.password &&
                       seen->textBeforeCaret == c.before &&
                       seen->pid == std::optional<std::int64_t>(field.pid());
            });
        }
        ASSERT_TRUE(read) << "focused: " << (seen ? "yes" : "no") << ", password "
                          << (seen && seen->isPassword) << ", before caret '"
                          << (seen && seen->textBeforeCaret ? *seen->textBeforeCaret : "-")
                          << "', process " << (seen && seen->pid ? *seen->pid : -1);
    }
}

struct PageCase {
    const char* name;
    std::vector<std::string> args;
    // Whether the active window is the page's own (its process) or another one's.
    bool pageIsActive;
    std::optional<std::string> address;
};

TEST(AtspiFieldReader, FindsTheAddressOfTheWebPageThatHoldsTheFocus) {
    ReaderSession session;
    if (!session.reader) {
        GTEST_SKIP() << "no accessibility bus: " << session.why.toStdString();
    }
    auto& reader = session.reader;
    const std::string url = "https://example.org/notes?id=7#top";
    const std::vector<PageCase> cases{
        {"a paragraph of the page", {"--focus", "paragraph", "--address-key", "DocURL", "--address", url},
         true, url},
        {"the page itself, its address under another name",
         {"--focus", "document", "--address-key", "URI", "--address", "http://intranet.local/a"},
         true, "http://intranet.local/a"},
        {"an address that is not a web one is still the page's",
         {"--focus", "section", "--address-key", "URL", "--address", "file:///tmp/page.html"}, true,
         "file:///tmp/page.html"},
        {"the address bar, outside the page",
         {"--focus", "addressbar", "--address-key", "DocURL", "--address", url}, true, std::nullopt},
        {"a page that states no address", {"--focus", "paragraph"}, true, std::nullopt},
        {"another application's window is active",
         {"--focus", "paragraph", "--address-key", "DocURL", "--address", url}, false, std::nullopt},
        {"parents that go round in a circle",
         {"--focus", "paragraph", "--address-key", "DocURL", "--address", url, "--loop"}, true,
         std::nullopt},
    };
    test::TempDir dir;
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> args{webPagePath};
        args.insert(args.end(), c.args.begin(), c.args.end());
        test::BackgroundProcess page(args, {}, dir.path() / ("page" + std::to_string(++n) + ".log"));
        ASSERT_TRUE(test::pumpUntil([&] { return page.log().find("ready") != std::string::npos; }))
            << page.log();
        // The page announces its focus until the reader has taken it from this process.
        std::optional<FocusedField> seen;
        ASSERT_TRUE(test::pumpUntil([&] {
            seen = reader->focusedField();
            return seen && seen->pid == std::optional<std::int64_t>(page.pid());
        })) << page.log();
        const std::int64_t active = c.pageIsActive ? page.pid() : page.pid() + 100000;
        EXPECT_EQ(reader->focusedPageAddress(active), c.address);
        if (c.pageIsActive) {
            EXPECT_EQ(reader->focusedPageAddress(std::nullopt), c.address) << "window unknown";
        }
    }
}

} // namespace
} // namespace marlune
