#pragma once

// Helpers of the tests that drive real programs on the test display: finding the programs,
// waiting for what they report, and (with Qt in the test process) running its event loop
// while waiting.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

#ifdef QT_GUI_LIB
#include <QGuiApplication>
#endif
#ifdef QT_CORE_LIB
#include <QCoreApplication>
#endif

namespace marlune::test {

// The program's path from PATH (the process helpers run paths, not names); empty when none.
inline std::string findProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string_view dirs = path != nullptr ? path : "/usr/bin:/bin";
    while (!dirs.empty()) {
        const auto colon = dirs.find(':');
        const auto candidate = std::filesystem::path(dirs.substr(0, colon)) / name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate.string();
        }
        dirs = colon == std::string_view::npos ? std::string_view() : dirs.substr(colon + 1);
    }
    return {};
}

inline bool hasDisplay() {
    const char* display = std::getenv("DISPLAY");
    return display != nullptr && *display != '\0';
}

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The test field's report: its first line is the caret position, the rest is the text.
inline std::string fieldTextIn(const std::filesystem::path& report) {
    std::ifstream in(report, std::ios::binary);
    std::string caret;
    std::getline(in, caret);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The window id the test field prints once shown, from its log.
inline std::optional<std::string> windowIdIn(const std::string& log) {
    std::istringstream lines(log);
    std::string line;
    while (std::getline(lines, line)) {
        if (!line.empty() && line.find_first_not_of("0123456789") == std::string::npos) {
            return line;
        }
    }
    return std::nullopt;
}

// Polls `done` until it holds or `timeout` passes; returns `done()`.
template <typename Done>
bool waitUntil(Done done, std::chrono::milliseconds timeout = std::chrono::seconds(6),
               std::chrono::microseconds step = std::chrono::milliseconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(step);
    }
    return true;
}

#ifdef QT_CORE_LIB
// The same, running this process's event loop meanwhile (a clipboard we own, a D-Bus signal,
// a timer of ours all need it).
template <typename Done>
bool pumpUntil(Done done, std::chrono::milliseconds timeout = std::chrono::seconds(6)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
#endif

#ifdef QT_GUI_LIB
// A Qt application of the test process on the test display, for a whole suite (the clipboard
// belongs to it); null when there is no display.
inline QGuiApplication* startQtOnTestDisplay(const char* name) {
    if (!hasDisplay()) {
        return nullptr;
    }
    qputenv("QT_QPA_PLATFORM", "xcb");
    static int argc = 1;
    static std::string program;
    program = name;
    static char* argv[] = {program.data(), nullptr};
    argv[0] = program.data();
    return new QGuiApplication(argc, argv);
}
#endif

} // namespace marlune::test
