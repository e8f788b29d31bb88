#pragma once

#include "SUFeedDownloadFactory.h"
#include "SUNetworkFeedDownload.h"

#include <QObject>

// The network module's entry point.
class SUNetworkFeedDownloadPlugin : public QObject, public SUFeedDownloadFactory {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID SUFeedDownloadFactory_iid)
    Q_INTERFACES(SUFeedDownloadFactory)
public:
    std::unique_ptr<SUFeedDownload> create() override { return std::make_unique<SUNetworkFeedDownload>(); }
};
