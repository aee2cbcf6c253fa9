/* SPDX-License-Identifier: MIT */
/* What is looked at on a machine on which vos is to run. */
#ifndef VOSCTL_CHECKS_H
#define VOSCTL_CHECKS_H

#include <string>
#include <vector>

namespace vosctl {

/* good: nothing to do. warning: it works, and somebody should know. device: it would not work on a device, and this
 * machine can do without. error: something does not work. */
enum class Verdict { good, warning, device, error };

struct Finding {
    std::string check; /* what was looked at; stable */
    Verdict verdict = Verdict::good;
    std::string found;
    std::string remedy; /* what to do about it, empty when nothing */
};

/* Each looks at one thing. None changes anything. None tells "device": which machine it is, is not theirs to know. */
Finding checkSocketDirectory();
Finding checkStaleSockets();
Finding checkSendCeiling();
Finding checkReceiveCeiling();
Finding checkQueueLength();
Finding checkNetlink();
Finding checkFlash();
Finding checkApp();
Finding checkSystemPartition();
Finding checkFactoryPartition();
Finding checkFactoryCopy();
Finding checkApplication();
Finding checkBackup();
Finding checkConfiguration();
Finding checkFlashRoom();
Finding checkTerminals();
Finding checkUptime();

}  // namespace vosctl

#endif
