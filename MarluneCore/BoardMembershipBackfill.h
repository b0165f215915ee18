#pragma once

#include <cstdint>

namespace marlune {

class ModelContext;
class Settings;

// A one-time migration per device: Board items left without a Board section get one. Board
// items are the live clips that carry Board state (an order key, a completion or a pin) and
// belong to no pinboard at all; a clip filed into an ordinary pinboard (the archive) has left
// the Board on purpose and stays where it is.
struct BoardMembershipBackfill {
    // The target is the active section when its id is stored and exists, else the earliest
    // section named "Inbox" (any case), else the first section. The flag
    // "board.membershipBackfilled" is set only after the change is saved, or when the Board has
    // no section at all, so a failed run is tried again at the next launch.
    static std::int64_t run(ModelContext& context, Settings& settings);
};

} // namespace marlune
