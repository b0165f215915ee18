#pragma once

#include "ClipboardKit/CaptureCoalescer.h"
#include "ClipboardKit/SecretPolicy.h"
#include "ClipboardKit/SkippedSecretTally.h"
#include "Marlune/ActiveWindowInfo.h"
#include "Marlune/ClipboardAccess.h"
#include "Marlune/Scheduler.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <chrono>
#include <functional>
#include <optional>

namespace marlune {

class Settings;

// Watches the clipboard and feeds the clipboard history. A copy is captured once it has stayed
// on the clipboard for `settleSeconds`, unless the source application is excluded, the copy is
// marked concealed, or it looks like a secret the user's policy skips. Main thread only.
class ClipboardCaptureService {
public:
    static constexpr std::chrono::milliseconds pollInterval{400};
    static constexpr double settleSeconds = 0.25;
    // The tick that follows a change notification comes this much after the settle time: a
    // timer that fires a hair early would find the change not yet settled and leave it to the
    // next poll, up to 0.4 s later.
    static constexpr std::chrono::milliseconds settledTickDelay{255};

    // Monotonic seconds (since boot, or any fixed origin); the coalescer measures the settle
    // time on it, so a wall-clock jump cannot capture a change early or hold it back.
    using Uptime = std::function<double()>;
    static double steadyUptime();

    ClipboardCaptureService(ClipboardAccess& clipboard, ActiveWindowInfo& activeWindow,
                            Scheduler& scheduler, ModelContext& context, Settings& settings,
                            std::function<Date()> clock, Uptime uptime = &steadyUptime);
    ~ClipboardCaptureService();
    ClipboardCaptureService(const ClipboardCaptureService&) = delete;
    ClipboardCaptureService& operator=(const ClipboardCaptureService&) = delete;

    // Starts polling. What is on the clipboard at this moment was copied while nobody was
    // watching and is left alone, so that a restart does not count it as one more copy.
    // Starting twice changes nothing.
    void start();
    void stop();
    bool isRunning() const { return pollTask_.has_value(); }

    // While paused nothing is captured, and copies made during the pause stay out of the
    // history after `resume` too, even when still on the clipboard.
    void pause();
    void resume();
    bool isPaused() const { return paused_; }

    // Leaves the clipboard's current change uncaptured without reading it. For writers that
    // put something on the clipboard that must not enter the history; such writes carry the
    // concealed markers as well, so forgetting to call this only costs one read.
    void noteOwnWrite();

    // Runs one poll: the timer's work, callable by the application when it wants an answer
    // now (the Board capture, after posting a copy command).
    void tick();

    // The user's secret settings (`skipLikelySecrets`, `skipOneTimeCodes`, both on unless
    // turned off).
    static SecretPolicy secretPolicy(const Settings& settings);

    const SkippedSecretTally& skippedSecrets() const { return skipped_; }
    // Called after an image clip has been stored.
    std::function<void(const Clip&)> onImageCaptured;

private:
    void clipboardChanged();
    void captureLoggingFailures();
    void capture();
    void forgetCurrentChange();

    ClipboardAccess& clipboard_;
    ActiveWindowInfo& activeWindow_;
    Scheduler& scheduler_;
    ModelContext& context_;
    Settings& settings_;
    std::function<Date()> clock_;
    Uptime uptime_;

    CaptureCoalescer coalescer_{settleSeconds};
    SkippedSecretTally skipped_;
    std::optional<Scheduler::TaskID> pollTask_;
    std::optional<Scheduler::TaskID> settledTick_;
    bool paused_ = false;
};

} // namespace marlune
