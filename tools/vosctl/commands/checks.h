/* SPDX-License-Identifier: MIT */
/* The checks of a machine on which vos is to run. */
#ifndef VOSCTL_CHECKS_H
#define VOSCTL_CHECKS_H

#include <string>
#include <vector>

namespace vosctl {

/* good: nothing to do. warning: it works, but the user should know about it. device: it would not work on a device, but
 * this machine does not need it. error: something does not work. */
enum class Verdict { good, warning, device, error };

struct Finding {
    std::string check; /* name of the check; it does not change between versions */
    Verdict verdict = Verdict::good;
    std::string found;
    std::string remedy; /* what to do; empty when there is nothing to do */
};

/* Each function checks one thing and changes nothing. None of them returns "device", because they do not know whether
 * the machine is a device. */
Finding checkSocketDirectory();
Finding checkStaleSockets();
Finding checkSendCeiling();
Finding checkReceiveCeiling();
Finding checkQueueLength();
Finding checkNetlink();
Finding checkFlash();
Finding checkApp();
Finding checkJournal();
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
