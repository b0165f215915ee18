// marlune-app: opens the library, then runs the event loop until asked to quit. With a display
// it shows its tray icon; with --headless, or with no display at all, it runs the library and
// its upkeep alone (for servers, scripts and tests).

#include "AppUI/AppServices.h"
#include "AppUI/TrayIcon.h"
#include "Marlune/CLIListener.h"
#include "Marlune/LibraryBootstrap.h"
#include "Marlune/PasteStackService.h"
#include "MarluneCore/BoardAutoArchive.h"
#include "MarluneCore/BoardMembershipBackfill.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/MainActor.h"
#include "MarluneCore/UsageStats.h"
#include "Platform/SecretServiceKeyring.h"

#include <QApplication>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <memory>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::string_view staleLinkMessage =
    "marlune: this is the Marlune APP binary, reached through a stale `marlune` symlink.\n"
    "The command-line tool is the `marlune` program installed beside `marlune-app`. Repair the "
    "link in one of two ways:\n"
    "  - reinstall the command-line tool from Marlune's Settings, Developer section, or\n"
    "  - point ~/.local/bin/marlune at the `marlune` tool beside `marlune-app`.\n";

constexpr std::string_view usage =
    "Usage: marlune-app [--headless] [--start-new-library] [--version] [--help]\n"
    "  --headless           run without tray, keyboard or clipboard services (no display "
    "needed)\n"
    "  --start-new-library  keep the current library aside, untouched, and start an empty one\n";

int signalPipe[2] = {-1, -1};

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(signalPipe[1], &byte, 1);
}

bool hasDisplay() {
    const char* x11 = std::getenv("DISPLAY");
    return x11 != nullptr && *x11 != '\0';
}

} // namespace

