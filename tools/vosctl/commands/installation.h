/* SPDX-License-Identifier: MIT */
/* Installing an image of any type: shared by image install and package apply. */
#ifndef VOSCTL_INSTALLATION_H
#define VOSCTL_INSTALLATION_H

#include <string>

#include "../terminal/report.h"

namespace vosctl {

struct Installation {
    std::string file;
    std::string version; /* of an application */
    bool yes = false;
    bool outside = false; /* paths with ".." are allowed */
    bool packageOnly = false;
};

/* Asks the user, installs, and reports the result. */
int installImage(Output &out, const Installation &wanted);

/* What is wrong with the text of a version; empty when it is right. */
std::string versionMistake(const std::string &text);

/* vosctl image status and vosctl image restore */
int showInstalled(Output &out);
int restoreBackup(Output &out, bool yes);

}  // namespace vosctl

#endif
