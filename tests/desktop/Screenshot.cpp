// Writes a PNG of the whole test display, for a person to look at what the desktop tests saw.
//   Screenshot FILE.png
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <cstdio>

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: Screenshot FILE.png\n");
        return 64;
    }
    QScreen* screen = QGuiApplication::primaryScreen();
    if (screen == nullptr || !screen->grabWindow(0).save(QString::fromLocal8Bit(argv[1]), "PNG")) {
        std::fprintf(stderr, "Screenshot: could not grab or write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
