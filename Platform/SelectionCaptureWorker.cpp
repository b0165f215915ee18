#include "Platform/SelectionCaptureWorker.h"

#include "Platform/X11SelectionReader.h"

#include <memory>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>
#include <variant>
#include <xcb/xproto.h>

namespace marlune {

namespace {

SelectionCapture failedRead() {
    SelectionCapture capture;
    capture.read.outcome = ClipboardCaptureRead::Outcome::failed;
    return capture;
}

} // namespace

SelectionCaptureWorker::SelectionCaptureWorker(std::function<bool(std::uint32_t)> heldHere,
                                               std::chrono::milliseconds budget,
                                               std::string display)
    : heldHere_(std::move(heldHere)), budget_(budget), display_(std::move(display)),
      interrupt_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread_([this] { run(); }) {}

SelectionCaptureWorker::~SelectionCaptureWorker() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (interrupt_ >= 0) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(interrupt_, &one, sizeof one);
    }
    thread_.join();
    if (interrupt_ >= 0) {
        ::close(interrupt_);
    }
}

void SelectionCaptureWorker::read(std::vector<std::uint64_t> skipOwners, Finished finished) {
    std::optional<Job> replaced;
    {
        std::lock_guard lock(mutex_);
        replaced = std::exchange(pending_, Job{std::move(skipOwners), std::move(finished)});
    }
    wake_.notify_one();
    if (replaced && replaced->finished) {
        replaced->finished(failedRead());
    }
}

void SelectionCaptureWorker::run() {
    std::unique_ptr<X11SelectionReader> reader;
    std::uint32_t clipboard = XCB_ATOM_NONE;
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || pending_.has_value(); });
            if (stopping_) {
                return;
            }
            job = std::move(*pending_);
            pending_.reset();
        }
        // The budget runs from the start of the read, whatever it waited for before.
        const auto deadline = SelectionSource::Clock::now() + budget_;
        if (reader && reader->broken()) {
            reader.reset();
        }
        if (!reader) {
            auto opened = X11Connection::open(display_);
            if (auto* connection = std::get_if<X11Connection>(&opened)) {
                reader = std::make_unique<X11SelectionReader>(std::move(*connection));
                reader->setInterrupt(interrupt_);
                clipboard = reader->atom("CLIPBOARD");
            }
        }
        SelectionCapture capture =
            reader ? captureSelection(*reader,
                                      {clipboard, deadline, std::move(job.skipOwners), heldHere_})
                   : failedRead();
        {
            std::lock_guard lock(mutex_);
            if (stopping_) {
                return;
            }
        }
        if (job.finished) {
            job.finished(std::move(capture));
        }
    }
}

} // namespace marlune
