#pragma once

#include "Marlune/CLIListener.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

class DesktopActions;
class PasteStackModel;
class UsageStats;

// What the clip, pinboard, Trash and paste-stack commands share.
namespace CLIClipSupport {

ClipStore clipStore(CLICall& call);

// The first `characters` code points of a UTF-8 text, never cut inside one.
std::string utf8Prefix(const std::string& text, std::size_t characters);

// A clip named by its id, or by the start of it as listings show it; live clips, or clips in
// the Trash with `trashed`.
Clip resolveClip(ModelContext& context, std::string_view ref, bool trashed = false);

// A pinboard (never a Board section) by id, exact name or part of the name; `by` is "name"
// or "id".
Pinboard resolvePinboard(ModelContext& context, std::string_view ref,
                         const std::optional<std::string>& by = std::nullopt);
PinboardDTO pinboardDTO(ModelContext& context, const Pinboard& pinboard);

enum class ClipDetail {
    listing, // flavours with a short text preview and their size
    full,    // and the whole text of each textual flavour, and `bestText`
    raw,     // and the bytes of the other flavours, as Base64
};

// Clips as the command line shows them. Statements are prepared once per mapper, and in a
// listing the bytes of images and files are measured, never read.
class ClipMapper {
public:
    explicit ClipMapper(ModelContext& context) : context_(context) {}
    ClipDTO map(const Clip& clip, ClipDetail detail);
    // The clip as a listing shows it, with only the flavour at `index`, carrying the bytes
    // (a text's UTF-8) from `offset`, at most `clipPieceBytes` of them, as Base64.
    ClipDTO piece(const Clip& clip, std::int64_t index, std::int64_t offset);

private:
    ModelContext& context_;
};

// The desktop the command needs, or E_CAPABILITY saying why there is none.
DesktopActions& requireDesktop(CLICall& call, std::string_view what);

// The queue and the statistics of this run: the application's, or opened from the library
// directory on first use.
PasteStackModel& pasteStack(CLICall& call);
UsageStats& usageStats(CLICall& call);

// Counts one use of a snippet in the statistics: the keys saved are the characters of the
// text minus those of what was typed to get it (prefix and keyword), never below zero.
void recordExpansion(CLICall& call, std::string_view typed, std::string_view text);

// "The Paste Stack is empty." with the hint to queue items.
CLIError stackEmpty();

// Applies a named text transform ("uppercase", "pretty-json", ...), or refuses an unknown name.
std::string transformed(const std::optional<std::string>& transform, std::string text);

} // namespace CLIClipSupport

} // namespace marlune
