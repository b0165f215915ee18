#pragma once

#include <QObject>

#include <functional>
#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace marlune {

// The menu-bar presence: an icon in the system tray (StatusNotifierItem) with the
// application's menu. The application also runs where no tray exists.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    // Each toggle is offered only when its service runs; it receives the new paused state.
    struct Toggles {
        std::function<void(bool paused)> pauseExpansion;
        std::function<void(bool paused)> pauseCapture;
        std::function<void()> captureToBoard;
        std::function<void()> startPasteStack;
        std::function<void()> clearPasteStack;
    };

    explicit TrayIcon(Toggles toggles = {});
    ~TrayIcon() override;
    bool isVisible() const;
    QMenu* menu() const { return menu_.get(); }

private:
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> icon_;
};

} // namespace marlune
