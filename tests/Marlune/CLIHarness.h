#pragma once

#include "Marlune/CLIListener.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCore/Settings.h"
#include "support/LibraryFixture.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

namespace marlune::test {

// An in-memory library behind a listener with every command group of this module registered,
// driven through `dispatch` with requests as the tool builds them.
class CLIHarness : public ::testing::Test {
protected:
    CLIHarness() {
        settings = std::make_unique<Settings>(Settings::load(
            library.dir / "settings.json", std::chrono::system_clock::time_point(testNow())));
        CLIEnvironment environment;
        environment.container = std::shared_ptr<ModelContainer>(std::move(library.container));
        environment.settings = settings.get();
        environment.libraryDirectory = library.dir.path();
        environment.headless = true;
        environment.appVersion = "9.8.7";
        environment.now = [] { return testNow(); };
        container = environment.container;
        listener = std::make_unique<CLIListener>(std::move(environment),
                                                 [](std::function<void()> task) { task(); });
        registerSystemCommands(*listener);
        registerSnippetCommands(*listener);
        registerLibraryCommands(*listener);
        registerProfileAndConfigCommands(*listener);
        registerClipCommands(*listener);
        // --- cli2 register begin
        registerPinboardCommands(*listener);
        registerTrashAndRuleCommands(*listener);
        registerStackCommands(*listener);
        // --- cli2 register end
        // --- data register begin
        registerDataCommands(*listener);
        // --- data register end
        // --- board register begin
        registerBoardCommands(*listener);
        // --- board register end
    }

    ModelContext& context() { return container->mainContext(); }

    template <class Args> CLIResponse send(std::string_view command, const Args& args) {
        return listener->dispatch(makeRequest(command, args, "token"));
    }

    // The result record of a command that must succeed.
    template <class Result, class Args> Result ok(std::string_view command, const Args& args) {
        auto decoded = decodeResult<Result>(send(command, args));
        if (auto* error = std::get_if<CLIErrorPayload>(&decoded)) {
            ADD_FAILURE() << command << " failed: " << error->code << " " << error->message;
            return Result{};
        }
        return std::get<Result>(std::move(decoded));
    }

    // The error of a command that must fail.
    template <class Args> CLIErrorPayload fails(std::string_view command, const Args& args) {
        auto response = send(command, args);
        if (response.ok || !response.error) {
            ADD_FAILURE() << command << " succeeded where it should have failed";
            return {};
        }
        return *response.error;
    }

    Library library;
    std::unique_ptr<Settings> settings;
    std::shared_ptr<ModelContainer> container;
    std::unique_ptr<CLIListener> listener;
};

} // namespace marlune::test
