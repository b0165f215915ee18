// Takes the CLIPBOARD selection with the given targets and serves it until killed:
//   ClipboardOwner [--repeat N --interval-ms M] [--freeze] [--from-file TYPE=PATH]...
//                  TYPE=VALUE...
// With --repeat, the clipboard is written N times, M milliseconds apart, each value followed
// by " <i>" (1 to N), so the last write holds "VALUE N". --from-file takes a target's bytes
// from a file (values too large for a command line). --freeze takes the selection and then
// never answers a request, as a hung application does.
#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

struct Options {
    int repeat = 1;
    int intervalMs = 0;
    bool freeze = false;
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

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    Options options;
    if (!parse(QGuiApplication::arguments(), options)) {
        std::fprintf(stderr, "usage: ClipboardOwner [--repeat N --interval-ms M] [--freeze] "
                             "[--from-file TYPE=PATH]... TYPE=VALUE...\n");
        return 2;
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
