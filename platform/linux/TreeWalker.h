#pragma once

#include "ZLError.h"

#include <QByteArray>
#include <QList>
#include <QUrl>

#include <functional>
#include <optional>

// Lists the non-folders beneath a folder, depth first in directory order.
// Folders of one depth are read in parallel, then the result is put together
// in exactly the order a single walker would produce.
class TreeWalker {
public:
    static std::optional<QList<QUrl>> filesBeneath(const QByteArray& root,
                                                   const std::function<void(const ZLError&)>& onEntryError);
};
