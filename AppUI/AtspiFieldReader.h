#pragma once

#include "Marlune/FieldReader.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

class QDBusMessage;

namespace marlune {

// The focused text field as the accessibility bus (AT-SPI) describes it: whether it is a
// password field, and the text in front of the caret. It follows the focus from the
// "focused" state-change events of the bus, and asks the focused object only when a keyword
// has been typed. Opt-in (`smartFieldDetection`): turning it on asks every application to
// publish its accessibility tree.
class AtspiFieldReader : public QObject, public FieldReader {
    Q_OBJECT
public:
    // Each question to an application gives up after this long; the keystroke cannot wait.
    static constexpr int kCallTimeoutMs = 150;
    // The role the accessibility bus gives password fields.
    static constexpr unsigned kRolePasswordText = 40;

    // Connects to the accessibility bus of the session; null, with the reason in `why`, when
    // the session has none.
    static std::unique_ptr<AtspiFieldReader> connect(QString& why);

    ~AtspiFieldReader() override;
    std::optional<FocusedField> focusedField() override;

private slots:
    void stateChanged(const QDBusMessage& message);

private:
    explicit AtspiFieldReader(QDBusConnection bus);

    QDBusConnection bus_;
    QString focusedService_;
    QString focusedPath_;
    std::optional<std::int64_t> focusedPid_;
};

} // namespace marlune
