#pragma once

#include "SUFeedDownload.h"

#include <QNetworkAccessManager>
#include <QObject>

// The feed fetched with Qt Network: https, http and file URLs, redirects only
// to as safe a scheme, at most five of them.
class SUNetworkFeedDownload final : public SUFeedDownload {
public:
    void start(const Request& request, Finished finished) override;

private:
    QNetworkAccessManager m_network;
};

// The network module's entry point.
class SUNetworkFeedDownloadPlugin : public QObject, public SUFeedDownloadFactory {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID SUFeedDownloadFactory_iid)
    Q_INTERFACES(SUFeedDownloadFactory)
public:
    std::unique_ptr<SUFeedDownload> create() override { return std::make_unique<SUNetworkFeedDownload>(); }
};
