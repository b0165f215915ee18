// An application on the accessibility bus that shows a web page, as a browser describes one:
//
//   root (application) > frame > address bar
//                              > web document > section > paragraph
//
// It announces the focus on one of its objects again and again, so that a reader that
// connects late still hears it, and answers the questions a reader asks: an object's role,
// its parent, and the web document's attributes. Prints "ready" once it serves.
//
//   FakeWebPage --focus NAME [--address-key KEY --address VALUE] [--loop]
//
// --loop makes the section its own parent, a tree no walk up may get stuck in.
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QMap>
#include <QTimer>

#include <cstdio>
#include <map>

namespace {

const QString kPrefix = QStringLiteral("/org/a11y/atspi/accessible");

struct Node {
    unsigned role;
    QString parent; // a name among the nodes, or empty for the application's root
};

class WebPage : public QDBusVirtualObject {
public:
    WebPage(QString addressKey, QString address, bool loop)
        : addressKey_(std::move(addressKey)), address_(std::move(address)) {
        nodes_ = {
            {QStringLiteral("root"), {75, {}}},
            {QStringLiteral("frame"), {23, QStringLiteral("root")}},
            {QStringLiteral("addressbar"), {79, QStringLiteral("frame")}},
            {QStringLiteral("document"), {95, QStringLiteral("frame")}},
            {QStringLiteral("section"),
             {85, loop ? QStringLiteral("section") : QStringLiteral("document")}},
            {QStringLiteral("paragraph"), {73, QStringLiteral("section")}},
        };
    }

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const QString name = message.path().mid(kPrefix.size() + 1);
        const auto node = nodes_.find(name);
        if (node == nodes_.end()) {
            return false;
        }
        const auto args = message.arguments();
        QDBusMessage reply;
        if (message.interface() == QStringLiteral("org.a11y.atspi.Accessible") &&
            message.member() == QStringLiteral("GetRole")) {
            reply = message.createReply(QVariant::fromValue(node->second.role));
        } else if (message.interface() == QStringLiteral("org.freedesktop.DBus.Properties") &&
                   message.member() == QStringLiteral("Get") && args.size() == 2 &&
                   args[0].toString() == QStringLiteral("org.a11y.atspi.Accessible") &&
                   args[1].toString() == QStringLiteral("Parent")) {
            QDBusArgument reference;
            reference.beginStructure();
            if (node->second.parent.isEmpty()) {
                reference << QStringLiteral("org.a11y.atspi.Registry")
                          << QDBusObjectPath(kPrefix + QStringLiteral("/root"));
            } else {
                reference << connection.baseService()
                          << QDBusObjectPath(kPrefix + QLatin1Char('/') + node->second.parent);
            }
            reference.endStructure();
            reply = message.createReply(QVariant::fromValue(QDBusVariant(QVariant::fromValue(reference))));
        } else if (message.interface() == QStringLiteral("org.a11y.atspi.Document") &&
                   message.member() == QStringLiteral("GetAttributes") &&
                   node->second.role == 95) {
            QMap<QString, QString> attributes{{QStringLiteral("MimeType"), QStringLiteral("text/html")}};
            if (!addressKey_.isEmpty()) {
                attributes.insert(addressKey_, address_);
            }
            QDBusArgument map;
            map << attributes;
            reply = message.createReply(QVariant::fromValue(map));
        } else {
            reply = message.createErrorReply(QDBusError::UnknownMethod,
                                             QStringLiteral("not served by this page"));
        }
        return connection.send(reply);
    }

private:
    QString addressKey_;
    QString address_;
    std::map<QString, Node> nodes_;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QString focus = QStringLiteral("paragraph");
    QString addressKey;
    QString address;
    bool loop = false;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        const bool hasValue = i + 1 < args.size();
        if (args[i] == QStringLiteral("--focus") && hasValue) {
            focus = args[++i];
        } else if (args[i] == QStringLiteral("--address-key") && hasValue) {
            addressKey = args[++i];
        } else if (args[i] == QStringLiteral("--address") && hasValue) {
            address = args[++i];
        } else if (args[i] == QStringLiteral("--loop")) {
            loop = true;
        } else {
            std::fprintf(stderr, "FakeWebPage: unknown argument %s\n", qPrintable(args[i]));
            return 2;
        }
    }

    const QDBusReply<QString> busAddress = QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                       QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")));
    if (!busAddress.isValid()) {
        std::fprintf(stderr, "FakeWebPage: no accessibility bus: %s\n",
                     qPrintable(busAddress.error().message()));
        return 1;
    }
    QDBusConnection bus = QDBusConnection::connectToBus(busAddress.value(), QStringLiteral("page"));
    WebPage page(addressKey, address, loop);
    if (!bus.isConnected() ||
        !bus.registerVirtualObject(kPrefix, &page, QDBusConnection::SubPath)) {
        std::fprintf(stderr, "FakeWebPage: cannot serve on the accessibility bus\n");
        return 1;
    }

    QTimer announce;
    QObject::connect(&announce, &QTimer::timeout, [&] {
        auto signal = QDBusMessage::createSignal(kPrefix + QLatin1Char('/') + focus,
                                                 QStringLiteral("org.a11y.atspi.Event.Object"),
                                                 QStringLiteral("StateChanged"));
        signal << QStringLiteral("focused") << 1 << 0 << QVariant::fromValue(QDBusVariant(0))
               << QVariantMap();
        bus.send(signal);
    });
    announce.start(100);
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
