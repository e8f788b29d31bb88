#pragma once

#include "SUFeedDownload.h"

#include <QNetworkAccessManager>

// The feed fetched with Qt Network: https, http and file URLs, redirects only
// to as safe a scheme, at most five of them.
class SUNetworkFeedDownload final : public SUFeedDownload {
public:
    void start(const Request& request, Finished finished) override;

private:
    QNetworkAccessManager m_network;
};
