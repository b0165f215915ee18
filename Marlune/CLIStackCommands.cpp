// The paste stack on the command line: queue clips or snippets, look at the queue, take from
// it, paste it, clear it. The queue is the application's own, shared with "Start Paste Stack".

#include "Marlune/CLIClipSupport.h"
#include "Marlune/CLIListener.h"
#include "Marlune/CLIResolvers.h"
#include "Marlune/DesktopActions.h"
#include "Marlune/PasteStackService.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/PasteStackModel.h"

namespace marlune {

namespace {

using namespace CLIClipSupport;

constexpr auto capacity = static_cast<std::int64_t>(PasteStackModel::capacity);

StackItemDTO itemDTO(const PasteStackItem& item, std::size_t position) {
    return {static_cast<std::int64_t>(position + 1), std::string(entryKind(item.entry)),
            entryID(item.entry).string(), item.preview};
}

StackPushResultDTO push(const StackPushArgs& args, CLICall& call) {
    if (args.refs.empty()) {
        throw CLIError(CLIErrorCode::usage, "Provide at least one ref.");
    }
    auto& context = call.context();
    // Every reference is resolved before anything is queued: a typo queues nothing.
    std::vector<PasteStackEntry> entries;
    for (const auto& ref : args.refs) {
        if (args.snippet) {
            entries.emplace_back(
                PasteStackSnippet{CLIResolvers::snippet(context, ref, args.by).id});
        } else {
            if (args.by && *args.by != "id") {
                throw CLIError(CLIErrorCode::usage, "Clips are found by id only.",
                               "Pass --snippet to queue snippets by keyword or title.");
            }
            entries.emplace_back(PasteStackClip{resolveClip(context, ref).id});
        }
    }
    auto& stack = pasteStack(call);
    StackPushResultDTO result;
    for (const auto& entry : entries) {
        const auto content = PasteStackLibrary::resolve(context, entry, false, call.now());
        if (!stack.push(entry, content ? content->preview : "", content ? content->iconName : "")) {
            ++result.dropped;
            continue;
        }
        result.pushed.push_back(itemDTO(stack.entries().back(), stack.count() - 1));
    }
    if (result.dropped > 0) {
        call.warn("W_STACK_FULL", "The Paste Stack holds at most " + std::to_string(capacity) +
                                      " items; " + std::to_string(result.dropped) +
                                      (result.dropped == 1 ? " was" : " were") + " not queued.");
    }
    result.count = static_cast<std::int64_t>(stack.count());
    result.capacity = capacity;
    return result;
}

StackListResultDTO list(const EmptyArgs&, CLICall& call) {
    const auto& stack = pasteStack(call);
    StackListResultDTO result;
    for (std::size_t i = 0; i < stack.entries().size(); ++i) {
        result.items.push_back(itemDTO(stack.entries()[i], i));
    }
    result.count = static_cast<std::int64_t>(stack.count());
    result.capacity = capacity;
    return result;
}

void warnSkipped(CLICall& call, const PasteStackItem& item) {
    const std::string kind(entryKind(item.entry));
    logs::app.warning("Skipped a Paste Stack entry whose " + kind + " was deleted.");
    call.warn("W_SKIPPED_DELETED", "Skipped a queued " + kind + " (" +
                                       entryID(item.entry).string().substr(0, 8) +
                                       ") that is no longer in the library.");
}

// Takes the oldest item whose record still exists, dropping (with a warning) those whose
// record is gone.
StackPopResultDTO pop(const EmptyArgs&, CLICall& call) {
    auto& stack = pasteStack(call);
    StackPopResultDTO result;
    while (auto item = stack.popFirst()) {
        if (!PasteStackLibrary::resolve(call.context(), item->entry, false, call.now())) {
            warnSkipped(call, *item);
            continue;
        }
        result.item = itemDTO(*item, 0);
        break;
    }
    result.remaining = static_cast<std::int64_t>(stack.count());
    return result;
}

// Pastes the whole queue, oldest first, as one paste: a single item with every flavour it
// has, several as their text a line each.
StackPasteResultDTO paste(const StackPasteArgs& args, CLICall& call) {
    auto& desktop = requireDesktop(call, "paste");
    auto& stack = pasteStack(call);
    if (stack.isEmpty()) {
        throw stackEmpty();
    }
    std::vector<PasteStackContent> contents;
    std::size_t taken = 0;
    for (const auto& item : stack.entries()) {
        auto content = PasteStackLibrary::resolve(call.context(), item.entry, true, call.now());
        ++taken;
        if (!content) {
            warnSkipped(call, item);
            continue;
        }
        contents.push_back(std::move(*content));
    }
    if (contents.empty()) {
        for (std::size_t i = 0; i < taken; ++i) {
            stack.popFirst();
        }
        throw stackEmpty();
    }
    PasteboardSnapshot pasteboard;
    if (contents.size() == 1) {
        pasteboard = contents.front().pasteboard;
    } else {
        std::string joined;
        for (const auto& content : contents) {
            if (!content.text) {
                throw CLIError(CLIErrorCode::validation,
                               "\"" + content.preview +
                                   "\" has no text, so it can't be pasted with the others.",
                               "Take it off with `marlune stack pop` and paste it on its own.");
            }
            joined += (joined.empty() ? "" : "\n") + *content.text;
        }
        pasteboard = PasteboardSnapshot::fromItems(
            {{{PasteboardSnapshot::Payload::fromText("text/plain;charset=utf-8", joined)}}});
    }
    StackPasteResultDTO result;
    if (args.into) {
        if (auto missing = desktop.activate(*args.into)) {
            throw CLIError(CLIErrorCode::notFound, *missing,
                           "Open the application first, or leave out --into.");
        }
        result.pasteTarget = PasteTargetDTO{*args.into, std::nullopt};
    }
    if (auto refusal = desktop.paste(pasteboard)) {
        desktop.copyToClipboard(pasteboard);
        result.copiedFallback = true;
        call.warn("W_PASTE_FAILED", *refusal + " The stack was copied to the clipboard instead.");
    } else {
        result.pastedCount = static_cast<std::int64_t>(contents.size());
    }
    for (std::size_t i = 0; i < taken; ++i) {
        stack.popFirst();
    }
    return result;
}

StackClearResultDTO clear(const EmptyArgs&, CLICall& call) {
    return {static_cast<std::int64_t>(pasteStack(call).clear())};
}

} // namespace

void registerStackCommands(CLIListener& listener) {
    namespace N = CLICommandName;
    listener.addTyped<StackPushArgs>(std::string(N::stackPush), push);
    listener.addTyped<EmptyArgs>(std::string(N::stackList), list);
    listener.addTyped<EmptyArgs>(std::string(N::stackPop), pop);
    listener.addTyped<StackPasteArgs>(std::string(N::stackPaste), paste);
    listener.addTyped<EmptyArgs>(std::string(N::stackClear), clear);
}

} // namespace marlune
