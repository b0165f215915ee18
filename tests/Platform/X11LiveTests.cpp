#include "Platform/X11ActiveWindow.h"
#include "Platform/X11HotKeys.h"
#include "Platform/X11KeyboardGrabProbe.h"
#include "Platform/X11KeyboardWatcher.h"
#include "Platform/XTestKeyInjector.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace marlune {
namespace {

using namespace std::chrono_literals;

template <typename T>
std::unique_ptr<T> opened(std::variant<std::unique_ptr<T>, X11Unavailable> v) {
    if (auto* failure = std::get_if<X11Unavailable>(&v)) {
        ADD_FAILURE() << failure->message;
        return nullptr;
    }
    return std::move(std::get<std::unique_ptr<T>>(v));
}

// These need a real X server: scripts/test-session.sh starts Xvfb and sets DISPLAY. The keyboard,
// the focus and the root window's properties are shared by every client of the display, so the
// cases hold a lock for the display while they run, whatever ctest runs beside them.
class LiveX11Test : public ::testing::Test {
protected:
    void SetUp() override {
        const char* display = std::getenv("DISPLAY");
        if (display == nullptr || *display == '\0') {
            GTEST_SKIP() << "DISPLAY is not set; run under scripts/test-session.sh";
        }
        std::string lockPath = "/tmp/marlune-x11-tests-";
        for (const char c : std::string(display)) {
            lockPath += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        }
        lockFd_ = ::open(lockPath.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        ASSERT_GE(lockFd_, 0);
        ASSERT_EQ(::flock(lockFd_, LOCK_EX), 0);
        // Xvfb resets itself when its last client leaves, as it does between the cases, and
        // refuses connections for the moment that takes.
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        auto connection = X11Connection::open();
        while (!std::holds_alternative<X11Connection>(connection) &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(20ms);
            connection = X11Connection::open();
        }
        ASSERT_TRUE(std::holds_alternative<X11Connection>(connection))
            << std::get<X11Unavailable>(connection).message;
        x_ = std::make_unique<X11Connection>(std::move(std::get<X11Connection>(connection)));
    }

    void TearDown() override {
        x_.reset();
        if (lockFd_ >= 0) {
            ::flock(lockFd_, LOCK_UN);
            ::close(lockFd_);
        }
    }

    xcb_window_t createWindow(xcb_window_t parent) {
        const xcb_window_t window = xcb_generate_id(x_->get());
        xcb_create_window(x_->get(), XCB_COPY_FROM_PARENT, window, parent, 0, 0, 100, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_map_window(x_->get(), window);
        return window;
    }

    void setText(xcb_window_t window, xcb_atom_t name, xcb_atom_t type, std::string_view text) {
        xcb_change_property(x_->get(), XCB_PROP_MODE_REPLACE, window, name, type, 8,
                            static_cast<std::uint32_t>(text.size()), text.data());
    }

    void setCardinal(xcb_window_t window, xcb_atom_t name, xcb_atom_t type, std::uint32_t value) {
        xcb_change_property(x_->get(), XCB_PROP_MODE_REPLACE, window, name, type, 32, 1, &value);
    }

    std::unique_ptr<X11Connection> x_;
    int lockFd_ = -1;
};

std::string typedText(const std::vector<KeyboardEvent>& events) {
    std::string text;
    for (const auto& event : events) {
        if (const auto* typed = std::get_if<keyboard::TextTyped>(&event)) {
            text += typed->text;
        } else if (std::holds_alternative<keyboard::BackspacePressed>(event)) {
            text += "<bs>";
        } else if (const auto* key = std::get_if<keyboard::KeyPressed>(&event)) {
            text += key->modifiers.control ? "<ctrl+" : "<";
            text += key->keysym < 0x80 ? std::string(1, static_cast<char>(key->keysym)) : "key";
            text += ">";
        }
    }
    return text;
}

// Our injections are recorded in the ledger that our watcher shares; a second watcher with a
// ledger of its own stands for any other program and must see them as typing.
TEST_F(LiveX11Test, OwnInjectionsAreIgnoredButSeenByAnyoneElse) {
    auto ledger = std::make_shared<InjectionLedger>();
    auto ours = opened(X11KeyboardWatcher::open(ledger, {}, "en_US.UTF-8"));
    auto stranger =
        opened(X11KeyboardWatcher::open(std::make_shared<InjectionLedger>(), {}, "en_US.UTF-8"));
    auto injector = opened(XTestKeyInjector::open(ledger));
    ASSERT_TRUE(ours && stranger && injector);
    std::vector<KeyboardEvent> oursSaw;
    std::vector<KeyboardEvent> strangerSaw;
    ours->setHandler([&](const KeyboardEvent& e) { oursSaw.push_back(e); });
    stranger->setHandler([&](const KeyboardEvent& e) { strangerSaw.push_back(e); });

    for (const KeyInjection& step : {KeyInjection(keyinjection::TypeText("Hi, there!")),
                                     KeyInjection(keyinjection::Backspaces{2}),
                                     KeyInjection(keyinjection::PressChord{KeyChord{
                                         KeyModifiers{false, true, false, false}, XKB_KEY_v}})}) {
        EXPECT_EQ(injector->inject(step), InjectionOutcome(InjectionDone{}));
    }
    ASSERT_TRUE(ours->syncAndProcess());
    ASSERT_TRUE(stranger->syncAndProcess());

    EXPECT_EQ(typedText(strangerSaw), "Hi, there!<bs><bs><ctrl+v>");
    EXPECT_EQ(typedText(oursSaw), "");
    EXPECT_EQ(ledger->pending(), 0U);
    EXPECT_EQ(injector->heldModifiers(), KeyModifiers{});
}

// xdotool sends through the same XTest keyboard as we do; only the ledger tells them apart.
TEST_F(LiveX11Test, AnotherProgramsXTestTypingIsSeen) {
    if (std::system("command -v xdotool >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "xdotool is not installed";
    }
    auto ledger = std::make_shared<InjectionLedger>();
    auto watcher = opened(X11KeyboardWatcher::open(ledger, {}, "en_US.UTF-8"));
    ASSERT_TRUE(watcher);
    std::vector<KeyboardEvent> seen;
    watcher->setHandler([&](const KeyboardEvent& e) { seen.push_back(e); });

    ASSERT_EQ(std::system("xdotool type --delay 1 'kw1' && xdotool key BackSpace"), 0);
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (typedText(seen).size() < 7 && std::chrono::steady_clock::now() < deadline) {
        ASSERT_TRUE(watcher->syncAndProcess());
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(typedText(seen), "kw1<bs>");
}

TEST_F(LiveX11Test, ActiveWindowReportsClassTitleAndPid) {
    auto info = opened(X11ActiveWindow::open());
    ASSERT_TRUE(info);
    const xcb_atom_t netActive = x_->atom("_NET_ACTIVE_WINDOW");
    const xcb_atom_t netName = x_->atom("_NET_WM_NAME");
    const xcb_atom_t netPid = x_->atom("_NET_WM_PID");
    const xcb_atom_t utf8 = x_->atom("UTF8_STRING");

    const xcb_window_t managed = createWindow(x_->root());
    setText(managed, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING,
            std::string_view("marlune-test\0MarluneTest\0", 25));
    setText(managed, netName, utf8, "Résumé draft");
    setCardinal(managed, netPid, XCB_ATOM_CARDINAL, static_cast<std::uint32_t>(::getpid()));
    setCardinal(x_->root(), netActive, XCB_ATOM_WINDOW, managed);
    x_->sync();
    EXPECT_EQ(info->activeWindow(), (std::optional<ActiveWindow>{
                                        ActiveWindow{"MarluneTest", "Résumé draft", ::getpid()}}));

    // Without a window manager's word, the focused child leads to its top-level window, whose
    // Latin-1 WM_NAME stands in for the missing _NET_WM_NAME.
    xcb_delete_property(x_->get(), x_->root(), netActive);
    const xcb_window_t plain = createWindow(x_->root());
    setText(plain, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, std::string_view("plain\0Plain\0", 12));
    setText(plain, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, "Caf\xe9");
    const xcb_window_t child = createWindow(plain);
    x_->sync();
    xcb_set_input_focus(x_->get(), XCB_INPUT_FOCUS_PARENT, child, XCB_CURRENT_TIME);
    x_->sync();
    EXPECT_EQ(info->activeWindow(),
              (std::optional<ActiveWindow>{ActiveWindow{"Plain", "Café", std::nullopt}}));

    xcb_set_input_focus(x_->get(), XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_POINTER_ROOT,
                        XCB_CURRENT_TIME);
    xcb_destroy_window(x_->get(), plain);
    xcb_destroy_window(x_->get(), managed);
    x_->sync();
    EXPECT_EQ(info->activeWindow(), std::nullopt);
}

TEST_F(LiveX11Test, HotKeyFiresWithNumLockAndASecondClaimIsReportedTaken) {
    auto first = opened(X11HotKeys::open());
    auto second = opened(X11HotKeys::open());
    auto injector = opened(XTestKeyInjector::open(std::make_shared<InjectionLedger>()));
    ASSERT_TRUE(first && second && injector);
    const KeyChord chord{KeyModifiers{false, true, true, false}, XKB_KEY_k};

    const auto registration = first->registerHotKey(chord);
    ASSERT_TRUE(std::holds_alternative<HotKeyRegistered>(registration));
    const HotKeyId id = std::get<HotKeyRegistered>(registration).id;
    EXPECT_EQ(second->registerHotKey(chord),
              HotKeyRegistration(
                  HotKeyTaken{"The shortcut Ctrl+Alt+K is already taken by another application."}));

    std::vector<HotKeyId> fired;
    first->setHandler([&](HotKeyId hotKey) { fired.push_back(hotKey); });
    const auto pressAndWait = [&](std::size_t expected) {
        EXPECT_EQ(injector->inject(keyinjection::PressChord{chord}),
                  InjectionOutcome(InjectionDone{}));
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while (fired.size() < expected && std::chrono::steady_clock::now() < deadline) {
            ASSERT_TRUE(first->processPendingEvents());
            std::this_thread::sleep_for(5ms);
        }
    };
    pressAndWait(1);
    const KeyChord numLock{{}, XKB_KEY_Num_Lock};
    ASSERT_EQ(injector->inject(keyinjection::PressChord{numLock}),
              InjectionOutcome(InjectionDone{}));
    pressAndWait(2);
    ASSERT_EQ(injector->inject(keyinjection::PressChord{numLock}),
              InjectionOutcome(InjectionDone{}));
    EXPECT_EQ(fired, (std::vector<HotKeyId>{id, id}));

    first->unregisterHotKey(id);
    EXPECT_TRUE(std::holds_alternative<HotKeyRegistered>(second->registerHotKey(chord)));
}

TEST_F(LiveX11Test, KeyboardGrabOfAnotherClientIsDetectedAndTheProbeKeepsNone) {
    auto probe = opened(X11KeyboardGrabProbe::open());
    ASSERT_TRUE(probe);
    EXPECT_FALSE(probe->keyboardGrabbedByAnotherClient());

    // The probe let go: another client can still take the keyboard.
    xcb_grab_keyboard_reply_t* grab =
        xcb_grab_keyboard_reply(x_->get(),
                                xcb_grab_keyboard(x_->get(), 0, x_->root(), XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr);
    ASSERT_NE(grab, nullptr);
    EXPECT_EQ(grab->status, XCB_GRAB_STATUS_SUCCESS);
    std::free(grab);
    EXPECT_TRUE(probe->keyboardGrabbedByAnotherClient());

    xcb_ungrab_keyboard(x_->get(), XCB_CURRENT_TIME);
    x_->sync();
    EXPECT_FALSE(probe->keyboardGrabbedByAnotherClient());
}

} // namespace
} // namespace marlune
