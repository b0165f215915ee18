#include "Marlune/BoardReminders.h"

#include "MarluneCore/BoardStore.h"
#include "MarluneCore/Log.h"

#include <algorithm>
#include <memory>
#include <set>

namespace marlune {

namespace {

constexpr Logger remindersLog{"board.reminders"};

std::string bodyOf(std::string text) {
    std::size_t i = 0;
    std::size_t count = 0;
    while (i < text.size() && count < BoardReminders::bodyLength) {
        const auto lead = static_cast<unsigned char>(text[i]);
        i += lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        ++count;
    }
    if (i < text.size()) {
        text.resize(i);
        text += "…";
    }
    return text;
}

} // namespace

ScheduledReminderCenter::ScheduledReminderCenter(DesktopNotifications& notifications,
                                                 Scheduler& scheduler, std::function<Date()> clock)
    : notifications_(notifications), scheduler_(scheduler), clock_(std::move(clock)) {}

ScheduledReminderCenter::~ScheduledReminderCenter() {
    for (const auto& [identifier, entry] : waiting_) {
        scheduler_.cancel(entry.timer);
    }
}

std::optional<std::string> ScheduledReminderCenter::add(const ReminderRequest& request) {
    if (request.identifier.empty()) {
        return "A reminder needs an identifier.";
    }
    remove({request.identifier});
    waiting_[request.identifier] = Waiting{request, 0};
    arm(request.identifier);
    return std::nullopt;
}

void ScheduledReminderCenter::arm(const std::string& identifier) {
    auto& entry = waiting_.at(identifier);
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(
        entry.request.fireAt - clock_());
    const auto delay = std::clamp(wait, std::chrono::milliseconds(0), longestWait);
    entry.timer = scheduler_.after(delay, [this, identifier] { fire(identifier); });
}

void ScheduledReminderCenter::fire(const std::string& identifier) {
    const auto found = waiting_.find(identifier);
    if (found == waiting_.end()) {
        return;
    }
    if (clock_() < found->second.request.fireAt) {
        arm(identifier); // a step of a long wait, or a clock set back
        return;
    }
    const ReminderRequest request = std::move(found->second.request);
    waiting_.erase(found);
    const auto shown = notifications_.notify(request.title, request.body, request.threadIdentifier);
    if (shown.id) {
        delivered_[identifier] = *shown.id;
    } else {
        remindersLog.error("The notification service refused a Board reminder: " +
                           shown.error.value_or("no answer"));
    }
}

void ScheduledReminderCenter::remove(const std::vector<std::string>& identifiers) {
    for (const auto& identifier : identifiers) {
        if (const auto found = waiting_.find(identifier); found != waiting_.end()) {
            scheduler_.cancel(found->second.timer);
            waiting_.erase(found);
        }
        if (const auto found = delivered_.find(identifier); found != delivered_.end()) {
            notifications_.close(found->second);
            delivered_.erase(found);
        }
    }
}

std::vector<ReminderRequest> ScheduledReminderCenter::pending() {
    std::vector<ReminderRequest> out;
    for (const auto& [identifier, entry] : waiting_) {
        out.push_back(entry.request);
    }
    return out;
}

std::vector<std::string> ScheduledReminderCenter::delivered() {
    std::vector<std::string> out;
    for (const auto& [identifier, id] : delivered_) {
        out.push_back(identifier);
    }
    return out;
}

BoardReminders::BoardReminders(ReminderCenter& center, ModelContext& context)
    : center_(center), context_(context) {}

std::vector<ReminderRequest> BoardReminders::wanted(Date now) {
    MainActor::assertIsolated();
    std::vector<std::string> ids;
    {
        auto stmt = context_.db().prepare(
            "SELECT DISTINCT c.id FROM Clip c JOIN ClipPinboard cp ON cp.clip_id = c.id "
            "JOIN Pinboard p ON p.id = cp.pinboard_id WHERE p.isBoard = 1 AND "
            "c.deletedAt IS NULL AND c.completedAt IS NULL AND c.dueAt > ?1 ORDER BY c.dueAt");
        stmt.bind(1, toStorage(now));
        while (stmt.step()) {
            ids.push_back(stmt.text(0));
        }
    }
    // The store is only read here; its settings are never touched.
    std::vector<ReminderRequest> out;
    ClipStore clips(context_, {});
    for (const auto& text : ids) {
        const auto id = Uuid::parse(text);
        const auto clip = id ? clips.clip(*id) : std::nullopt;
        if (!clip || !clip->dueAt) {
            continue;
        }
        ReminderRequest request;
        request.identifier = std::string(identifierPrefix) + clip->id.string();
        request.threadIdentifier = std::string(threadIdentifier);
        request.title = std::string(title);
        const auto reps = clips.representations(clip->id);
        std::optional<std::string> body;
        for (const auto& rep : reps) {
            if (rep.text && (!body || rep.utTypeIdentifier == BoardConstants::plainTextType)) {
                body = rep.text;
                if (rep.utTypeIdentifier == BoardConstants::plainTextType) {
                    break;
                }
            }
        }
        request.body = bodyOf(body.value_or(clip->previewText));
        request.fireAt = *clip->dueAt;
        out.push_back(std::move(request));
    }
    return out;
}

BoardReminders::Outcome BoardReminders::reconcile(Date now) {
    Outcome outcome;
    std::map<std::string, ReminderRequest> want;
    for (auto& request : wanted(now)) {
        want.emplace(request.identifier, std::move(request));
    }
    std::map<std::string, ReminderRequest> have;
    for (auto& request : center_.pending()) {
        if (request.identifier.starts_with(identifierPrefix)) {
            have.emplace(request.identifier, std::move(request));
        }
    }
    std::vector<std::string> stale;
    for (const auto& [identifier, request] : have) {
        const auto found = want.find(identifier);
        if (found == want.end() || !(found->second == request)) {
            stale.push_back(identifier);
        }
    }
    // Shown notifications stay while their item is still open, on the Board and due.
    std::set<std::string> stillDue;
    {
        auto stmt = context_.db().prepare(
            "SELECT DISTINCT c.id FROM Clip c JOIN ClipPinboard cp ON cp.clip_id = c.id "
            "JOIN Pinboard p ON p.id = cp.pinboard_id WHERE p.isBoard = 1 AND "
            "c.deletedAt IS NULL AND c.completedAt IS NULL AND c.dueAt IS NOT NULL");
        while (stmt.step()) {
            stillDue.insert(std::string(identifierPrefix) + stmt.text(0));
        }
    }
    for (const auto& identifier : center_.delivered()) {
        if (identifier.starts_with(identifierPrefix) && !stillDue.contains(identifier) &&
            !have.contains(identifier)) {
            stale.push_back(identifier);
        }
    }
    if (!stale.empty()) {
        center_.remove(stale);
        outcome.removed = static_cast<std::int64_t>(stale.size());
    }
    for (const auto& [identifier, request] : want) {
        const auto found = have.find(identifier);
        if (found != have.end() && found->second == request) {
            continue;
        }
        if (auto refusal = center_.add(request)) {
            ++outcome.refused;
            remindersLog.error("A Board reminder was refused: " + *refusal);
        } else {
            ++outcome.added;
        }
    }
    return outcome;
}

} // namespace marlune
