#include "Marlune/ClipboardCaptureService.h"

#include "ClipboardKit/CaptureGate.h"
#include "ClipboardKit/NewClipFromCapture.h"
#include "MarluneCore/CaptureRuleStore.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/Settings.h"

#include <exception>
#include <string>
#include <utility>

namespace marlune {

namespace {

constexpr Logger captureLog{"capture"};

} // namespace

double ClipboardCaptureService::steadyUptime() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

ClipboardCaptureService::ClipboardCaptureService(ClipboardAccess& clipboard,
                                                 ActiveWindowInfo& activeWindow,
                                                 Scheduler& scheduler, ModelContext& context,
                                                 Settings& settings, std::function<Date()> clock,
                                                 Uptime uptime)
    : clipboard_(clipboard), activeWindow_(activeWindow), scheduler_(scheduler), context_(context),
      settings_(settings), clock_(std::move(clock)), uptime_(std::move(uptime)) {}

ClipboardCaptureService::~ClipboardCaptureService() {
    stop();
}

void ClipboardCaptureService::start() {
    if (pollTask_) {
        return;
    }
    forgetCurrentChange();
    clipboard_.setChangeHandler([this] { clipboardChanged(); });
    pollTask_ = scheduler_.every(pollInterval, [this] { tick(); });
}

void ClipboardCaptureService::stop() {
    if (!pollTask_) {
        return;
    }
    clipboard_.setChangeHandler({});
    scheduler_.cancel(*pollTask_);
    pollTask_.reset();
    if (settledTick_) {
        scheduler_.cancel(*settledTick_);
        settledTick_.reset();
    }
}

void ClipboardCaptureService::pause() {
    paused_ = true;
    forgetCurrentChange();
}

void ClipboardCaptureService::resume() {
    if (!paused_) {
        return;
    }
    forgetCurrentChange();
    paused_ = false;
}

void ClipboardCaptureService::noteOwnWrite() {
    forgetCurrentChange();
}

void ClipboardCaptureService::forgetCurrentChange() {
    coalescer_.lastCaptured = clipboard_.changeCount();
    coalescer_.pendingChangeCount.reset();
    coalescer_.pendingSince.reset();
}

void ClipboardCaptureService::clipboardChanged() {
    // Linux says when the clipboard changes, so a copy need not wait for the next poll: the
    // settle time starts now rather than at the next poll, and one tick right after it
    // captures the change. Only the latest change needs that tick.
    if (paused_) {
        forgetCurrentChange();
        return;
    }
    if (coalescer_.observe(clipboard_.changeCount(), uptime_())) {
        captureLoggingFailures(); // a repeated notice of a change that has settled meanwhile
    }
    if (settledTick_) {
        scheduler_.cancel(*settledTick_);
    }
    settledTick_ = scheduler_.after(settledTickDelay, [this] {
        settledTick_.reset();
        tick();
    });
}

void ClipboardCaptureService::tick() {
    if (paused_) {
        forgetCurrentChange();
        return;
    }
    if (coalescer_.observe(clipboard_.changeCount(), uptime_())) {
        captureLoggingFailures();
    }
}

void ClipboardCaptureService::captureLoggingFailures() {
    try {
        capture();
    } catch (const std::exception& error) {
        // A timer callback has nowhere to throw to; the next copy gets a fresh try.
        captureLog.error(std::string("Could not store a clipboard capture: ") + error.what());
    }
}

void ClipboardCaptureService::capture() {
    const std::optional<ActiveWindow> source = activeWindow_.activeWindow();
    // Checked before the clipboard is read: an excluded application's data is never fetched.
    if (source && CaptureRuleStore(context_).isExcluded(source->bundleIdentifier)) {
        return;
    }
    const PasteboardSnapshot snapshot = clipboard_.snapshot();
    const CaptureDecision decision = CaptureGate::decide(snapshot, secretPolicy(settings_));
    if (const CapturedClip* captured = decision.capturedClip()) {
        const Date now = clock_();
        ClipStore store(context_, ClipStoreSettings::read(settings_));
        const std::string_view sourceClass =
            source ? std::string_view(source->bundleIdentifier) : std::string_view();
        const Clip clip = store.capture(newClipFromCapture(*captured, now, sourceClass), now);
        if (clip.primaryKind == ClipKind::image && onImageCaptured) {
            onImageCaptured(clip);
        }
        return;
    }
    if (const std::optional<SecretKind> kind = decision.secretKind()) {
        skipped_.record(*kind);
        captureLog.info("Skipped a likely secret (" + std::string(secretKindLabel(*kind)) + ")");
    }
}

SecretPolicy ClipboardCaptureService::secretPolicy(const Settings& settings) {
    SecretPolicy policy;
    policy.skipLikelySecrets = settings.boolean("skipLikelySecrets", policy.skipLikelySecrets);
    policy.skipOneTimeCodes = settings.boolean("skipOneTimeCodes", policy.skipOneTimeCodes);
    return policy;
}

} // namespace marlune
