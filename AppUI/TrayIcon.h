#pragma once

#include <QObject>

#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace marlune {

// The menu-bar presence: an icon in the system tray (StatusNotifierItem) with the
// application's menu. The application also runs where no tray exists.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    TrayIcon();
    ~TrayIcon() override;
    bool isVisible() const;

private:
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> icon_;
};

} // namespace marlune
