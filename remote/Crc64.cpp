#include "remote/Crc64.h"

#include <array>
#include <cstring>

#if defined(__x86_64__) || defined(_M_X64)
#include <emmintrin.h>
#include <wmmintrin.h>
#ifdef _MSC_VER
#include <intrin.h>
#endif
#define KPS_CRC_FOLDING 1
#endif

namespace kps {

namespace {

constexpr std::uint64_t kPolynomial = 0x42F0E1EBA9EA3693ull;  // x^64 left out
constexpr std::uint64_t kReflected = 0xC96C5795D7870F42ull;   // the same, bit-reversed

// Slicing-by-8: eight bytes per step for the start and end of a buffer, and for CPUs without
// carry-less multiplication.
using Tables = std::array<std::array<std::uint64_t, 256>, 8>;

Tables makeTables() {
  Tables tables{};
  for (std::uint64_t i = 0; i < 256; ++i) {
    std::uint64_t crc = i;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) ? kReflected : 0);
    tables[0][i] = crc;
  }
  for (std::size_t k = 1; k < 8; ++k)
    for (std::size_t i = 0; i < 256; ++i)
      tables[k][i] = (tables[k - 1][i] >> 8) ^ tables[0][tables[k - 1][i] & 0xFF];
  return tables;
}

const Tables& tables() {
  static const Tables t = makeTables();
  return t;
}

// The register (the CRC without its final inversion) carried over `size` bytes.
std::uint64_t byTables(std::uint64_t reg, const unsigned char* bytes, std::size_t size) {
  const Tables& t = tables();
  for (; size >= 8; size -= 8, bytes += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes, 8);  // every target is little-endian
    reg ^= word;
    reg = t[7][reg & 0xFF] ^ t[6][(reg >> 8) & 0xFF] ^ t[5][(reg >> 16) & 0xFF] ^
          t[4][(reg >> 24) & 0xFF] ^ t[3][(reg >> 32) & 0xFF] ^ t[2][(reg >> 40) & 0xFF] ^
          t[1][(reg >> 48) & 0xFF] ^ t[0][reg >> 56];
  }
  for (; size > 0; --size, ++bytes) reg = t[0][(reg ^ *bytes) & 0xFF] ^ (reg >> 8);
  return reg;
}

#ifdef KPS_CRC_FOLDING

// x^n mod P, bit-reversed as the reflected CRC holds its polynomials.
std::uint64_t powerOfX(int n) {
  std::uint64_t r = 1;
  for (int i = 0; i < n; ++i) r = (r << 1) ^ ((r >> 63) ? kPolynomial : 0);
  std::uint64_t reversed = 0;
  for (int bit = 0; bit < 64; ++bit) reversed |= ((r >> bit) & 1) << (63 - bit);
  return reversed;
}

bool cpuHasCarrylessMultiply() {
#ifdef _MSC_VER
  int info[4];
  __cpuid(info, 1);
  return (info[2] >> 1) & 1;
#else
  return __builtin_cpu_supports("pclmul");
#endif
}

// Folds 16 bytes per step: with the 16 bytes read so far as X (first byte the highest terms),
// X·x^128 ≡ Xhigh·x^192 + Xlow·x^128 (mod P), each product one carry-less multiplication. A
// product of two reflected 64-bit values comes out multiplied by x once more, hence the
// constants x^191 and x^127. The folded 16 bytes leave the same remainder as everything they
// stand for, so the tables finish them.
#ifndef _MSC_VER
__attribute__((target("pclmul,sse2")))
#endif
std::uint64_t byFolding(std::uint64_t reg, const unsigned char* bytes, std::size_t size) {
  static const __m128i k = _mm_set_epi64x(static_cast<long long>(powerOfX(127)),
                                          static_cast<long long>(powerOfX(191)));
  __m128i x = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)),
                            _mm_cvtsi64_si128(static_cast<long long>(reg)));
  bytes += 16;
  size -= 16;
  for (; size >= 16; size -= 16, bytes += 16)
    x = _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_clmulepi64_si128(x, k, 0x11)),
                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
  unsigned char folded[16];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(folded), x);
  return byTables(byTables(0, folded, 16), bytes, size);
}

#endif

}  // namespace

std::uint64_t crc64(std::uint64_t crc, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
#ifdef KPS_CRC_FOLDING
  static const bool folding = cpuHasCarrylessMultiply();
  if (folding && size >= 64) return ~byFolding(~crc, bytes, size);
#endif
  return ~byTables(~crc, bytes, size);
}

}  // namespace kps
