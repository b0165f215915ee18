#include "AppUI/DesktopNotifier.h"

#include "MarluneCore/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>

namespace marlune {

namespace {
// Long enough to read a sentence and a short phrase.
constexpr int kExpireMilliseconds = 8000;
} // namespace

namespace {

QString qt(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QDBusMessage notificationsCall(const QString& method) {
    return QDBusMessage::createMethodCall(qt(DesktopNotifier::kService),
                                          qt(DesktopNotifier::kPath),
                                          QStringLiteral("org.freedesktop.Notifications"), method);
}

} // namespace

void DesktopNotifier::suggestSnippet(std::string_view message, std::string_view phrase) {
    const auto shown = notify(message, "“" + std::string(phrase) + "”", "marlune.suggestion");
    if (shown.error) {
        logs::app.info(std::string(message) + " (no notification service: " + *shown.error + ")");
    }
}

DesktopNotifications::Shown DesktopNotifier::notify(std::string_view title, std::string_view body,
                                                   std::string_view category) {
    auto call = notificationsCall(QStringLiteral("Notify"));
    QVariantMap hints;
    hints.insert(QStringLiteral("category"), qt(category));
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("marlune"));
    call << QStringLiteral("Marlune") << 0U << QStringLiteral("accessories-text-editor")
         << qt(title) << qt(body) << QStringList() << hints
         // Reminders stay until dismissed; suggestions fade.
         << (category.starts_with("board.") ? 0 : kExpireMilliseconds);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 2000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return {std::nullopt, reply.errorMessage().isEmpty()
                                  ? std::string("the notification service did not answer")
                                  : reply.errorMessage().toStdString()};
    }
    return {reply.arguments().front().toUInt(), std::nullopt};
}

void DesktopNotifier::close(std::uint32_t id) {
    auto call = notificationsCall(QStringLiteral("CloseNotification"));
    call << id;
    QDBusConnection::sessionBus().call(call, QDBus::NoBlock);
}

} // namespace marlune
