#pragma once

#include "MarluneCore/Date.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

class ModelContext;
class Settings;

// Moves items that have been done for longer than the archive age off the Board into the
// ordinary pinboard "Board Archive", so the Board stays short and nothing is deleted.
struct BoardAutoArchive {
    static constexpr std::int64_t defaultDays = 7;
    static constexpr std::int64_t choices[] = {0, 1, 7, 30};
    static constexpr std::string_view pickerTitle = "Archive done items";
    static constexpr std::string_view pickerExplanation =
        "Done items move to the Board Archive Pinboard under Clipboard. Nothing is deleted.";
    // How long the sync mirror must have been quiet before the pass may run.
    static constexpr std::int64_t settleSeconds = 20;

    // "board.autoArchiveDays"; 7 when absent or not an integer.
    static std::int64_t archiveDays(const Settings& settings);
    // "Never", "After a day", "After 7 days".
    static std::string choiceLabel(std::int64_t days);

    // The pass: items done strictly before now − days × 86,400 s leave every Board section for
    // the archive pinboard (created on first need, reused by name). A clip in two sections
    // counts twice. Returns 0 without touching anything when the age is below 1.
    static std::int64_t run(ModelContext& context, std::int64_t days, Date now);

    // What the sync mirror reports. With sync off it has always settled.
    struct SyncState {
        bool enabled = false;
        bool importOrExportPending = false;
        std::optional<Date> lastEventAt;
    };
    static bool settled(const SyncState& sync, Date now);

    // The Board's refresh: reads the age, and runs the pass when sync has settled.
    static std::int64_t archiveFinishedItems(ModelContext& context, const Settings& settings,
                                             Date now, const SyncState& sync);
    static std::int64_t archiveFinishedItems(ModelContext& context, const Settings& settings,
                                             Date now);
};

} // namespace marlune
