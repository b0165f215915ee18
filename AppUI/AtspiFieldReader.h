#pragma once

#include "Marlune/FieldReader.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class QDBusMessage;

namespace marlune {

// The focused text field as the accessibility bus (AT-SPI) describes it: whether it is a
// password field, and the text in front of the caret; and the address of the web page the
// focus is in. It follows the focus from the "focused" state-change events of the bus, and
// asks the focused object only when a keyword has been typed or a capture made. Turning
// `smartFieldDetection` on asks every application to publish its accessibility tree; without
// it the reader is used only where the session's accessibility is on already.
class AtspiFieldReader : public QObject, public FieldReader {
    Q_OBJECT
public:
    // Each question to an application gives up after this long; the keystroke cannot wait.
    static constexpr int kCallTimeoutMs = 150;
    // The roles the accessibility bus gives password fields and web pages.
    static constexpr unsigned kRolePasswordText = 40;
    static constexpr unsigned kRoleDocumentWeb = 95;
    // How far up from the focus a web page is looked for; a tree deeper than this, or one
    // whose parents go round in a circle, has none.
    static constexpr int kMaxAncestors = 64;

    // Connects to the accessibility bus of the session; null, with the reason in `why`, when
    // the session has none. With `enable`, applications are asked to publish their trees;
    // without it the reader connects only when they already do.
    static std::unique_ptr<AtspiFieldReader> connect(QString& why, bool enable = true);
    // Asks every application of the session to publish its accessibility tree.
    static void enableAccessibility();

    ~AtspiFieldReader() override;
    std::optional<FocusedField> focusedField() override;
    // The address of the web page that holds the focus, as its document states it. Nothing
    // when the focus is outside any web page, the page states no address, or the focus
    // belongs to another process than `windowPid` (the active window's) when both are known.
    std::optional<std::string> focusedPageAddress(std::optional<std::int64_t> windowPid);

private slots:
    void stateChanged(const QDBusMessage& message);

private:
    explicit AtspiFieldReader(QDBusConnection bus);
    std::optional<std::string> documentAddress(const QString& path);

    QDBusConnection bus_;
    QString focusedService_;
    QString focusedPath_;
    std::optional<std::int64_t> focusedPid_;
};

} // namespace marlune
