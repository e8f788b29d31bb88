// The least a Qt program does to show the launcher's window: load Main.ui and
// show it. The start-up benchmark measures the launcher against this.
#include <QApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QUiLoader>
#include <QWidget>

Q_LOGGING_CATEGORY(lcMinimal, "zelna.launcher", QtWarningMsg)

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QFile file(QString::fromLocal8Bit(argv[argc - 1]));
    file.open(QIODevice::ReadOnly);
    const QStringList paths = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    QUiLoader loader;
    QCoreApplication::setLibraryPaths(paths);
    std::unique_ptr<QWidget> window(loader.load(&file));
    window->show();
    qCDebug(lcMinimal, "window shown: MainWindow");
    return app.exec();
}
