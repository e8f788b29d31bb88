// The least a Qt program does to check a feed and end: fetch it and quit. Built twice: minimal_checker makes
// a QApplication, as a start with a display does; minimal_core_checker a QCoreApplication, and it links Qt
// Core and Network alone, as a check without a display needs.
#if defined(ZQ_CORE_ONLY)
#include <QCoreApplication>
using Application = QCoreApplication;
#else
#include <QApplication>
using Application = QApplication;
#endif
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

int main(int argc, char* argv[])
{
    Application app(argc, argv);
    QNetworkAccessManager network;
    QNetworkReply* reply = network.get(QNetworkRequest(QUrl(QString::fromLocal8Bit(argv[argc - 1]))));
    QObject::connect(reply, &QNetworkReply::finished, &app, [reply] {
        reply->readAll();
        QCoreApplication::exit(reply->error() == QNetworkReply::NoError ? 0 : 1);
    });
    return Application::exec();
}