int main(int argc, char** argv) {
    using namespace marlune;
    // Answers to the command line can be megabytes (a long Board listing and its JSON). Taken
    // from fresh mappings, every such block would fault in zeroed pages again on each request;
    // from the heap, the memory one answer frees serves the next. Up to 8 MiB stays mapped.
    ::mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    ::mallopt(M_TRIM_THRESHOLD, 8 * 1024 * 1024);
    const std::string_view invokedAs = argv[0];
    const auto slash = invokedAs.rfind('/');
    if (invokedAs.substr(slash == std::string_view::npos ? 0 : slash + 1) == "marlune") {
        std::fwrite(staleLinkMessage.data(), 1, staleLinkMessage.size(), stderr);
        return 64;
    }

    bool headless = false;
    bool startNewLibrary = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--headless") {
            headless = true;
        } else if (arg == "--start-new-library") {
            startNewLibrary = true;
        } else if (arg == "--version") {
            std::printf("marlune-app %s\n", MARLUNE_VERSION);
            return 0;
        } else if (arg == "--help" || arg == "-h") {
            std::fwrite(usage.data(), 1, usage.size(), stdout);
            return 0;
        } else {
            std::fprintf(stderr, "marlune-app: unknown option '%s'.\n%.*s", argv[i],
                         static_cast<int>(usage.size()), usage.data());
            return 64;
        }
    }
    if (!headless && !hasDisplay()) {
        headless = true;
        const char* wayland = std::getenv("WAYLAND_DISPLAY");
        logs::app.info(wayland != nullptr && *wayland != '\0'
                           ? "No X11 display: running headless. Keyboard and clipboard services "
                             "need an X11 session or XWayland applications."
                           : "No display: running headless.");
    }

    MainActor::adoptCurrentThread();
    std::unique_ptr<QCoreApplication> app;
    if (headless) {
        app = std::make_unique<QCoreApplication>(argc, argv);
    } else {
        app = std::make_unique<QApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName("Marlune");
    QCoreApplication::setOrganizationDomain("marlune.org");

    if (startNewLibrary) {
        try {
            const auto aside = setLibraryAside(LibraryPaths::processEnvironment(),
                                               std::chrono::system_clock::now());
            logs::app.info(aside.empty() ? std::string("There is no library to set aside; "
                                                       "starting a new one.")
                                         : "The library was set aside, untouched, in " +
                                               aside.string() + "; starting a new one.");
        } catch (const std::exception& error) {
            logs::app.error(std::string("Could not set the library aside: ") + error.what());
            return 1;
        }
    }

    OpenedLibrary library;
    try {
        SecretServiceKeyring keyring;
        library = openLibrary(LibraryPaths::processEnvironment(), &keyring,
                              std::chrono::system_clock::now());
    } catch (const std::exception& error) {
        logs::app.error(containerFailureMessage(error));
        return 1;
    }
    ModelContext& context = library.container->mainContext();
    logs::app.info("Library " + library.paths.libraryDirectory.string() +
                   " open: " + std::to_string(library.snippetCount) + " snippets, " +
                   std::to_string(library.clipCount) + " clips" +
                   (headless ? "; running headless." : "."));

    // The Board's one-time membership backfill, then (now and hourly, with the Trash and
    // history purges) the archive of long-finished Board items.
    auto upkeep = [&] {
        runMaintenance(context, *library.settings, dateNow());
        BoardAutoArchive::archiveFinishedItems(context, *library.settings, dateNow());
    };
    try {
        tolerateAtStartup(library, "Board backfill failed: ", [&] {
            BoardMembershipBackfill::run(context, *library.settings);
        });
        tolerateAtStartup(library, "Library upkeep failed: ", upkeep);
    } catch (const std::exception& error) {
        logs::app.error(containerFailureMessage(error));
        return 1;
    }
    QTimer upkeepTimer;
    QObject::connect(&upkeepTimer, &QTimer::timeout, [&] {
        try {
            upkeep();
        } catch (const std::exception& error) {
            logs::app.error("Library upkeep failed: " + describeFailure(error));
        }
    });
    upkeepTimer.start(std::chrono::hours(1));

    // Quit cleanly on SIGTERM, SIGINT and SIGHUP: the handler only writes a byte, and the
    // event loop does the rest on the main thread.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) {
        logs::app.error(std::string("socketpair() failed: ") + std::strerror(errno));
        return 1;
    }
    QSocketNotifier signalNotifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, [] {
        char byte = 0;
        [[maybe_unused]] const auto got = ::read(signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
        sigaction(sig, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);

    // The desktop services: expansion, capture, the fill-in form. Each says whether it works.
    // Shared by the command line and the desktop services.
    std::shared_ptr<PasteStackModel> pasteStack;
    std::unique_ptr<AppServices> services;
    try {
        pasteStack = atStartup(library, [&] {
            return PasteStackLibrary::open(library.paths.libraryDirectory, context);
        });
        if (!headless) {
            services = std::make_unique<AppServices>(context, *library.settings);
            for (const auto& line :
                 atStartup(library, [&] { return services->start(pasteStack); })) {
                logs::app.info(line);
            }
        }
    } catch (const std::exception& error) {
        logs::app.error(containerFailureMessage(error));
        return 1;
    }
    auto usageStats =
        std::make_shared<UsageStats>(library.paths.libraryDirectory / UsageStats::fileName);
    if (services) {
        services->onExpansion = [usageStats](std::int64_t keystrokesSaved) {
            try {
                usageStats->record(dateNow(), keystrokesSaved);
            } catch (const std::exception& error) {
                logs::app.warning(std::string("Could not keep the statistics: ") + error.what());
            }
        };
    }

    // The command line: requests arrive on the server's thread and are answered here, on the
    // main thread, through the event loop.
    CLIEnvironment cliEnvironment;
    cliEnvironment.desktop = services.get();
    cliEnvironment.boardCapture = services ? services->boardCapture() : nullptr;
    cliEnvironment.pasteStack = pasteStack;
    cliEnvironment.usageStats = usageStats;
    cliEnvironment.afterCommand = [&services](std::string_view command) {
        // Anything that may change keywords, bodies, the profile or the settings.
        static constexpr std::string_view readVerbs[] = {".list", ".get", ".search", ".show"};
        for (const auto verb : readVerbs) {
            if (command.ends_with(verb)) {
                return;
            }
        }
        if (services && (command.starts_with("snippet.") || command.starts_with("group.") ||
                         command.starts_with("profile.") || command.starts_with("config.") ||
                         command.starts_with("data.") || command.starts_with("trash.") ||
                         command.starts_with("board.") || command.starts_with("clip."))) {
            services->libraryChanged();
        }
    };
    cliEnvironment.container = library.container;
    cliEnvironment.settings = library.settings.get();
    cliEnvironment.libraryDirectory = library.paths.libraryDirectory;
    cliEnvironment.headless = headless;
    cliEnvironment.appVersion = MARLUNE_VERSION;
    cliEnvironment.quit = [] {
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                                  Qt::QueuedConnection);
    };
    CLIListener cli(std::move(cliEnvironment), [](std::function<void()> task) {
        QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task),
                                  Qt::QueuedConnection);
    });
    registerAllCommands(cli);
    cli.start();

    std::unique_ptr<TrayIcon> tray;
    if (!headless) {
        tray = std::make_unique<TrayIcon>(services->trayToggles());
    }
    logs::app.info("Marlune is running.");
    const int status = QCoreApplication::exec();
    cli.stop();
    tray.reset();
    services.reset();
    logs::app.info("Marlune stopped.");
    return status;
}
