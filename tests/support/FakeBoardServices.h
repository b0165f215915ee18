#pragma once

#include "Marlune/BoardCaptureService.h"
#include "Marlune/BoardReminders.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace marlune::test {

// Records every toast instead of showing it.
class FakeToast : public Toast {
public:
    struct Shown {
        std::string title;
        std::optional<std::string> subtitle;
        std::string symbol;
    };
    void show(std::string_view title, std::optional<std::string_view> subtitle,
              std::string_view symbol) override {
        shown.push_back({std::string(title),
                         subtitle ? std::optional<std::string>(std::string(*subtitle)) : std::nullopt,
                         std::string(symbol)});
    }
    std::vector<Shown> shown;
};

class FakeSoundPlayer : public SoundPlayer {
public:
    void play(std::string_view name) override { played.emplace_back(name); }
    std::vector<std::string> played;
};

class FakePageAddress : public PageAddressSource {
public:
    std::optional<std::string> focusedPageAddress() override { return address; }
    std::optional<std::string> address;
};

// The notification centre as a map of pending requests; `refuse` makes it turn requests down.
class FakeReminderCenter : public ReminderCenter {
public:
    std::optional<std::string> add(const ReminderRequest& request) override {
        if (refuse) {
            return *refuse;
        }
        ++adds;
        pendingRequests[request.identifier] = request;
        return std::nullopt;
    }
    void remove(const std::vector<std::string>& identifiers) override {
        for (const auto& identifier : identifiers) {
            removed.push_back(identifier);
            pendingRequests.erase(identifier);
            deliveredIDs.erase(identifier);
        }
    }
    std::vector<ReminderRequest> pending() override {
        std::vector<ReminderRequest> out;
        for (const auto& [id, request] : pendingRequests) {
            out.push_back(request);
        }
        return out;
    }
    std::vector<std::string> delivered() override {
        return {deliveredIDs.begin(), deliveredIDs.end()};
    }
    // The request fell due and was shown.
    void deliver(const std::string& identifier) {
        pendingRequests.erase(identifier);
        deliveredIDs.insert(identifier);
    }

    std::map<std::string, ReminderRequest> pendingRequests;
    std::set<std::string> deliveredIDs;
    std::vector<std::string> removed;
    std::optional<std::string> refuse;
    int adds = 0;
};

// The desktop's notification service: what was shown and closed.
class FakeDesktopNotifications : public DesktopNotifications {
public:
    Shown notify(std::string_view title, std::string_view body, std::string_view category) override {
        if (refuse) {
            return {std::nullopt, *refuse};
        }
        shown.push_back({std::string(title), std::string(body), std::string(category)});
        return {nextID++, std::nullopt};
    }
    void close(std::uint32_t id) override { closed.push_back(id); }

    struct Notice {
        std::string title, body, category;
    };
    std::vector<Notice> shown;
    std::vector<std::uint32_t> closed;
    std::optional<std::string> refuse;
    std::uint32_t nextID = 1;
};

} // namespace marlune::test
