#pragma once

#include "Platform/SelectionSource.h"
#include "Platform/X11Connection.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace marlune {

// Reads another client's selection over an X connection of its own (ICCCM 2.4 and 2.7.2, with
// INCR), one transfer at a time, blocking, every wait bounded by the caller's deadline and no
// more of a payload than its limit ever held in memory. It never asks through Qt, whose reader
// renames UTF8_STRING, STRING and TEXT to "text/plain", recodes text, and fetches a payload
// whole without telling its size first.
class X11SelectionReader : public SelectionSource {
public:
    using Transfer = SelectionTransfer;
    using Target = SelectionTarget;

    // An owner's target list: thousands of types is not a clipboard any application offers.
    static constexpr std::size_t targetListLimit = std::size_t{64} << 10;

    explicit X11SelectionReader(X11Connection connection);
    ~X11SelectionReader() override;
    X11SelectionReader(const X11SelectionReader&) = delete;
    X11SelectionReader& operator=(const X11SelectionReader&) = delete;

    // Targets that describe or act on the selection instead of holding content (asking for
    // DELETE or INSERT_SELECTION would make the owner do something), and Qt's in-process names.
    static bool isProtocolTarget(std::string_view name);

    // Any wait gives up as soon as `fd` turns readable, so that another thread can end a read
    // of an owner that never answers without waiting out its deadline.
    void setInterrupt(int fd) { interrupt_ = fd; }

    bool broken() const { return connection_.broken(); }
    std::uint32_t atom(std::string_view name) const { return connection_.atom(name); }

    Clock::time_point now() const override { return Clock::now(); }
    std::uint32_t owner(std::uint32_t selection) override;
    Targets targets(std::uint32_t selection, Clock::time_point deadline) override;
    Transfer fetch(std::uint32_t selection, std::uint32_t target, std::size_t limit,
                   Clock::time_point deadline) override;

private:
    std::uint32_t window();
    // A transfer given up half-way: its window goes, so that whatever the owner still sends
    // to it can never be taken for the answer to a later request.
    Transfer abandon(Transfer::Outcome outcome, std::uint64_t size = 0);
    Transfer readIncrementally(std::size_t announced, std::size_t limit,
                               Clock::time_point deadline);

    X11Connection connection_;
    std::uint32_t property_;
    std::uint32_t incr_;
    std::uint32_t targets_;
    // Our requestor window; made anew after a transfer is abandoned.
    std::uint32_t window_ = 0;
    int interrupt_ = -1;
};

} // namespace marlune
