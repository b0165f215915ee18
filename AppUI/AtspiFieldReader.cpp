#include "AppUI/AtspiFieldReader.h"

#include "MarluneCore/Log.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusVariant>
#include <QMap>
#include <QVariant>

namespace marlune {

namespace {

const QString kBusName = QStringLiteral("marlune-accessibility");
const QString kAccessible = QStringLiteral("org.a11y.atspi.Accessible");
const QString kText = QStringLiteral("org.a11y.atspi.Text");

QDBusMessage callOn(QDBusConnection& bus, const QString& service, const QString& path,
                    const QString& interface, const QString& method, const QVariantList& args = {}) {
    auto message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(args);
    return bus.call(message, QDBus::Block, AtspiFieldReader::kCallTimeoutMs);
}

} // namespace

std::unique_ptr<AtspiFieldReader> AtspiFieldReader::connect(QString& why, bool enable) {
    QDBusConnection session = QDBusConnection::sessionBus();
    if (!session.isConnected()) {
        why = QStringLiteral("no session bus");
        return nullptr;
    }
    if (enable) {
        enableAccessibility();
    } else {
        const QDBusReply<QDBusVariant> enabled = session.call(
            QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"),
                                           QStringLiteral("/org/a11y/bus"),
                                           QStringLiteral("org.freedesktop.DBus.Properties"),
                                           QStringLiteral("Get"))
                << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled"),
            QDBus::Block, 2000);
        if (!enabled.isValid() || !enabled.value().variant().toBool()) {
            why = QStringLiteral("the session's accessibility is off");
            return nullptr;
        }
    }

    const QDBusReply<QString> address = session.call(
        QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                       QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")),
        QDBus::Block, 2000);
    if (!address.isValid() || address.value().isEmpty()) {
        why = QStringLiteral("no accessibility bus (") + address.error().message() +
              QStringLiteral(")");
        return nullptr;
    }
    QDBusConnection bus = QDBusConnection::connectToBus(address.value(), kBusName);
    if (!bus.isConnected()) {
        why = QStringLiteral("cannot connect to the accessibility bus: ") + bus.lastError().message();
        return nullptr;
    }
    return std::unique_ptr<AtspiFieldReader>(new AtspiFieldReader(bus));
}

