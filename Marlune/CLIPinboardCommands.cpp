// Pinboards on the command line: named collections of clips.

#include "Marlune/CLIClipSupport.h"
#include "Marlune/CLIListener.h"
#include "Marlune/CLIResolvers.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/PinboardStore.h"

#include <algorithm>

namespace marlune {

namespace {

using namespace CLIClipSupport;

// Names stay unique: a reference by name could never pick one of two.
void refuseTakenName(const std::vector<Pinboard>& pinboards, const Pinboard& pinboard) {
    for (const auto& other : pinboards) {
        if (other.id != pinboard.id && CLIResolvers::sameName(other.name, pinboard.name)) {
            throw CLIError(CLIErrorCode::conflict,
                           "A pinboard named \"" + other.name + "\" already exists.",
                           "Choose another name, or update the existing pinboard.");
        }
    }
}

void applyFields(const PinboardWriteArgs& args, Pinboard& pinboard) {
    if (args.iconSymbol && !args.iconSymbol->empty()) {
        pinboard.iconSymbol = *args.iconSymbol;
    }
    if (args.colorRole) {
        pinboard.colorRole = CLIResolvers::colorRole(args.colorRole);
    }
    if (args.sortIndex) {
        pinboard.sortIndex = *args.sortIndex;
    }
}

Page<PinboardDTO> listPinboards(const ListArgs& args, CLICall& call) {
    if (args.groupRef || args.tagRef || args.pinboardRef || args.sourceAppBundleID || args.kind ||
        args.favoriteOnly || args.pinnedOnly || args.trashed.value_or(false)) {
        throw CLIError(CLIErrorCode::usage, "Listing pinboards takes only a query and paging.");
    }
    auto& context = call.context();
    auto pinboards = PinboardStore(context).list();
    if (args.query) {
        std::erase_if(pinboards, [&](const Pinboard& p) {
            return !CLIResolvers::nameContains(p.name, *args.query);
        });
    }
    const std::string sort = args.sort.value_or("manual");
    if (sort == "name") {
        std::stable_sort(pinboards.begin(), pinboards.end(), [](const auto& a, const auto& b) {
            return CLIResolvers::foldCase(a.name) < CLIResolvers::foldCase(b.name);
        });
    } else if (sort != "manual") {
        throw CLIError(CLIErrorCode::usage, "'" + sort + "' is not a way to sort pinboards.",
                       "Use name or manual.");
    }
    if (args.order == "desc") {
        std::reverse(pinboards.begin(), pinboards.end());
    } else if (args.order && *args.order != "asc") {
        throw CLIError(CLIErrorCode::usage, "'" + *args.order + "' is not an order.",
                       "Use asc or desc.");
    }
    std::vector<PinboardDTO> items;
    for (const auto& pinboard : pinboards) {
        items.push_back(pinboardDTO(context, pinboard));
    }
    return Page<PinboardDTO>::slice(std::move(items), args.limit, args.offset);
}

PinboardDTO getPinboard(const GetArgs& args, CLICall& call) {
    auto& context = call.context();
    return pinboardDTO(context, resolvePinboard(context, args.ref, args.by));
}

PinboardDTO createPinboard(const PinboardWriteArgs& args, CLICall& call) {
    if (args.ref) {
        throw CLIError(CLIErrorCode::usage, "A new pinboard takes no ref.",
                       "Change an existing pinboard with `marlune pinboard update`.");
    }
    auto& context = call.context();
    PinboardStore store(context);
    const auto pinboards = store.list();
    Pinboard pinboard = Pinboard::make(call.now());
    pinboard.name = CLIResolvers::requireName(args.name, "pinboard");
    applyFields(args, pinboard);
    if (!args.sortIndex) {
        for (const auto& other : pinboards) {
            pinboard.sortIndex = std::max(pinboard.sortIndex, other.sortIndex + 1);
        }
    }
    refuseTakenName(pinboards, pinboard);
    return pinboardDTO(context, store.create(std::move(pinboard), call.now()));
}

PinboardDTO updatePinboard(const PinboardWriteArgs& args, CLICall& call) {
    auto& context = call.context();
    CLIResolvers::requireRef(args.ref.value_or(""), "A pinboard reference is required.");
    Pinboard pinboard = resolvePinboard(context, *args.ref);
    if (args.name) {
        pinboard.name = CLIResolvers::requireName(args.name, "pinboard");
    }
    applyFields(args, pinboard);
    PinboardStore store(context);
    refuseTakenName(store.list(), pinboard);
    store.update(pinboard);
    return pinboardDTO(context, pinboard);
}

// Pinboards have no Trash: deleting one deletes it at once, and its clips stay in the history.
DeleteResultDTO deletePinboard(const RefArgs& args, CLICall& call) {
    auto& context = call.context();
    const Pinboard pinboard = resolvePinboard(context, args.ref, args.by);
    if (!args.dryRun) {
        PinboardStore(context).remove(pinboard.id);
    }
    return {1, args.dryRun, {pinboard.id.string()}};
}

PinboardDTO changeClips(const PinboardClipArgs& args, CLICall& call, bool add) {
    auto& context = call.context();
    const Pinboard pinboard = resolvePinboard(context, args.pinboardRef);
    if (args.clipRefs.empty()) {
        throw CLIError(CLIErrorCode::usage, "Provide at least one clip ref.");
    }
    std::vector<Uuid> clips;
    for (const auto& ref : args.clipRefs) {
        const auto id = resolveClip(context, ref).id;
        if (std::find(clips.begin(), clips.end(), id) == clips.end()) {
            clips.push_back(id);
        }
    }
    if (add) {
        BatchActions::addClipsToPinboard(context, clips, pinboard.id);
    } else {
        BatchActions::removeClipsFromPinboard(context, clips, pinboard.id);
    }
    return pinboardDTO(context, pinboard);
}

} // namespace

void registerPinboardCommands(CLIListener& listener) {
    namespace N = CLICommandName;
    listener.addTyped<ListArgs>(std::string(N::pinboardList), listPinboards);
    listener.addTyped<GetArgs>(std::string(N::pinboardGet), getPinboard);
    listener.addTyped<PinboardWriteArgs>(std::string(N::pinboardCreate), createPinboard);
    listener.addTyped<PinboardWriteArgs>(std::string(N::pinboardUpdate), updatePinboard);
    listener.addTyped<RefArgs>(std::string(N::pinboardDelete), deletePinboard);
    listener.addTyped<PinboardClipArgs>(
        std::string(N::pinboardAddClip),
        [](const PinboardClipArgs& a, CLICall& c) { return changeClips(a, c, true); });
    listener.addTyped<PinboardClipArgs>(
        std::string(N::pinboardRemoveClip),
        [](const PinboardClipArgs& a, CLICall& c) { return changeClips(a, c, false); });
}

} // namespace marlune
