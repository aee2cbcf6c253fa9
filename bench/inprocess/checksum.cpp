/* SPDX-License-Identifier: MIT */
/* Both checksums from 16 bytes to 64 MiB, with another program's CRC-32 alongside. */
#include <zlib.h>

#include <vector>

#include "base/crc32.h"
#include "bench.h"
#include "vos.h"

namespace {

/* The functions that are measured. Each continues a checksum over some bytes, except that of the partitions, which
 * cannot be continued. */
uint32_t crc(uint32_t before, const uint8_t *bytes, uint32_t length) { return ~vosFileCrc32(~before, bytes, length); }
uint32_t bytewise(uint32_t before, const uint8_t *bytes, uint32_t length) {
    return ~vos::crc32::byByte(vosCrctable, ~before, {bytes, length});
}
uint32_t sliced(uint32_t before, const uint8_t *bytes, uint32_t length) {
    return ~vos::crc32::byBlock(vos::crc32::Slicing{}, ~before, {bytes, length});
}
uint32_t zlib(uint32_t before, const uint8_t *bytes, uint32_t length) {
    return static_cast<uint32_t>(crc32(before, bytes, length));
}
uint32_t partition(uint32_t /*before*/, const uint8_t *bytes, uint32_t length) { return Cal_CRC(bytes, length); }

template <uint32_t checksum(uint32_t, const uint8_t *, uint32_t)>
void over(benchmark::State &state) {
    const std::vector<uint8_t> bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
    const auto length = static_cast<uint32_t>(bytes.size());
    if (checksum != partition) WORKS(checksum(1, bytes.data(), length) == zlib(1, bytes.data(), length));
    uint32_t value = 0;
    for (auto _ : state) benchmark::DoNotOptimize(value = checksum(value, bytes.data(), length));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

constexpr int64_t kLeast = 16, kMost = 64 << 20;

void sizes(benchmark::internal::Benchmark *benchmark) { benchmark->RangeMultiplier(4)->Range(kLeast, kMost); }

BENCHMARK(over<crc>)->Name("crc32/vosFileCrc32")->Apply(sizes);
BENCHMARK(over<zlib>)->Name("crc32/zlib")->Apply(sizes);
BENCHMARK(over<sliced>)->Name("crc32/without the processor's help")->Apply(sizes);
BENCHMARK(over<bytewise>)->Name("crc32/byte by byte")->Apply(sizes);
BENCHMARK(over<partition>)->Name("crc16/Cal_CRC")->Apply(sizes)->Arg(856)->Arg(1272);

/* With a changed table the library computes byte by byte, which is slower. */
void changedTable(benchmark::State &state) {
    vosCrctable[1] ^= 1;
    const std::vector<uint8_t> bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
    for (auto _ : state)
        benchmark::DoNotOptimize(vosFileCrc32(0xFFFFFFFF, bytes.data(), static_cast<uint32_t>(bytes.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
    vosCrctable[1] ^= 1;
}
BENCHMARK(changedTable)->Name("crc32/vosFileCrc32, changed table")->Arg(64)->Arg(1 << 20);

}  // namespace
