#include "Platform/InjectionLedger.h"

namespace marlune {

void InjectionLedger::expect(std::uint32_t keycode, bool press, Clock::time_point now) {
    entries_.push_back(Entry{keycode, press, now});
}

bool InjectionLedger::claim(std::uint32_t keycode, bool press, Clock::time_point now) {
    while (!entries_.empty() && now - entries_.front().sentAt > kLifetime) {
        entries_.pop_front();
    }
    if (entries_.empty() || entries_.front().keycode != keycode ||
        entries_.front().press != press) {
        return false;
    }
    entries_.pop_front();
    return true;
}

} // namespace marlune
