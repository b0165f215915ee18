#include "Marlune/CLIListener.h"

#include "Marlune/CLISocketServer.h"
#include "MarluneCLIProtocol/CLIEndpoint.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIRequestGate.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCore/AtomicFile.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/LibraryPaths.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/MainActor.h"
#include "MarluneCore/SnippetStore.h"

#include <chrono>
#include <future>
#include <system_error>
#include <unistd.h>

namespace marlune {

namespace {

std::filesystem::path bundledToolPath() {
    std::error_code ec;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::path() : self.parent_path() / "marlune";
}

std::string loadOrCreateToken(const std::filesystem::path& file) {
    if (auto token = CLIToken::fromFileContents(readFileIfExists(file))) {
        return *token;
    }
    auto fresh = CLIToken::generate();
    if (!fresh) {
        throw CLISocketServerError("Failed to generate CLI token.");
    }
    writeFileAtomically(file, *fresh, 0600);
    return *fresh;
}

} // namespace

CLIListener::CLIListener(CLIEnvironment environment, MainThreadRunner runOnMain)
    : environment_(std::move(environment)), runOnMain_(std::move(runOnMain)),
      alive_(std::make_shared<bool>(true)) {}

CLIListener::~CLIListener() {
    stop();
    alive_.reset();
}

bool CLIListener::start() {
    try {
        const CLIEndpoint endpoint{environment_.libraryDirectory};
        createPrivateDirectory(endpoint.directory);
        const std::string token = loadOrCreateToken(endpoint.tokenPath());
        CLIPeerPolicy policy;
        policy.requireBundledTool = environment_.settings == nullptr ||
                                    environment_.settings->boolean("cliRequireBundledTool", true);
        policy.bundledTool = bundledToolPath();
        server_ = std::make_unique<CLISocketServer>(
            endpoint.socketPath().string(), token,
            [this](const CLIRequest& request) { return bridge(request); }, std::move(policy));
        server_->start();
        logs::app.info("CLI listener bound at " + server_->path());
        return true;
    } catch (const std::exception& error) {
        server_.reset();
        logs::app.error(std::string("CLIListener failed to start: ") + error.what());
        return false;
    }
}

void CLIListener::stop() {
    if (server_) {
        stopping_ = true;
        server_->stop();
        server_.reset();
        stopping_ = false;
    }
}

bool CLIListener::isServing() const {
    return server_ && server_->listenFD() >= 0;
}

std::filesystem::path CLIListener::socketPath() const {
    return CLIEndpoint{environment_.libraryDirectory}.socketPath();
}

void CLIListener::add(std::string name, Handler handler) {
    handlers_[std::move(name)] = std::move(handler);
}

bool CLIListener::has(std::string_view name) const {
    return handlers_.contains(name);
}

CLIResponse CLIListener::dispatch(const CLIRequest& request) {
    MainActor::assertIsolated();
    const auto it = handlers_.find(request.command);
    if (it == handlers_.end()) {
        return CLIRequestGate::unknownCommand(request.command);
    }
    try {
        auto response = it->second(request);
        if (environment_.afterCommand && response.ok) {
            environment_.afterCommand(request.command);
        }
        return response;
    } catch (const CLIError& error) {
        return CLIResponse::failure(error.payload());
    } catch (const SnippetStoreError& error) {
        return CLIResponse::failure(error.kind() == SnippetStoreError::Kind::keywordInUse
                                        ? CLIErrorCode::conflict
                                        : CLIErrorCode::notFound,
                                    error.what());
    } catch (const DatabaseError& error) {
        // The user reads a sentence; the statement and SQLite's wording go to the log.
        logs::store.error(request.command + " failed: " + error.detail());
        return CLIResponse::failure(error.isBusy() ? CLIErrorCode::busy : CLIErrorCode::runtime,
                                    error.what());
    } catch (const std::exception& error) {
        return CLIResponse::failure(CLIErrorCode::runtime, error.what());
    }
}

// Runs on a connection's thread, several at once when clients overlap: each call hands its
// request to the main thread with a promise of its own and waits, and the main thread answers
// the queued requests one after another. The wait gives up only when the listener is being
// stopped, so that stopping cannot deadlock against a main thread that is itself waiting for the
// server to finish.
CLIResponse CLIListener::bridge(const CLIRequest& request) {
    auto answer = std::make_shared<std::promise<CLIResponse>>();
    auto future = answer->get_future();
    runOnMain_([this, alive = std::weak_ptr<bool>(alive_), answer, request] {
        if (alive.expired()) {
            answer->set_value(CLIRequestGate::listenerGone());
            return;
        }
        answer->set_value(dispatch(request));
    });
    while (future.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
        if (stopping_) {
            return CLIRequestGate::listenerGone();
        }
    }
    return future.get();
}

} // namespace marlune
