// The accessibility-bus field reader against a real Qt field in another process: it must see
// which field has the focus, tell a password field apart, and read the text before the caret.
#include "AppUI/AtspiFieldReader.h"
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

std::string which(const std::string& name) {
    for (const char* dir : {"/usr/bin", "/bin", "/usr/local/bin"}) {
        const fs::path candidate = fs::path(dir) / name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate.string();
        }
    }
    return {};
}

template <typename Done> bool pumpUntil(Done done, std::chrono::milliseconds timeout = 8s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

struct FieldCase {
    const char* name;
    const char* mode;
    const char* typed;
    bool password;
    std::optional<std::string> before;
};

TEST(AtspiFieldReader, FollowsTheFocusAndReadsTheField) {
    const char* display = std::getenv("DISPLAY");
    const std::string xdotool = which("xdotool");
    if (display == nullptr || *display == '\0' || xdotool.empty()) {
        GTEST_SKIP() << "needs a display and xdotool (run through scripts/test-session.sh)";
    }
    int argc = 1;
    char name[] = "AtspiFieldReaderTests";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    QString why;
    auto reader = AtspiFieldReader::connect(why);
    if (!reader) {
        GTEST_SKIP() << "no accessibility bus: " << why.toStdString();
    }
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
        test::BackgroundProcess field(args, {{"QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1"}},
                                      dir.path() / (std::string(c.name) + ".log"));
        std::string window;
        ASSERT_TRUE(pumpUntil([&] {
            std::istringstream lines(field.log());
            std::string line;
            while (std::getline(lines, line)) {
                if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0]))) {
                    window = line;
                    return true;
                }
            }
            return false;
        })) << field.log();
        test::runProcess({xdotool, "windowfocus", "--sync", window});
        test::runProcess({xdotool, "type", "--delay", "20", c.typed});
        // Wait for the focus event, then for the typed text to be in the field.
        std::optional<FocusedField> seen;
        const bool read = pumpUntil([&] {
            seen = reader->focusedField();
            return seen && seen->isPassword == c.password &&
                   seen->textBeforeCaret == c.before;
        });
        ASSERT_TRUE(read) << "focused: " << (seen ? "yes" : "no") << ", password "
                          << (seen && seen->isPassword) << ", before caret '"
                          << (seen && seen->textBeforeCaret ? *seen->textBeforeCaret : "-") << "'";
    }
}

} // namespace
} // namespace marlune
