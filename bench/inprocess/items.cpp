/* SPDX-License-Identifier: MIT */
/* Items of the data partitions, compared with the same file operations written by hand. The files are on tmpfs, so the
 * library is measured and not a flash chip. */
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>

#include "bench.h"
#include "vos.h"

namespace {

constexpr uint32_t kHeader = 128;
std::array<uint8_t, kHeader + sizeof flashConfig> image;

/* The whole partition has to be read and written, because one checksum covers it. */
bool bareGet(uint32_t size, const char *path) {
    const int fd = open(path, O_RDONLY);
    flock(fd, LOCK_SH);
    const ssize_t count = read(fd, image.data(), size);
    flock(fd, LOCK_UN);
    close(fd);
    return count == static_cast<ssize_t>(size);
}

bool bareSet(uint32_t size, const char *path) {
    const int fd = open(path, O_RDWR);
    flock(fd, LOCK_EX);
    bool worked = read(fd, image.data(), size) == static_cast<ssize_t>(size);
    lseek(fd, 0, SEEK_SET);
    worked = write(fd, image.data(), size) == static_cast<ssize_t>(size) && worked;
    flock(fd, LOCK_UN);
    fsync(fd);
    syncfs(fd);
    close(fd);
    return worked;
}

/* One item of either partition. */
struct Factory {
    static constexpr int32_t item = BSP_SYS_MAC;
    static constexpr uint32_t length = 6, size = kHeader + sizeof flashConfig;
    static const char *path() { return szFactoryData; }
};
struct System {
    static constexpr int32_t item = BSP_IP_ADDRESS;
    static constexpr uint32_t length = 4, size = kHeader + sizeof flashData;
    static const char *path() { return szSysData; }
};

template <class Partition>
void get(benchmark::State &state) {
    std::array<uint8_t, 8> value{};
    for (auto _ : state) WORKS(vosSysConfigDataGet(Partition::item, value.data(), Partition::length) == VOS_OK);
}

template <class Partition>
void getByHand(benchmark::State &state) {
    for (auto _ : state) WORKS(bareGet(Partition::size, Partition::path()));
}

/* The steps of vosSysConfigDataSet(): it reads the record, changes it in memory and writes it. The write reads the
 * partition once more, for the header bytes that are kept. */
template <class Partition>
void setByHand(benchmark::State &state) {
    for (auto _ : state)
        WORKS(bareGet(Partition::size, Partition::path()) && bareSet(Partition::size, Partition::path()));
}

template <class Partition>
void set(benchmark::State &state) {
    const std::array<uint8_t, 8> value{1, 2, 3, 4, 5, 6, 7, 8};
    for (auto _ : state) WORKS(vosSysConfigDataSet(Partition::item, value.data(), Partition::length) == VOS_OK);
}

BENCHMARK(get<Factory>)->Name("item/Get, factory");
BENCHMARK(getByHand<Factory>)->Name("item/Get by hand, factory");
BENCHMARK(get<System>)->Name("item/Get, system");
BENCHMARK(getByHand<System>)->Name("item/Get by hand, system");
BENCHMARK(set<Factory>)->Name("item/Set, factory");
BENCHMARK(setByHand<Factory>)->Name("item/Set by hand, factory");
BENCHMARK(set<System>)->Name("item/Set, system");
BENCHMARK(setByHand<System>)->Name("item/Set by hand, system");

}  // namespace
