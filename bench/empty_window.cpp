// The reference for the start-up benchmark: an empty Qt Widgets window, shown, then quit.

#include <QApplication>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QTimer>

#include <cstdio>

int main(int argc, char* argv[])
{
    QElapsedTimer startUp;
    startUp.start();
    QApplication app(argc, argv);
    QMainWindow window;
    window.resize(1180, 760);
    window.show();
    QTimer::singleShot(0, &app, [&startUp] {
        std::printf("first window shown after %.1f ms\n", double(startUp.nsecsElapsed()) / 1e6);
        QApplication::quit();
    });
    return QApplication::exec();
}
