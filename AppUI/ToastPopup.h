#pragma once

#include "Marlune/BoardCaptureService.h"

#include <QObject>

#include <memory>

class QLabel;
class QTimer;
class QWidget;

namespace marlune {

// The capture confirmation: a small popup near the top of the screen under the pointer that
// never takes the focus (the user goes on typing where they were) and fades after a moment.
// Each toast is also written to the log, so a session without a compositor still shows it.
class ToastPopup : public QObject, public Toast {
    Q_OBJECT
public:
    static constexpr int kVisibleMilliseconds = 1600;

    ToastPopup();
    ~ToastPopup() override;

    void show(std::string_view title, std::optional<std::string_view> subtitle,
              std::string_view symbol) override;

private:
    std::unique_ptr<QWidget> window_;
    QLabel* icon_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* subtitle_ = nullptr;
    QTimer* hide_ = nullptr;
};

// Sounds of the freedesktop sound theme, played by whichever player the session has
// (canberra-gtk-play, paplay or pw-play) without waiting for it.
class ThemeSoundPlayer : public SoundPlayer {
public:
    void play(std::string_view themeSoundName) override;

private:
    bool warned_ = false;
};

} // namespace marlune