void AtspiFieldReader::enableAccessibility() {
    // Applications publish their accessibility trees only while this is on.
    auto enable = QDBusMessage::createMethodCall(
        QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
    enable.setArguments({QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"),
                         QVariant::fromValue(QDBusVariant(true))});
    QDBusConnection::sessionBus().call(enable, QDBus::Block, 2000);
}

AtspiFieldReader::AtspiFieldReader(QDBusConnection bus) : bus_(bus) {
    // Toolkits send focus events only to a bus whose registry says someone listens.
    callOn(bus_, QStringLiteral("org.a11y.atspi.Registry"),
           QStringLiteral("/org/a11y/atspi/registry"), QStringLiteral("org.a11y.atspi.Registry"),
           QStringLiteral("RegisterEvent"), {QStringLiteral("object:state-changed:focused")});
    bus_.connect(QString(), QString(), QStringLiteral("org.a11y.atspi.Event.Object"),
                 QStringLiteral("StateChanged"), this, SLOT(stateChanged(QDBusMessage)));
}

AtspiFieldReader::~AtspiFieldReader() { QDBusConnection::disconnectFromBus(kBusName); }

void AtspiFieldReader::stateChanged(const QDBusMessage& message) {
    const auto args = message.arguments();
    if (args.size() < 2 || args[0].toString() != QStringLiteral("focused")) {
        return;
    }
    if (args[1].toInt() == 1) {
        if (message.service() != focusedService_) {
            // The bus itself knows which process is behind a connection.
            const QDBusReply<uint> pid = bus_.call(
                QDBusMessage::createMethodCall(
                    QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                    QStringLiteral("org.freedesktop.DBus"),
                    QStringLiteral("GetConnectionUnixProcessID"))
                    << message.service(),
                QDBus::Block, kCallTimeoutMs);
            focusedPid_ = pid.isValid() ? std::optional<std::int64_t>(pid.value()) : std::nullopt;
        }
        focusedService_ = message.service();
        focusedPath_ = message.path();
    } else if (message.service() == focusedService_ && message.path() == focusedPath_) {
        focusedService_.clear();
        focusedPath_.clear();
        focusedPid_.reset();
    }
}

std::optional<FocusedField> AtspiFieldReader::focusedField() {
    if (focusedService_.isEmpty()) {
        return std::nullopt;
    }
    const QDBusMessage role =
        callOn(bus_, focusedService_, focusedPath_, kAccessible, QStringLiteral("GetRole"));
    if (role.type() != QDBusMessage::ReplyMessage || role.arguments().isEmpty()) {
        return std::nullopt;
    }
    FocusedField field;
    field.pid = focusedPid_;
    field.isPassword = role.arguments().front().toUInt() == kRolePasswordText;
    if (field.isPassword) {
        return field;
    }
    const QDBusMessage caret = callOn(
        bus_, focusedService_, focusedPath_, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"), {kText, QStringLiteral("CaretOffset")});
    if (caret.type() != QDBusMessage::ReplyMessage || caret.arguments().isEmpty()) {
        return field; // not a text object: nothing to compare
    }
    const int offset = caret.arguments().front().value<QDBusVariant>().variant().toInt();
    if (offset < 0) {
        return field;
    }
    const QDBusMessage text = callOn(bus_, focusedService_, focusedPath_, kText,
                                     QStringLiteral("GetText"), {0, offset});
    if (text.type() == QDBusMessage::ReplyMessage && !text.arguments().isEmpty()) {
        field.textBeforeCaret = text.arguments().front().toString().toStdString();
    }
    return field;
}

std::optional<std::string>
AtspiFieldReader::focusedPageAddress(std::optional<std::int64_t> windowPid) {
    if (focusedService_.isEmpty() || (windowPid && focusedPid_ && *windowPid != *focusedPid_)) {
        return std::nullopt;
    }
    QString path = focusedPath_;
    for (int depth = 0; depth < kMaxAncestors; ++depth) {
        const QDBusMessage role = callOn(bus_, focusedService_, path, kAccessible, QStringLiteral("GetRole"));
        if (role.type() != QDBusMessage::ReplyMessage || role.arguments().isEmpty()) {
            return std::nullopt;
        }
        if (role.arguments().front().toUInt() == kRoleDocumentWeb) {
            return documentAddress(path);
        }
        const QDBusMessage parent =
            callOn(bus_, focusedService_, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                   QStringLiteral("Get"), {kAccessible, QStringLiteral("Parent")});
        if (parent.type() != QDBusMessage::ReplyMessage || parent.arguments().isEmpty()) {
            return std::nullopt;
        }
        // An object reference: the connection that serves it and its path.
        const auto reference =
            parent.arguments().front().value<QDBusVariant>().variant().value<QDBusArgument>();
        if (reference.currentSignature() != QStringLiteral("(so)")) {
            return std::nullopt;
        }
        QString service;
        QDBusObjectPath next;
        reference.beginStructure();
        reference >> service >> next;
        reference.endStructure();
        // Above the application's root the tree belongs to the registry: no page up there.
        if (service != focusedService_ || next.path() == QStringLiteral("/org/a11y/atspi/null")) {
            return std::nullopt;
        }
        path = next.path();
    }
    return std::nullopt;
}

std::optional<std::string> AtspiFieldReader::documentAddress(const QString& path) {
    const QDBusMessage reply = callOn(bus_, focusedService_, path, QStringLiteral("org.a11y.atspi.Document"),
                                      QStringLiteral("GetAttributes"));
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return std::nullopt;
    }
    const auto argument = reply.arguments().front().value<QDBusArgument>();
    if (argument.currentSignature() != QStringLiteral("a{ss}")) {
        return std::nullopt;
    }
    QMap<QString, QString> attributes;
    argument >> attributes;
    // Toolkits differ in the name they give the document's address.
    for (const auto* key : {"DocURL", "URI", "URL"}) {
        const QString value = attributes.value(QString::fromLatin1(key));
        if (!value.isEmpty()) {
            return value.toStdString();
        }
    }
    return std::nullopt;
}

} // namespace marlune
