#include "AppUI/TrayIcon.h"

#include "MarluneCore/Log.h"

#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

namespace marlune {

namespace {
// Drawn rather than shipped, so the tray never shows a blank square for a missing file.
QIcon makeIcon() {
    QPixmap pixmap(64, 64);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(QColor(0x4a, 0x5a, 0xd8));
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(4, 4, 56, 56, 12, 12);
    painter.setPen(Qt::white);
    QFont font = painter.font();
    font.setBold(true);
    font.setPixelSize(40);
    painter.setFont(font);
    painter.drawText(pixmap.rect(), Qt::AlignCenter, QStringLiteral("M"));
    return QIcon(pixmap);
}
} // namespace

TrayIcon::TrayIcon(Toggles toggles) : menu_(std::make_unique<QMenu>()) {
    const auto addToggle = [this](const QString& title, std::function<void(bool)> toggle) {
        if (!toggle) {
            return;
        }
        auto* action = menu_->addAction(title);
        action->setCheckable(true);
        QObject::connect(action, &QAction::toggled, this,
                         [toggle = std::move(toggle)](bool checked) { toggle(checked); });
    };
    addToggle(QStringLiteral("Pause Text Expansion"), std::move(toggles.pauseExpansion));
    addToggle(QStringLiteral("Pause Clipboard Capture"), std::move(toggles.pauseCapture));
    const auto addAction = [this](const QString& title, std::function<void()> action) {
        if (!action) {
            return;
        }
        QObject::connect(menu_->addAction(title), &QAction::triggered, this,
                         [action = std::move(action)] { action(); });
    };
    if (toggles.captureToBoard || toggles.startPasteStack) {
        menu_->addSeparator();
    }
    addAction(QStringLiteral("Capture Selection to Board"), std::move(toggles.captureToBoard));
    addAction(QStringLiteral("Start Paste Stack"), std::move(toggles.startPasteStack));
    addAction(QStringLiteral("Clear Paste Stack"), std::move(toggles.clearPasteStack));
    if (!menu_->actions().isEmpty()) {
        menu_->addSeparator();
    }
    auto* quit = menu_->addAction(QStringLiteral("Quit Marlune"));
    QObject::connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        logs::app.info("No system tray is available; Marlune runs without a tray icon.");
        return;
    }
    icon_ = std::make_unique<QSystemTrayIcon>(makeIcon());
    icon_->setToolTip(QStringLiteral("Marlune"));
    icon_->setContextMenu(menu_.get());
    icon_->show();
}

TrayIcon::~TrayIcon() = default;

bool TrayIcon::isVisible() const { return icon_ && icon_->isVisible(); }

} // namespace marlune
