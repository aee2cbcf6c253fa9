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

/* Changes them all, with one rewrite of each partition that has some, or none: when a rewrite fails, what was there is
 * put back in all partitions. Other programs are locked out meanwhile, and signals are held. The text names what is
 * written, as "ztp". Throws a Failure that says what is there now. */
void writeItems(const std::vector<ItemValue> &values, const std::string &what);

}  // namespace vosctl

#endif
