// The program is built for any machine of its architecture, so wider vectors are chosen at run time. The zero
// test is one plain loop, which the compiler vectorises for each set of instructions. No compiler in use does
// that well for a sum of bytes, so on x86 it is written with the instruction made for it: psadbw adds up
// groups of eight bytes into 64-bit lanes.
#include "writer/byte_scan.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace tamrix {

namespace {

bool allZeroTail(const char* data, std::size_t size) {
  return std::all_of(data, data + size, [](char c) { return c == 0; });
}

std::uint64_t byteSumTail(const char* data, std::size_t size) {
  return std::accumulate(data, data + size, std::uint64_t{0},
                         [](std::uint64_t sum, char c) { return sum + static_cast<unsigned char>(c); });
}

// Blocks of kWords without a branch inside, so that the compiler works on whole vectors; the wider these are,
// the larger a block it can unroll. Inlined, so that they are the caller's vectors.
template <std::size_t kWords>
[[gnu::always_inline]] inline bool allZeroInBlocks(const char* data, std::size_t size) {
  constexpr std::size_t kBlock = kWords * sizeof(std::uint64_t);
  for (; size >= kBlock; data += kBlock, size -= kBlock) {
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < kWords; ++i) {
      std::uint64_t word = 0;
      std::memcpy(&word, data + i * sizeof(word), sizeof(word));
      seen |= word;
    }
    if (seen != 0) return false;
  }
  return allZeroTail(data, size);
}

bool allZeroBaseline(const char* data, std::size_t size) { return allZeroInBlocks<32>(data, size); }

#if defined(__x86_64__)

// How far ahead of the sums memory is asked for, in bytes. The processor looks ahead by itself, but not far
// enough to keep up with sums of this width.
constexpr std::size_t kAhead = 2048;

template <std::size_t kLanes>
std::uint64_t sumOf(const std::array<std::uint64_t, kLanes>& lanes) {
  return std::accumulate(lanes.begin(), lanes.end(), std::uint64_t{0});
}

std::uint64_t byteSumBaseline(const char* data, std::size_t size) {
  const __m128i zero = _mm_setzero_si128();
  __m128i even = zero;
  __m128i odd = zero;
  for (; size >= 32; data += 32, size -= 32) {
    const auto* const at = reinterpret_cast<const __m128i*>(data);
    even = _mm_add_epi64(even, _mm_sad_epu8(_mm_loadu_si128(at), zero));
    odd = _mm_add_epi64(odd, _mm_sad_epu8(_mm_loadu_si128(at + 1), zero));
  }
  std::array<std::uint64_t, 2> lanes{};
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.data()), _mm_add_epi64(even, odd));
  return sumOf(lanes) + byteSumTail(data, size);
}

[[gnu::target("avx2")]] bool allZeroAvx2(const char* data, std::size_t size) {
  return allZeroInBlocks<64>(data, size);
}

[[gnu::target("avx2")]] std::uint64_t byteSumAvx2(const char* data, std::size_t size) {
  const __m256i zero = _mm256_setzero_si256();
  __m256i even = zero;
  __m256i odd = zero;
  for (; size >= 64; data += 64, size -= 64) {
    __builtin_prefetch(data + kAhead);
    const auto* const at = reinterpret_cast<const __m256i*>(data);
    even = _mm256_add_epi64(even, _mm256_sad_epu8(_mm256_loadu_si256(at), zero));
    odd = _mm256_add_epi64(odd, _mm256_sad_epu8(_mm256_loadu_si256(at + 1), zero));
  }
  std::array<std::uint64_t, 4> lanes{};
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(lanes.data()), _mm256_add_epi64(even, odd));
  return sumOf(lanes) + byteSumTail(data, size);
}

[[gnu::target("avx512bw")]] bool allZeroAvx512(const char* data, std::size_t size) {
  return allZeroInBlocks<64>(data, size);
}

[[gnu::target("avx512bw")]] std::uint64_t byteSumAvx512(const char* data, std::size_t size) {
  const __m512i zero = _mm512_setzero_si512();
  __m512i even = zero;
  __m512i odd = zero;
  for (; size >= 128; data += 128, size -= 128) {
    __builtin_prefetch(data + kAhead);
    __builtin_prefetch(data + kAhead + 64);
    even = _mm512_add_epi64(even, _mm512_sad_epu8(_mm512_loadu_si512(data), zero));
    odd = _mm512_add_epi64(odd, _mm512_sad_epu8(_mm512_loadu_si512(data + 64), zero));
  }
  std::array<std::uint64_t, 8> lanes{};
  _mm512_storeu_si512(lanes.data(), _mm512_add_epi64(even, odd));
  return sumOf(lanes) + byteSumTail(data, size);
}

constexpr std::array kKernels = {ScanKernels{"SSE2", allZeroBaseline, byteSumBaseline},
                                 ScanKernels{"AVX2", allZeroAvx2, byteSumAvx2},
                                 ScanKernels{"AVX-512", allZeroAvx512, byteSumAvx512}};

std::size_t runnableKernels() {
  if (__builtin_cpu_supports("avx2") == 0) return 1;
  return __builtin_cpu_supports("avx512bw") == 0 ? 2 : 3;
}

#else

constexpr std::array kKernels = {ScanKernels{"baseline", allZeroBaseline, byteSumTail}};

std::size_t runnableKernels() { return 1; }

#endif

const ScanKernels& fastest() {
  static const ScanKernels& kernels = scanKernels().back();
  return kernels;
}

}  // namespace

std::span<const ScanKernels> scanKernels() { return std::span(kKernels).first(runnableKernels()); }

bool allZero(const char* data, std::size_t size) { return fastest().allZero(data, size); }

std::uint64_t byteSum(const char* data, std::size_t size) { return fastest().byteSum(data, size); }

}  // namespace tamrix
