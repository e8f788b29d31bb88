#pragma once

#include "ZLError.h"

#include <QByteArray>
#include <QList>
#include <QUrl>

#include <functional>
#include <optional>

// Lists the non-folders beneath a folder, depth first in directory order.
// Each folder is opened relative to its parent's descriptor without following
// a link. The walk returns to the upper levels through their descriptors, kept
// open; below those it climbs back through "..", checking it is the folder it
// came from. A folder swapped for a link while it is read never leads outside
// the tree, and cost grows linearly with the depth, with a bounded number of
// folders open. The folders right below the chosen one are walked side by
// side, one walk per core, and their results joined in directory order.
class TreeWalker {
public:
    static std::optional<QList<QUrl>> filesBeneath(const QByteArray& root,
                                                   const std::function<void(const ZLError&)>& onEntryError);
};
