// A notification service for tests: owns org.freedesktop.Notifications on the session bus and
// writes one line per call to a log file ("Notify <id> <summary>|<body>", "Close <id>").
//   FakeNotificationServer LOG_FILE
// Prints "ready" once the name is owned.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QFile>
#include <QStringList>

#include <cstdio>

namespace {

class Notifications : public QDBusVirtualObject {
public:
    explicit Notifications(QString logPath) : logPath_(std::move(logPath)) {}

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const QString member = message.member();
        QDBusMessage reply;
        if (member == QStringLiteral("Notify")) {
            const auto args = message.arguments();
            const quint32 id = ++lastId_;
            log(QStringLiteral("Notify %1 %2|%3")
                    .arg(id)
                    .arg(args.value(3).toString(), args.value(4).toString()));
            reply = message.createReply(QVariantList{QVariant::fromValue(id)});
        } else if (member == QStringLiteral("CloseNotification")) {
            log(QStringLiteral("Close %1").arg(message.arguments().value(0).toUInt()));
            reply = message.createReply();
        } else if (member == QStringLiteral("GetCapabilities")) {
            reply = message.createReply(QVariantList{QStringList{QStringLiteral("body")}});
        } else if (member == QStringLiteral("GetServerInformation")) {
            reply = message.createReply(QVariantList{QStringLiteral("fake"), QStringLiteral("tests"),
                                                     QStringLiteral("1"), QStringLiteral("1.2")});
        } else {
            return false;
        }
        return connection.send(reply);
    }

private:
    void log(const QString& line) {
        QFile file(logPath_);
        if (file.open(QIODevice::Append)) {
            file.write(line.toUtf8() + "\n");
        }
    }

    QString logPath_;
    quint32 lastId_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: FakeNotificationServer LOG_FILE\n");
        return 64;
    }
    Notifications notifications(QString::fromLocal8Bit(argv[1]));
    auto bus = QDBusConnection::sessionBus();
    if (!bus.registerVirtualObject(QStringLiteral("/org/freedesktop/Notifications"),
                                   &notifications) ||
        !bus.registerService(QStringLiteral("org.freedesktop.Notifications"))) {
        std::fprintf(stderr, "cannot own org.freedesktop.Notifications\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}
