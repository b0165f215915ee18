#pragma once

#include <QIcon>
#include <QObject>
#include <QTimer>
#include <chrono>
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
        // Told once the tray object exists, for the services that animate it (the Board's
        // capture pulses it). Hold it through a QPointer: the tray may go first.
        std::function<void(TrayIcon&)> attached;
    };

    // A pulse: the highlighted icon and the normal one take turns, `pulseFlashes` times,
    // each shown for one `pulseFrame`.
    static constexpr int pulseFlashes = 3;
    static constexpr std::chrono::milliseconds pulseFrame{130};

    explicit TrayIcon(Toggles toggles = {});
    ~TrayIcon() override;
    bool isVisible() const;
    QMenu* menu() const { return menu_.get(); }

    // Flashes the icon briefly to say that something was taken in. A pulse while one runs
    // starts it over rather than adding another; either way the icon ends as the normal one.
    void pulse();
    bool isPulsing() const { return pulseTimer_.isActive(); }

    // The icon shown at this moment (followed even where no tray exists), and the two it
    // alternates between.
    QIcon shownIcon() const { return shown_; }
    QIcon normalIcon() const { return normal_; }
    QIcon highlightedIcon() const { return highlighted_; }

Q_SIGNALS:
    // Every change of the shown icon, the frames of a pulse included.
    void iconShown(const QIcon& icon);

private:
    void showIcon(const QIcon& icon);
    void nextPulseFrame();

    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> icon_;
    QIcon normal_;
    QIcon highlighted_;
    QIcon shown_;
    QTimer pulseTimer_;
    int pulseFramesShown_ = 0;
};

} // namespace marlune
