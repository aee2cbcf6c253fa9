/* SPDX-License-Identifier: MIT */
/* The CRC-32 by the processor's own instructions. */
#include "../base/crc32.h"

#if defined(__x86_64__)

#include <cpuid.h>
#include <immintrin.h>

#include <atomic>

namespace vos::crc32 {

namespace {

/* The instructions that multiply polynomials over GF(2). */
#define WITH_MULTIPLICATION __attribute__((target("pclmul")))

/* A block of 16 bytes is a polynomial too, its lowest bit the coefficient of x^127; the low half has the high powers.
 * Bit n of a product of two halves is the coefficient of x^(126-n), which is one power less than in a block. So a
 * factor is also stored with one power less. It is in the upper 32 bits of a half, the coefficients of x^31 down to
 * x^0. */
constexpr int64_t factor(uint64_t n) { return static_cast<int64_t>(uint64_t{power(n - 1)} << 32); }

/* Combines a block with the block that begins kBits bits later. The result, in the place of the later block, has the
 * same CRC as the two blocks. */
template <uint64_t kBits>
WITH_MULTIPLICATION inline __m128i fold(__m128i block, __m128i later) {
    const __m128i factors = _mm_set_epi64x(factor(kBits), factor(kBits + 64));
    const __m128i low = _mm_clmulepi64_si128(block, factors, 0x00), high = _mm_clmulepi64_si128(block, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), later);
}

inline __m128i load(const uint8_t *bytes) {
    return _mm_loadu_si128(static_cast<const __m128i *>(static_cast<const void *>(bytes)));
}

/* -1 until the processor was asked. The question takes long, above all on a virtual machine. */
constinit std::atomic<int8_t> helps{-1};

}  // namespace

bool processorHelps() {
    int8_t answer = helps.load(std::memory_order_relaxed);
    if (answer < 0) {
        unsigned a = 0, b = 0, c = 0, d = 0;
        answer = __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_PCLMUL) != 0 ? 1 : 0;
        helps.store(answer, std::memory_order_relaxed);
    }
    return answer != 0;
}

/* Four blocks side by side, because a multiplication takes several cycles, but each cycle can start one. */
WITH_MULTIPLICATION uint32_t byProcessor(uint32_t crc, Bytes bytes) {
    const uint8_t *at = bytes.data();
    __m128i a = load(at), b = load(at + 16), c = load(at + 32), d = load(at + 48);
    a = _mm_xor_si128(a, _mm_cvtsi32_si128(static_cast<int>(crc)));
    for (bytes = bytes.subspan(64); bytes.size() >= 64; bytes = bytes.subspan(64)) {
        at = bytes.data();
        a = fold<512>(a, load(at));
        b = fold<512>(b, load(at + 16));
        c = fold<512>(c, load(at + 32));
        d = fold<512>(d, load(at + 48));
    }
    a = fold<128>(fold<128>(fold<128>(a, b), c), d);
    for (; bytes.size() >= 16; bytes = bytes.subspan(16)) a = fold<128>(a, load(bytes.data()));
    alignas(16) std::array<uint8_t, 16> last;
    _mm_store_si128(static_cast<__m128i *>(static_cast<void *>(last.data())), a);
    return byWord(Slicing{}, byWord(Slicing{}, 0, last), bytes);
}

}  // namespace vos::crc32

#elif defined(__aarch64__)

#include <asm/hwcap.h>
#include <sys/auxv.h>

namespace vos::crc32 {

namespace {

/* The processor has an instruction for this polynomial. It is written in assembly, because the compiler's intrinsic
 * cannot be used in code that also runs on processors without the instruction. */
struct Instruction {
    uint32_t operator()(uint32_t crc, uint64_t next) const {
        asm(".arch_extension crc\n\tcrc32x %w0, %w0, %x1" : "+r"(crc) : "r"(next));
        return crc;
    }
};

}  // namespace

bool processorHelps() { return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0; }

uint32_t byProcessor(uint32_t crc, Bytes bytes) { return byBlock(Instruction{}, crc, bytes); }

}  // namespace vos::crc32

#else

namespace vos::crc32 {

bool processorHelps() { return false; }

uint32_t byProcessor(uint32_t crc, Bytes bytes) { return byBlock(Slicing{}, crc, bytes); }

}  // namespace vos::crc32

#endif
