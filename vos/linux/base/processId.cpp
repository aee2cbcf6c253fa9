/* SPDX-License-Identifier: MIT */
#include "processId.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>

#include "errnoKeeper.h"

namespace {

constexpr long kPageSize = 4096;

/* A whole page: the kernel clears whole pages in a child. */
struct alignas(kPageSize) Page {
    pid_t id;
    std::array<char, kPageSize - sizeof(pid_t)> padding;
};
constinit Page g_page{};

enum : int { kUnknown, kAlways, kNever };
constinit int g_wiped = kUnknown;

/* False with larger pages, because other data on the page would be cleared too. Also false where madvise() accepts an
 * invalid advice: an emulator that accepts every advice does nothing. */
bool adviseWiping() {
    constexpr int kNoAdvice = -1;
    return sysconf(_SC_PAGESIZE) == kPageSize && madvise(&g_page, sizeof g_page, kNoAdvice) != 0 &&
           madvise(&g_page, sizeof g_page, MADV_WIPEONFORK) == 0;
}

/* Whether the kernel clears the page in every child. */
bool wipedInChildren() {
    int wiped = __atomic_load_n(&g_wiped, __ATOMIC_RELAXED);
    if (wiped == kUnknown) {
        const vos::ErrnoKeeper keep;
        wiped = adviseWiping() ? kAlways : kNever;
        __atomic_store_n(&g_wiped, wiped, __ATOMIC_RELAXED);
    }
    return wiped == kAlways;
}

}  // namespace

pid_t vos::processId() {
    const pid_t known = __atomic_load_n(&g_page.id, __ATOMIC_RELAXED);
    if (known != 0) [[likely]]
        return known;
    const pid_t own = getpid();
    if (wipedInChildren()) __atomic_store_n(&g_page.id, own, __ATOMIC_RELAXED);
    return own;
}
