// The least a Qt program does to check a feed and end: fetch it and quit.
// With --core it uses a non-GUI application object.
#include <QApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

#include <cstring>
#include <memory>

int main(int argc, char* argv[])
{
    const bool core = argc > 2 && std::strcmp(argv[1], "--core") == 0;
    std::unique_ptr<QCoreApplication> app
        = core ? std::make_unique<QCoreApplication>(argc, argv) : std::make_unique<QApplication>(argc, argv);
    QNetworkAccessManager network;
    QNetworkReply* reply = network.get(QNetworkRequest(QUrl(QString::fromLocal8Bit(argv[argc - 1]))));
    QObject::connect(reply, &QNetworkReply::finished, app.get(), [reply] {
        reply->readAll();
        QCoreApplication::exit(reply->error() == QNetworkReply::NoError ? 0 : 1);
    });
    return app->exec();
}
