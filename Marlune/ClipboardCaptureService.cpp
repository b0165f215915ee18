#include "Marlune/ClipboardCaptureService.h"

#include "ClipboardKit/CaptureGate.h"
#include "ClipboardKit/NewClipFromCapture.h"
#include "MarluneCore/CaptureRuleStore.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentLimits.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/Settings.h"

#include <algorithm>
#include <cmath>
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
    dropRead();
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
    // A read still out is for a change that is now to be left alone, or an older one.
    dropRead();
}

void ClipboardCaptureService::dropRead() {
    if (read_) {
        scheduler_.cancel(read_->giveUp);
        read_.reset();
    }
    readAgain_ = false;
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
    if (read_) {
        readAgain_ = true;
        return;
    }
    readAgain_ = false;
    std::optional<ActiveWindow> source = activeWindow_.activeWindow();
    // Checked before the clipboard is read: an excluded application's data is never fetched.
    if (source && CaptureRuleStore(context_).isExcluded(source->bundleIdentifier)) {
        return;
    }
    const std::uint64_t id = nextReadID_++;
    read_ = ReadInFlight{id, clipboard_.changeCount(), std::move(source),
                         scheduler_.after(readGiveUpAfter, [this, id] { readLost(id); })};
    // The answer may come at once, so nothing may follow this call.
    clipboard_.readForCapture(backedOffOwners(), [this, id, alive = std::weak_ptr<char>(alive_)](
                                                     ClipboardCaptureRead read) {
        if (!alive.expired()) {
            readFinished(id, std::move(read));
        }
    });
}

void ClipboardCaptureService::readFinished(std::uint64_t id, ClipboardCaptureRead read) {
    if (!read_ || read_->id != id) {
        return; // given up on, or dropped by a pause or a write of ours
    }
    scheduler_.cancel(read_->giveUp);
    const ReadInFlight finished = std::move(*read_);
    read_.reset();
    for (const auto& oversize : read.leftOut) {
        // The size and the type only: the data itself is never logged.
        captureLog.warning(
            "Left " + oversize.type + " out of a clipboard capture. " +
            ContentLimits::refusal("clip flavour", oversize.size, oversize.limit)
                .value_or("It is larger than " + ContentLimits::describe(oversize.limit) + "."));
    }
    using Outcome = ClipboardCaptureRead::Outcome;
    switch (read.outcome) {
    case Outcome::read:
        slowOwners_.erase(read.owner);
        // A change in the meantime may have mixed two copies in one read; the read that
        // follows that change stands for both.
        if (clipboard_.changeCount() == finished.changeCount) {
            try {
                store(read.snapshot, finished.source);
            } catch (const std::exception& error) {
                // The next copy gets a fresh try.
                captureLog.error(std::string("Could not store a clipboard capture: ") +
                                 error.what());
            }
        }
        break;
    case Outcome::timedOut:
        noteTimeout(read.owner);
        break;
    case Outcome::failed:
        captureLog.warning("Could not read the clipboard: the X display did not answer.");
        break;
    case Outcome::skipped:
    case Outcome::changed:
        break;
    }
    if (readAgain_) {
        readAgain_ = false;
        captureLoggingFailures();
    }
}

void ClipboardCaptureService::readLost(std::uint64_t id) {
    if (!read_ || read_->id != id) {
        return;
    }
    read_.reset();
    captureLog.warning("A clipboard read did not come back in time; that copy is not in the "
                       "history.");
    if (readAgain_) {
        readAgain_ = false;
        captureLoggingFailures();
    }
}

void ClipboardCaptureService::store(const PasteboardSnapshot& snapshot,
                                    const std::optional<ActiveWindow>& source) {
    const CaptureDecision decision = CaptureGate::decide(snapshot, secretPolicy(settings_));
    if (const CapturedClip* captured = decision.capturedClip()) {
        const Date now = clock_();
        ClipStore clips(context_, ClipStoreSettings::read(settings_));
        const std::string_view sourceClass =
            source ? std::string_view(source->bundleIdentifier) : std::string_view();
        const Clip clip = clips.capture(newClipFromCapture(*captured, now, sourceClass), now);
        if (clip.primaryKind == ClipKind::image && onImageCaptured) {
            onImageCaptured(clip);
        }
        return;
    }
    if (const std::optional<SecretKind> kind = decision.secretKind()) {
        skipped_.record(*kind);
        captureLog.info("Skipped a likely secret (" + std::string(secretKindRawValue(*kind)) + ")");
    }
}

void ClipboardCaptureService::noteTimeout(std::uint64_t owner) {
    if (owner == 0) {
        return;
    }
    const auto budget = std::to_string(ClipboardAccess::captureReadBudget.count() / 1000);
    SlowOwner& slow = slowOwners_[owner];
    ++slow.timeouts;
    const double now = uptime_();
    slow.until = now;
    if (slow.timeouts < timeoutsBeforeBackOff) {
        captureLog.warning("The application holding the clipboard did not hand over its copy "
                           "within " +
                           budget + " s; that copy is not in the history.");
        return;
    }
    const double pause =
        std::min(longestBackOffSeconds,
                 firstBackOffSeconds * std::exp2(slow.timeouts - timeoutsBeforeBackOff));
    slow.until = now + pause;
    captureLog.warning("The application holding the clipboard keeps not handing over its "
                       "copies within " +
                       budget + " s; its copies are not read for the next " +
                       std::to_string(static_cast<int>(pause)) + " s.");
}

std::vector<std::uint64_t> ClipboardCaptureService::backedOffOwners() {
    const double now = uptime_();
    // An owner quiet for a long while starts again from a clean slate.
    std::erase_if(slowOwners_, [&](const auto& entry) {
        return entry.second.until + longestBackOffSeconds < now;
    });
    std::vector<std::uint64_t> owners;
    for (const auto& [owner, slow] : slowOwners_) {
        if (slow.until > now) {
            owners.push_back(owner);
        }
    }
    return owners;
}

SecretPolicy ClipboardCaptureService::secretPolicy(const Settings& settings) {
    SecretPolicy policy;
    policy.skipLikelySecrets = settings.boolean("skipLikelySecrets", policy.skipLikelySecrets);
    policy.skipOneTimeCodes = settings.boolean("skipOneTimeCodes", policy.skipOneTimeCodes);
    return policy;
}

} // namespace marlune
