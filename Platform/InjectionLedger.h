#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

namespace marlune {

// The key events the application itself has sent through XTest and not yet seen come back.
//
// Every XTest client (ours, xdotool, a VNC server, an on-screen keyboard) shares the server's
// one XTest keyboard, so the source device alone cannot tell our keys from another program's.
// The injector writes each event here as it sends it; the watcher, for an event from an XTest
// device, claims it only when it is the oldest one still expected. The server delivers events
// in the order it received them, so our own come back in order; another program's XTest keys
// match only if they arrive interleaved with ours and happen to equal the next one we expect.
// Entries not seen within `kLifetime` (a watcher that was not listening) are dropped.
class InjectionLedger {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kLifetime{2};

    void expect(std::uint32_t keycode, bool press, Clock::time_point now);
    // True, and the entry is consumed, when the event is ours.
    bool claim(std::uint32_t keycode, bool press, Clock::time_point now);
    std::size_t pending() const { return entries_.size(); }

private:
    struct Entry {
        std::uint32_t keycode;
        bool press;
        Clock::time_point sentAt;
    };
    std::deque<Entry> entries_;
};

} // namespace marlune
