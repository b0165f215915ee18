#include "AppUI/ToastPopup.h"

#include "MarluneCore/Log.h"

#include <QCursor>
#include <QFile>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>

#include <map>
#include <string>

namespace marlune {

namespace {

QString qt(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// The icon theme's nearest match for each symbol the Board uses.
QIcon iconFor(std::string_view symbol) {
    static const std::map<std::string_view, const char*> names{
        {"text.cursor", "edit-select-none"},       {"key.slash", "dialog-password"},
        {"eye.slash", "view-hidden"},              {"checkmark.circle", "emblem-default"},
        {"tray.and.arrow.down", "document-save"},  {"exclamationmark.triangle", "dialog-warning"},
    };
    const auto found = names.find(symbol);
    return QIcon::fromTheme(QString::fromLatin1(found != names.end() ? found->second
                                                                     : "dialog-information"));
}

} // namespace

ToastPopup::ToastPopup()
    : window_(std::make_unique<QWidget>(nullptr, Qt::ToolTip | Qt::FramelessWindowHint |
                                                     Qt::WindowStaysOnTopHint |
                                                     Qt::WindowDoesNotAcceptFocus |
                                                     Qt::X11BypassWindowManagerHint)) {
    window_->setAttribute(Qt::WA_ShowWithoutActivating);
    window_->setObjectName(QStringLiteral("MarluneToast"));
    auto* row = new QHBoxLayout(window_.get());
    icon_ = new QLabel(window_.get());
    row->addWidget(icon_);
    auto* column = new QVBoxLayout();
    title_ = new QLabel(window_.get());
    QFont bold = title_->font();
    bold.setBold(true);
    title_->setFont(bold);
    subtitle_ = new QLabel(window_.get());
    column->addWidget(title_);
    column->addWidget(subtitle_);
    row->addLayout(column);
    hide_ = new QTimer(this);
    hide_->setSingleShot(true);
    QObject::connect(hide_, &QTimer::timeout, window_.get(), &QWidget::hide);
}

ToastPopup::~ToastPopup() = default;

void ToastPopup::show(std::string_view title, std::optional<std::string_view> subtitle,
                      std::string_view symbol) {
    logs::app.info("Board: " + std::string(title) +
                   (subtitle ? " — " + std::string(*subtitle) : std::string()));
    icon_->setPixmap(iconFor(symbol).pixmap(32, 32));
    title_->setText(qt(title));
    subtitle_->setText(subtitle ? qt(*subtitle) : QString());
    subtitle_->setVisible(subtitle.has_value());
    window_->setWindowTitle(QStringLiteral("Marlune: ") + qt(title));
    window_->adjustSize();
    if (const QScreen* screen = QGuiApplication::screenAt(QCursor::pos())) {
        const QRect area = screen->availableGeometry();
        window_->move(area.center().x() - window_->width() / 2, area.top() + area.height() / 8);
    }
    window_->show();
    window_->raise();
    hide_->start(kVisibleMilliseconds);
}

void ThemeSoundPlayer::play(std::string_view themeSoundName) {
    const QString name = qt(themeSoundName);
    if (const QString canberra = QStandardPaths::findExecutable(QStringLiteral("canberra-gtk-play"));
        !canberra.isEmpty()) {
        QProcess::startDetached(canberra, {QStringLiteral("-i"), name});
        return;
    }
    QString file;
    for (const QString& dir : QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation)) {
        for (const char* extension : {".oga", ".ogg", ".wav"}) {
            const QString candidate =
                dir + QStringLiteral("/sounds/freedesktop/stereo/") + name + QString::fromLatin1(extension);
            if (QFile::exists(candidate)) {
                file = candidate;
                break;
            }
        }
        if (!file.isEmpty()) {
            break;
        }
    }
    for (const char* player : {"paplay", "pw-play"}) {
        const QString path = QStandardPaths::findExecutable(QString::fromLatin1(player));
        if (!path.isEmpty() && !file.isEmpty()) {
            QProcess::startDetached(path, {file});
            return;
        }
    }
    if (!warned_) {
        warned_ = true;
        logs::app.info("No sound player or sound theme found; Board captures are silent.");
    }
}

} // namespace marlune
