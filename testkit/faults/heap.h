/* SPDX-License-Identifier: MIT */
#ifndef TESTKIT_FAULTS_HEAP_H
#define TESTKIT_FAULTS_HEAP_H

#include <atomic>

namespace vosfaults {

/* Heap blocks that the process has taken and not released. */
extern std::atomic<int> liveBlocks;

}  // namespace vosfaults

#endif
