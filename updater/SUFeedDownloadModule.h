#pragma once

#include "SUFeedDownload.h"

// The bundle's network module (lib/zelna-quorin/plugins/ beside bin/), loaded at the
// first check rather than with the program.
class SUFeedDownloadModule {
public:
    static constexpr const char* fileName = "libzq-feed-download.so";

    // A download from the module in directory; nothing, and why, when it cannot be loaded.
    static std::unique_ptr<SUFeedDownload> create(const QString& directory, QString* error);
};
