/* SPDX-License-Identifier: MIT */
/* What the commands about items share. */
#ifndef VOSCTL_ITEM_REPORT_H
#define VOSCTL_ITEM_REPORT_H

#include <string>

#include "../flash/itemTable.h"
#include "commands.h"

namespace vosctl {

/* An item for JSON. The values of passwords and user accounts are included only when `secrets` is true. */
Json describe(const Item &item, const std::string &bytes, bool secrets);

/* vosctl item export and vosctl item import */
void addItemFileCommands(Command group, Context &context);

}  // namespace vosctl

#endif
