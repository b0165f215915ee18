// A text field for the desktop tests: one window with a multi-line editor whose text and caret
// position are written to a file after every change, so a test can see what the typing did.
//   TestField REPORT_FILE [--grab]
// Prints the window id on standard output once the window is shown. With --grab it also holds
// the keyboard grab, like a game or a screen locker.
#include <QApplication>
#include <QFile>
#include <QPlainTextEdit>
#include <QSaveFile>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("marlune-test-field"));
    if (argc < 2) {
        std::fprintf(stderr, "usage: TestField REPORT_FILE [--grab]\n");
        return 64;
    }
    const QString reportPath = QString::fromLocal8Bit(argv[1]);
    const bool grab = argc > 2 && QByteArray(argv[2]) == "--grab";

    QPlainTextEdit editor;
    editor.setWindowTitle(QStringLiteral("Marlune test field"));
    editor.resize(480, 240);
    const auto report = [&] {
        QSaveFile file(reportPath);
        if (!file.open(QIODevice::WriteOnly)) {
            return;
        }
        const QByteArray text = editor.toPlainText().toUtf8();
        // First line: the caret position in characters; then the text.
        file.write(QByteArray::number(editor.textCursor().position()) + "\n" + text);
        file.commit();
    };
    QObject::connect(&editor, &QPlainTextEdit::textChanged, report);
    QObject::connect(&editor, &QPlainTextEdit::cursorPositionChanged, report);
    editor.show();
    editor.activateWindow();
    editor.setFocus();
    report();
    QTimer::singleShot(0, [&] {
        if (grab) {
            editor.grabKeyboard();
        }
        std::printf("%llu\n", static_cast<unsigned long long>(editor.winId()));
        std::fflush(stdout);
    });
    return QApplication::exec();
}
