// A text field for the desktop tests: one window with a text editor whose text and caret
// position are written to a file after every change, so a test can see what the typing did.
//   TestField REPORT_FILE [--grab | --password]
// Prints the window id on standard output once the window is shown. With --grab it also holds
// the keyboard grab, like a game or a screen locker; with --password the field is a one-line
// password field.
#include <QApplication>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSaveFile>
#include <QTimer>

#include <cstdio>
#include <functional>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("marlune-test-field"));
    if (argc < 2) {
        std::fprintf(stderr, "usage: TestField REPORT_FILE [--grab | --password]\n");
        return 64;
    }
    const QString reportPath = QString::fromLocal8Bit(argv[1]);
    const QByteArray mode = argc > 2 ? QByteArray(argv[2]) : QByteArray();

    QPlainTextEdit editor;
    QLineEdit password;
    password.setEchoMode(QLineEdit::Password);
    QWidget* window = &editor;
    std::function<QString()> text = [&] { return editor.toPlainText(); };
    std::function<int()> caret = [&] { return editor.textCursor().position(); };
    if (mode == "--password") {
        window = &password;
        text = [&] { return password.text(); };
        caret = [&] { return password.cursorPosition(); };
    }
    window->setWindowTitle(QStringLiteral("Marlune test field"));
    window->resize(480, 240);
    const auto report = [&] {
        QSaveFile file(reportPath);
        if (!file.open(QIODevice::WriteOnly)) {
            return;
        }
        // First line: the caret position in characters; then the text.
        file.write(QByteArray::number(caret()) + "\n" + text().toUtf8());
        file.commit();
    };
    QObject::connect(&editor, &QPlainTextEdit::textChanged, report);
    QObject::connect(&editor, &QPlainTextEdit::cursorPositionChanged, report);
    QObject::connect(&password, &QLineEdit::textChanged, report);
    QObject::connect(&password, &QLineEdit::cursorPositionChanged, report);
    window->show();
    window->activateWindow();
    window->setFocus();
    report();
    QTimer::singleShot(0, [&] {
        if (mode == "--grab") {
            window->grabKeyboard();
        }
        std::printf("%llu\n", static_cast<unsigned long long>(window->winId()));
        std::fflush(stdout);
    });
    return QApplication::exec();
}
