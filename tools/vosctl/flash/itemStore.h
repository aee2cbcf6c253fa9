/* SPDX-License-Identifier: MIT */
/* Reading items through the library, and changing several of them at once. */
#ifndef VOSCTL_ITEM_STORE_H
#define VOSCTL_ITEM_STORE_H

#include <string>
#include <vector>

#include "itemTable.h"

namespace vosctl {

const char *partitionName(const Item &item);
const char *partitionPath(const Item &item);

/* Throws a Failure when the partition of the item cannot be read or is not valid. */
std::string readItem(const Item &item);

/* Changes all of the items, or none. Each partition that has some of them is rewritten once. When a rewrite fails, all
 * partitions are restored, and a Failure says what they have now. The partitions are locked and signals are blocked
 * meanwhile. The text names the items in messages, such as "ztp". */
void writeItems(const std::vector<ItemValue> &values, const std::string &what);

}  // namespace vosctl

#endif
