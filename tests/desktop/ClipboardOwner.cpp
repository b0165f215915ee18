// Takes the CLIPBOARD selection with the given targets and serves it until killed:
//   ClipboardOwner [--repeat N --interval-ms M] [--freeze | --withhold-data]
//                  [--from-file TYPE=PATH]... TYPE=VALUE...
// With --repeat, the clipboard is written N times, M milliseconds apart, each value followed
// by " <i>" (1 to N), so the last write holds "VALUE N". --from-file takes a target's bytes
// from a file (values too large for a command line). --freeze takes the selection and then
// never answers a request, as a hung application does. --withhold-data answers TARGETS (and
// TIMESTAMP) but never a request for data, as an application that hangs while rendering the
// copy does; it keeps its event loop, so --repeat still retakes the clipboard.
#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>
#include <QtGui/qguiapplication_platform.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>
#include <xcb/xcb.h>

namespace {

struct Options {
    int repeat = 1;
    int intervalMs = 0;
    bool freeze = false;
    bool withholdData = false;
    std::vector<std::pair<QString, QByteArray>> targets;
};

bool parse(const QStringList& args, Options& options) {
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString& arg = args[i];
        if (arg == "--repeat" && i + 1 < args.size()) {
            options.repeat = args[++i].toInt();
        } else if (arg == "--interval-ms" && i + 1 < args.size()) {
            options.intervalMs = args[++i].toInt();
        } else if (arg == "--freeze") {
            options.freeze = true;
        } else if (arg == "--withhold-data") {
            options.withholdData = true;
        } else if (arg == "--from-file" && i + 1 < args.size()) {
            const QString& typeAndPath = args[++i];
            const qsizetype eq = typeAndPath.indexOf('=');
            QFile file(typeAndPath.mid(eq + 1));
            if (eq <= 0 || !file.open(QIODevice::ReadOnly)) {
                return false;
            }
            options.targets.emplace_back(typeAndPath.left(eq), file.readAll());
        } else if (const qsizetype eq = arg.indexOf('='); eq > 0) {
            options.targets.emplace_back(arg.left(eq), arg.mid(eq + 1).toUtf8());
        } else {
            return false;
        }
    }
    return !options.targets.empty() && options.repeat >= 1;
}

void write(const Options& options, int round) {
    auto* mime = new QMimeData();
    for (const auto& [type, value] : options.targets) {
        QByteArray data = value;
        if (options.repeat > 1) {
            data += " " + QByteArray::number(round);
        }
        mime->setData(type, data);
    }
    QGuiApplication::clipboard()->setMimeData(mime, QClipboard::Clipboard);
}

// Swallows every request for the selection's data before Qt sees it: the requestor waits for
// an answer that never comes, while the list of targets is still given.
class DataWithholder : public QAbstractNativeEventFilter {
public:
    explicit DataWithholder(xcb_connection_t* connection)
        : targets_(intern(connection, "TARGETS")), timestamp_(intern(connection, "TIMESTAMP")) {}

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override {
        if (eventType != "xcb_generic_event_t") {
            return false;
        }
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) != XCB_SELECTION_REQUEST) {
            return false;
        }
        const auto* request = reinterpret_cast<const xcb_selection_request_event_t*>(event);
        return request->target != targets_ && request->target != timestamp_;
    }

private:
    static xcb_atom_t intern(xcb_connection_t* connection, std::string_view name) {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            connection,
            xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()),
            nullptr);
        const xcb_atom_t atom = reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
        std::free(reply);
        return atom;
    }

    xcb_atom_t targets_;
    xcb_atom_t timestamp_;
};

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    Options options;
    if (!parse(QGuiApplication::arguments(), options)) {
        std::fprintf(stderr, "usage: ClipboardOwner [--repeat N --interval-ms M] "
                             "[--freeze | --withhold-data] [--from-file TYPE=PATH]... "
                             "TYPE=VALUE...\n");
        return 2;
    }
    std::unique_ptr<DataWithholder> withholder;
    if (options.withholdData) {
        auto* x11 = app.nativeInterface<QNativeInterface::QX11Application>();
        if (x11 == nullptr) {
            std::fprintf(stderr, "--withhold-data needs the xcb platform\n");
            return 2;
        }
        withholder = std::make_unique<DataWithholder>(x11->connection());
        app.installNativeEventFilter(withholder.get());
    }
    int round = 1;
    write(options, round);
    if (options.freeze) {
        // Qt has told the server that we own the selection; its requests now go unanswered.
        for (;;) {
            std::this_thread::sleep_for(std::chrono::hours(1));
        }
    }
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    timer.setInterval(options.intervalMs);
    QObject::connect(&timer, &QTimer::timeout, [&] {
        write(options, ++round);
        if (round >= options.repeat) {
            timer.stop();
        }
    });
    if (options.repeat > 1) {
        timer.start();
    }
    return QGuiApplication::exec();
}
