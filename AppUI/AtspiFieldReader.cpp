#include "AppUI/AtspiFieldReader.h"

#include "MarluneCore/Log.h"

#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
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

std::unique_ptr<AtspiFieldReader> AtspiFieldReader::connect(QString& why) {
    QDBusConnection session = QDBusConnection::sessionBus();
    if (!session.isConnected()) {
        why = QStringLiteral("no session bus");
        return nullptr;
    }
    // Applications publish their accessibility trees only while this is on.
    auto enable = QDBusMessage::createMethodCall(
        QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
    enable.setArguments({QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"),
                         QVariant::fromValue(QDBusVariant(true))});
    session.call(enable, QDBus::Block, 2000);

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

} // namespace marlune
