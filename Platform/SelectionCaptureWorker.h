#pragma once

#include "Platform/SelectionCapture.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace marlune {

// Reads the CLIPBOARD selection for the history on a thread and an X connection of its own,
// so that an owner that is slow or never answers keeps only this thread waiting. One read
// runs at a time, with `budget` for all of it; a read asked for meanwhile waits its turn, and
// a later one takes its place.
class SelectionCaptureWorker {
public:
    // Called on the worker's thread (or, for a read replaced before it started, on the
    // thread that replaced it); never after the destructor has returned.
    using Finished = std::function<void(SelectionCapture)>;

    // `heldHere` tells the windows of this process; it is called on the worker's thread.
    SelectionCaptureWorker(std::function<bool(std::uint32_t owner)> heldHere,
                           std::chrono::milliseconds budget, std::string display = {});
    // Ends a read in progress at once and waits for the thread.
    ~SelectionCaptureWorker();
    SelectionCaptureWorker(const SelectionCaptureWorker&) = delete;
    SelectionCaptureWorker& operator=(const SelectionCaptureWorker&) = delete;

    void read(std::vector<std::uint64_t> skipOwners, Finished finished);

private:
    struct Job {
        std::vector<std::uint64_t> skipOwners;
        Finished finished;
    };

    void run();

    std::function<bool(std::uint32_t)> heldHere_;
    std::chrono::milliseconds budget_;
    std::string display_;
    int interrupt_ = -1;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::optional<Job> pending_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace marlune
