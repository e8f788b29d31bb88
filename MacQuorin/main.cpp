#include "MacQuorin/ServiceEnableHandler.h"

#include <QCoreApplication>

// Brings the background service to the stored state, then ends.
int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    ServiceEnableHandler::handleEnabled(
        [&app] { QMetaObject::invokeMethod(&app, &QCoreApplication::quit, Qt::QueuedConnection); });
    return app.exec();
}
