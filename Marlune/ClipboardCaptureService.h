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
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace marlune {

class Settings;

// Watches the clipboard and feeds the clipboard history. A copy is captured once it has stayed
// on the clipboard for `settleSeconds`, unless the source application is excluded, the copy is
// marked concealed, or it looks like a secret the user's policy skips. Main thread only.
//
// The clipboard is read away from the main thread (`ClipboardAccess::readForCapture`), one read
// at a time: changes that settle while a read is out become one more read, of whatever is on
// the clipboard when it starts, and a read overlapped by a change is dropped in favour of it.
// An owner (an X window) whose reads keep running out of time is not asked again for a while,
// `firstBackOffSeconds` at first, doubling to `longestBackOffSeconds`; a read of it that
// succeeds forgives it. Copies made in other applications are read meanwhile.
class ClipboardCaptureService {
public:
    static constexpr std::chrono::milliseconds pollInterval{400};
    static constexpr double settleSeconds = 0.25;
    // The tick that follows a change notification comes this much after the settle time: a
    // timer that fires a hair early would find the change not yet settled and leave it to the
    // next poll, up to 0.4 s later.
    static constexpr std::chrono::milliseconds settledTickDelay{255};
    // A read that has not reported well after its budget is taken to be lost (the reader
    // stuck on the X server): the service stops waiting for it, and a late answer is ignored.
    static constexpr std::chrono::milliseconds readGiveUpAfter =
        ClipboardAccess::captureReadBudget + std::chrono::milliseconds(1000);
    // One timeout can be an application busy for a moment; the second in a row is a habit.
    // The pause doubles with every further timeout of the same owner.
    static constexpr int timeoutsBeforeBackOff = 2;
    static constexpr double firstBackOffSeconds = 10;
    static constexpr double longestBackOffSeconds = 300;

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
    struct ReadInFlight {
        std::uint64_t id = 0;
        std::int64_t changeCount = 0;
        std::optional<ActiveWindow> source;
        Scheduler::TaskID giveUp = 0;
    };
    // An owner whose reads ran out of time, and until when (uptime) it is left alone.
    struct SlowOwner {
        int timeouts = 0;
        double until = 0;
    };

    void clipboardChanged();
    void captureLoggingFailures();
    void capture();
    void readFinished(std::uint64_t id, ClipboardCaptureRead read);
    void readLost(std::uint64_t id);
    void store(const PasteboardSnapshot& snapshot, const std::optional<ActiveWindow>& source);
    void noteTimeout(std::uint64_t owner);
    std::vector<std::uint64_t> backedOffOwners();
    void dropRead();
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
    std::optional<ReadInFlight> read_;
    // A change settled while a read was out: one more read follows it.
    bool readAgain_ = false;
    std::uint64_t nextReadID_ = 1;
    std::map<std::uint64_t, SlowOwner> slowOwners_;
    // Answers that arrive after the service is gone find this expired.
    std::shared_ptr<char> alive_ = std::make_shared<char>();
};

} // namespace marlune
