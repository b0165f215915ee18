#include "Marlune/PasteStackService.h"

#include "ExpansionEngine/SnippetRenderer.h"
#include "Marlune/ClipPasteboard.h"
#include "Marlune/DesktopActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/ProfileStore.h"
#include "MarluneCore/SnippetStore.h"

#include <random>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

namespace marlune {

namespace {

constexpr std::string_view textType = "text/plain;charset=utf-8";

std::string_view iconFor(ClipKind kind) {
    switch (kind) {
    case ClipKind::text:
        return "doc.plaintext";
    case ClipKind::richText:
        return "doc.richtext";
    case ClipKind::url:
        return "link";
    case ClipKind::image:
        return "photo";
    case ClipKind::file:
        return "doc";
    case ClipKind::color:
        return "paintpalette";
    }
    return "doc";
}

std::string hostTimeZone() {
    std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
    icu::UnicodeString id;
    zone->getID(id);
    std::string out;
    id.toUTF8String(out);
    return out.empty() ? "UTC" : out;
}

// A snippet pasted from the stack renders as an expansion would, without a fill-in form:
// fields take their defaults.
std::string renderSnippet(ModelContext& context, const Snippet& snippet, Date now) {
    ExpansionContext expansion;
    expansion.now = std::chrono::time_point_cast<std::chrono::system_clock::duration>(now);
    expansion.timeZone = hostTimeZone();
    for (const auto& [key, value] : ProfileStore(context).profile().values) {
        expansion.variables[key] = value;
    }
    auto counter = std::make_shared<std::int64_t>(1);
    expansion.nextCounter = [counter] { return (*counter)++; };
    auto engine = std::make_shared<std::mt19937_64>(std::random_device{}());
    expansion.randomInt = [engine](std::int64_t low, std::int64_t high) {
        return std::uniform_int_distribution<std::int64_t>(low, high)(*engine);
    };
    ModelContext* library = &context;
    expansion.resolveSnippet = [library](std::string_view keyword) -> std::optional<std::string> {
        if (auto found = SnippetStore(*library).liveSnippet(keyword)) {
            return found->content;
        }
        return std::nullopt;
    };
    return SnippetRenderer::render(snippet.content, expansion, snippet.keyword).text;
}

} // namespace

std::optional<PasteStackContent> PasteStackLibrary::resolve(ModelContext& context,
                                                            const PasteStackEntry& entry,
                                                            bool withContent, Date now) {
    PasteStackContent content;
    if (const auto* clipEntry = std::get_if<PasteStackClip>(&entry)) {
        ClipStore store(context, ClipStoreSettings{});
        const auto clip = store.clip(clipEntry->id);
        if (!clip || !clip->isLive()) {
            return std::nullopt;
        }
        content.preview = clip->previewText;
        content.iconName = std::string(iconFor(clip->primaryKind));
        if (withContent) {
            const auto reps = store.representations(clip->id);
            content.pasteboard = ClipPasteboard::snapshot(reps);
            content.text = ClipPasteboard::bestText(reps);
        }
        return content;
    }
    const auto& snippetEntry = std::get<PasteStackSnippet>(entry);
    const auto snippet = SnippetStore(context).snippet(snippetEntry.id);
    if (!snippet || !snippet->isLive()) {
        return std::nullopt;
    }
    content.preview = snippet->title.empty() ? snippet->keyword : snippet->title;
    content.iconName = "text.quote";
    if (withContent) {
        content.text = renderSnippet(context, *snippet, now);
        content.pasteboard = PasteboardSnapshot::fromItems(
            {{{PasteboardSnapshot::Payload::fromText(std::string(textType), *content.text)}}});
    }
    return content;
}

std::shared_ptr<PasteStackModel>
PasteStackLibrary::open(const std::filesystem::path& libraryDirectory, ModelContext& context) {
    const auto file = libraryDirectory / PasteStackFile::fileName;
    auto model = std::make_shared<PasteStackModel>();
    std::vector<PasteStackItem> items;
    for (const auto& entry : PasteStackFile::read(file)) {
        PasteStackItem item;
        item.entry = entry;
        if (auto found = resolve(context, entry, false, Date{})) {
            item.preview = std::move(found->preview);
            item.iconName = std::move(found->iconName);
        } else {
            item.preview = "Deleted item";
            item.iconName = "questionmark";
        }
        items.push_back(std::move(item));
    }
    model->restore(std::move(items));
    model->writeThrough = [file](const std::vector<PasteStackEntry>& entries) {
        PasteStackFile::write(file, entries);
    };
    return model;
}

PasteStackService::PasteStackService(ModelContext& context, std::shared_ptr<PasteStackModel> model,
                                     HotKeys& hotKeys, DesktopActions& desktop,
                                     Scheduler& scheduler, std::function<Date()> now)
    : context_(context), model_(std::move(model)), hotKeys_(hotKeys), desktop_(desktop),
      scheduler_(scheduler), now_(std::move(now)) {
    hotKeys_.setHandler([this, alive = alive_](HotKeyId id) {
        if (*alive) {
            onHotKey(id);
        }
    });
    // Emptied from elsewhere (the command line, a menu): nothing is left to paste.
    model_->observe([this, alive = std::weak_ptr<bool>(alive_)] {
        const auto live = alive.lock();
        if (live && *live && armed_ && !pasting_ && model_->isEmpty()) {
            stop();
        }
    });
}

PasteStackService::~PasteStackService() {
    *alive_ = false;
    stop();
    hotKeys_.setHandler(nullptr);
}

std::optional<std::string> PasteStackService::start() {
    if (model_->isEmpty()) {
        return std::string(emptyMessage);
    }
    if (armed_) {
        return std::nullopt;
    }
    const auto registration = hotKeys_.registerHotKey(pasteChord);
    if (const auto* registered = std::get_if<HotKeyRegistered>(&registration)) {
        hotKey_ = registered->id;
        armed_ = true;
        return std::nullopt;
    }
    if (const auto* taken = std::get_if<HotKeyTaken>(&registration)) {
        return taken->message;
    }
    return std::get<HotKeyUnavailable>(registration).message;
}

void PasteStackService::stop() {
    if (pending_) {
        scheduler_.cancel(*pending_);
        pending_.reset();
    }
    release();
    armed_ = false;
    pasting_ = false;
}

void PasteStackService::clear() {
    stop();
    model_->clear();
}

bool PasteStackService::add(const PasteStackEntry& entry) {
    const auto found = PasteStackLibrary::resolve(context_, entry, false, now_());
    if (!found) {
        show("That item is no longer in the library.");
        return false;
    }
    if (!model_->push(entry, found->preview, found->iconName)) {
        show("The Paste Stack is full: it holds " + std::to_string(PasteStackModel::capacity) +
             " items.");
        return false;
    }
    show(addedMessage);
    return true;
}

std::optional<std::string> PasteStackService::pasteNext() {
    while (!model_->isEmpty()) {
        const auto front = model_->entries().front();
        const auto content = PasteStackLibrary::resolve(context_, front.entry, true, now_());
        if (!content || content->pasteboard.empty()) {
            logs::app.warning(std::string("Skipped a Paste Stack entry whose ") +
                              std::string(entryKind(front.entry)) +
                              (content ? " has nothing to paste." : " was deleted."));
            model_->popFirst();
            continue;
        }
        if (auto refusal = desktop_.paste(content->pasteboard)) {
            return refusal;
        }
        model_->popFirst();
        return std::nullopt;
    }
    return std::string(emptyMessage);
}

void PasteStackService::onHotKey(HotKeyId id) {
    if (!armed_ || pasting_ || !hotKey_ || *hotKey_ != id) {
        return;
    }
    pasting_ = true;
    // Our own paste sends the same shortcut; it must reach the focused window, not us.
    release();
    pending_ = scheduler_.after(pasteDelay, [this, alive = alive_] {
        if (*alive) {
            pending_.reset();
            attemptPaste(pasteAttempts);
        }
    });
}

void PasteStackService::attemptPaste(int attemptsLeft) {
    if (!armed_) {
        return;
    }
    const bool wasEmpty = model_->isEmpty();
    const auto refusal = pasteNext();
    if (refusal && !wasEmpty && !model_->isEmpty() && attemptsLeft > 1) {
        pending_ = scheduler_.after(pasteDelay, [this, attemptsLeft, alive = alive_] {
            if (*alive) {
                pending_.reset();
                attemptPaste(attemptsLeft - 1);
            }
        });
        return;
    }
    if (refusal) {
        show(*refusal);
    }
    afterPaste();
}

void PasteStackService::afterPaste() {
    pasting_ = false;
    if (model_->isEmpty()) {
        stop();
        return;
    }
    pending_ = scheduler_.after(rearmDelay, [this, alive = alive_] {
        if (!*alive) {
            return;
        }
        pending_.reset();
        if (armed_ && !pasting_ && !hotKey_) {
            grab();
        }
    });
}

void PasteStackService::grab() {
    const auto registration = hotKeys_.registerHotKey(pasteChord);
    if (const auto* registered = std::get_if<HotKeyRegistered>(&registration)) {
        hotKey_ = registered->id;
        return;
    }
    armed_ = false;
    show(std::visit(
        [](const auto& r) -> std::string {
            if constexpr (std::is_same_v<std::decay_t<decltype(r)>, HotKeyRegistered>) {
                return {};
            } else {
                return r.message;
            }
        },
        registration));
}

void PasteStackService::release() {
    if (hotKey_) {
        hotKeys_.unregisterHotKey(*hotKey_);
        hotKey_.reset();
    }
}

void PasteStackService::show(std::string_view message) {
    if (toast_ && !message.empty()) {
        toast_(message);
    }
}

} // namespace marlune
