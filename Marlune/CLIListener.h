#pragma once

#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCore/Date.h"
#include "MarluneCore/MarluneStore.h"
#include "MarluneCore/Settings.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

class BoardCaptureService;
class CLISocketServer;
class DesktopActions;
class PasteStackModel;
class UsageStats;

// What command handlers reach besides the request: the library, the settings and the facts of
// this run. Everything here is used on the main thread only.
struct CLIEnvironment {
    std::shared_ptr<ModelContainer> container;
    Settings* settings = nullptr;
    std::filesystem::path libraryDirectory;
    // Without a display there is no clipboard to copy to and no application to paste into.
    bool headless = true;
    // The clipboard and paste path of GUI mode; null when headless.
    DesktopActions* desktop = nullptr;
    // The Board's capture of the selection, GUI mode only.
    BoardCaptureService* boardCapture = nullptr;
    // The paste stack's queue, shared with the paste-stack service, and the expansion
    // statistics. Left empty, each is opened from the library directory on first use.
    std::shared_ptr<PasteStackModel> pasteStack;
    std::shared_ptr<UsageStats> usageStats;
    std::string appVersion;
    std::function<Date()> now = dateNow;
    // Asks the application to quit after the current answer has been sent.
    std::function<void()> quit;
    // Runs after every command that succeeded, with its name (the services reread what a
    // write may have changed).
    std::function<void(std::string_view command)> afterCommand;
};

// One command being answered: its request, the environment, and the warnings it gathers.
class CLICall {
public:
    CLICall(const CLIRequest& request, CLIEnvironment& environment)
        : request_(request), environment_(environment) {}

    const CLIRequest& request() const { return request_; }
    CLIEnvironment& environment() { return environment_; }

    ModelContext& context() { return environment_.container->mainContext(); }
    Settings& settings() { return *environment_.settings; }
    Date now() const { return environment_.now(); }

    void warn(std::string code, std::string message) {
        warnings_.push_back({std::move(code), std::move(message)});
    }
    std::vector<CLIWarningPayload> takeWarnings() { return std::move(warnings_); }

private:
    const CLIRequest& request_;
    CLIEnvironment& environment_;
    std::vector<CLIWarningPayload> warnings_;
};

// The application side of the command line: the registry of command handlers, the dispatch
// that routes a request to one, and the socket server that brings requests in. Handlers run
// on the main thread, one at a time; the thread serving each connection hands its request
// over and waits.
class CLIListener {
public:
    using Handler = std::function<CLIResponse(const CLIRequest&)>;
    // Runs a task on the main thread (queued; the caller does not wait).
    using MainThreadRunner = std::function<void(std::function<void()>)>;

    CLIListener(CLIEnvironment environment, MainThreadRunner runOnMain);
    ~CLIListener();
    CLIListener(const CLIListener&) = delete;
    CLIListener& operator=(const CLIListener&) = delete;

    // Creates the directory and token, binds the socket and starts serving. A failure is
    // logged ("CLIListener failed to start: ...") and the application goes on without it.
    bool start();
    void stop();
    bool isServing() const;
    std::filesystem::path socketPath() const;

    // Routes one request on the main thread. Never throws: a handler's CLIError becomes its
    // payload, store errors their codes, anything else E_RUNTIME.
    CLIResponse dispatch(const CLIRequest& request);

    void add(std::string name, Handler handler);
    bool has(std::string_view name) const;

    // How much of a reply a page of list items may fill (as `replyBytes` counts): the frame's
    // 16 MiB less room for the response around it and its warnings. A longer list ends early
    // with a next offset.
    static constexpr std::size_t listReplyBudget = std::size_t{12} << 20;

    // Registers a handler whose body takes the decoded argument record and returns the result
    // record: `Result body(const Args&, CLICall&)`. Undecodable arguments are answered with
    // E_USAGE before the body runs.
    template <class Args, class Body> void addTyped(std::string name, Body body) {
        add(name, [this, body](const CLIRequest& request) -> CLIResponse {
            auto decoded = decodeArgs<Args>(request);
            if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
                return CLIResponse::failure(std::move(*error));
            }
            CLICall call(request, environment_);
            auto result = body(std::get<Args>(decoded), call);
            if constexpr (IsPage<decltype(result)>::value) {
                result.fitToReply(listReplyBudget);
            }
            return successResponse(result, call.takeWarnings());
        });
    }

    CLIEnvironment& environment() { return environment_; }

private:
    CLIResponse bridge(const CLIRequest& request);

    CLIEnvironment environment_;
    MainThreadRunner runOnMain_;
    std::map<std::string, Handler, std::less<>> handlers_;
    std::unique_ptr<CLISocketServer> server_;
    std::shared_ptr<bool> alive_;
    std::atomic<bool> stopping_{false};
};

// The command groups; each adds its handlers to the listener.
void registerSystemCommands(CLIListener& listener);
void registerSnippetCommands(CLIListener& listener);
void registerLibraryCommands(CLIListener& listener); // groups and tags
void registerProfileAndConfigCommands(CLIListener& listener);
// The read side of the clipboard history.
void registerClipCommands(CLIListener& listener);
// --- cli2 register begin
void registerPinboardCommands(CLIListener& listener);
void registerTrashAndRuleCommands(CLIListener& listener);
void registerStackCommands(CLIListener& listener);
// --- cli2 register end
// --- data register begin
// The library document: data.export, data.import, and clip.import.
void registerDataCommands(CLIListener& listener);
// --- data register end
// --- board register begin
// The Board: sections, items, capture, export.
void registerBoardCommands(CLIListener& listener);
// --- board register end

// Every command group available in this build.
void registerAllCommands(CLIListener& listener);

} // namespace marlune
