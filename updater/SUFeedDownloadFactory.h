#pragma once

#include "SUFeedDownload.h"

#include <QtPlugin>

#include <memory>

// What the network module offers.
class SUFeedDownloadFactory {
public:
    static constexpr const char* moduleName = "libzq-feed-download.so";

    virtual ~SUFeedDownloadFactory() = default;
    virtual std::unique_ptr<SUFeedDownload> create() = 0;
};

#define SUFeedDownloadFactory_iid "com.zelna.Quorin.SUFeedDownloadFactory/2"
Q_DECLARE_INTERFACE(SUFeedDownloadFactory, SUFeedDownloadFactory_iid)
