#pragma once

#include "ZLError.h"

#include <QByteArray>
#include <QList>
#include <QUrl>

#include <functional>
#include <optional>

// Lists the non-folders beneath a folder, depth first in directory order.
// Each folder is opened relative to its parent's descriptor without following
// a link, and the walk climbs back through "..", checking it is the folder it
// came from: a folder swapped for a link while it is read never leads outside
// the tree, and cost grows linearly with the depth, with two folders open.
class TreeWalker {
public:
    static std::optional<QList<QUrl>> filesBeneath(const QByteArray& root,
                                                   const std::function<void(const ZLError&)>& onEntryError);
};
