#include "AppUI/TrayIcon.h"

#include "MarluneCore/Log.h"

#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPen>
#include <QPixmap>
#include <QSystemTrayIcon>

namespace marlune {

namespace {
// Drawn rather than shipped, so the tray never shows a blank square for a missing file.
QIcon makeIcon(const QColor& background, bool ringed) {
    QPixmap pixmap(64, 64);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(background);
    if (ringed) {
        painter.setPen(QPen(Qt::white, 4));
        painter.drawRoundedRect(2, 2, 60, 60, 14, 14);
    } else {
        painter.setPen(Qt::NoPen);
        painter.drawRoundedRect(4, 4, 56, 56, 12, 12);
    }
    painter.setPen(Qt::white);
    QFont font = painter.font();
    font.setBold(true);
    font.setPixelSize(40);
    painter.setFont(font);
    painter.drawText(pixmap.rect(), Qt::AlignCenter, QStringLiteral("M"));
    return QIcon(pixmap);
}

QIcon normalTrayIcon() {
    return makeIcon(QColor(0x4a, 0x5a, 0xd8), false);
}

// The pulse's bright frame: a lighter tile with a white ring, told apart at tray size.
QIcon highlightedTrayIcon() {
    return makeIcon(QColor(0x9a, 0xa8, 0xff), true);
}
} // namespace

TrayIcon::TrayIcon(Toggles toggles)
    : menu_(std::make_unique<QMenu>()), normal_(normalTrayIcon()),
      highlighted_(highlightedTrayIcon()), shown_(normal_) {
    pulseTimer_.setInterval(pulseFrame);
    QObject::connect(&pulseTimer_, &QTimer::timeout, this, [this] { nextPulseFrame(); });
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
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        icon_ = std::make_unique<QSystemTrayIcon>(shown_);
        icon_->setToolTip(QStringLiteral("Marlune"));
        icon_->setContextMenu(menu_.get());
        icon_->show();
    } else {
        logs::app.info("No system tray is available; Marlune runs without a tray icon.");
    }
    if (toggles.attached) {
        toggles.attached(*this);
    }
}

TrayIcon::~TrayIcon() = default;

bool TrayIcon::isVisible() const {
    return icon_ && icon_->isVisible();
}

void TrayIcon::pulse() {
    pulseFramesShown_ = 1;
    showIcon(highlighted_);
    pulseTimer_.start(); // restarts a pulse under way
}

void TrayIcon::nextPulseFrame() {
    ++pulseFramesShown_;
    const bool last = pulseFramesShown_ >= 2 * pulseFlashes;
    // The frames alternate, bright first; the last one is the normal icon, so a pulse can
    // never leave the tray highlighted.
    showIcon(last || pulseFramesShown_ % 2 == 0 ? normal_ : highlighted_);
    if (last) {
        pulseTimer_.stop();
    }
}

void TrayIcon::showIcon(const QIcon& icon) {
    shown_ = icon;
    if (icon_) {
        icon_->setIcon(icon);
    }
    Q_EMIT iconShown(icon);
}

} // namespace marlune
