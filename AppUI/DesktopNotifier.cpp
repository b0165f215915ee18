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

void DesktopNotifier::suggestSnippet(std::string_view message, std::string_view phrase) {
    notify(std::string(message), "“" + std::string(phrase) + "”");
}

std::uint32_t DesktopNotifier::notify(const std::string& summary, const std::string& body,
                                      const std::string& icon) {
    auto call = QDBusMessage::createMethodCall(
        QString::fromUtf8(kService.data(), static_cast<qsizetype>(kService.size())),
        QString::fromUtf8(kPath.data(), static_cast<qsizetype>(kPath.size())),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    call << QStringLiteral("Marlune") << 0U << QString::fromStdString(icon)
         << QString::fromStdString(summary) << QString::fromStdString(body) << QStringList()
         << QVariantMap() << kExpireMilliseconds;
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 2000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        logs::app.info("No notification service answered; the notice was: " + summary);
        return 0;
    }
    return reply.arguments().front().toUInt();
}

} // namespace marlune
