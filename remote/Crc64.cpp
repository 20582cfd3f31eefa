#include "remote/Crc64.h"

#include <array>

namespace kps {

namespace {

std::array<std::uint64_t, 256> makeTable() {
  constexpr std::uint64_t kPolynomial = 0xC96C5795D7870F42ull;  // 0x42F0E1EBA9EA3693 reflected
  std::array<std::uint64_t, 256> table{};
  for (std::uint64_t i = 0; i < 256; ++i) {
    std::uint64_t crc = i;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) ? kPolynomial : 0);
    table[i] = crc;
  }
  return table;
}

}  // namespace

std::uint64_t crc64(std::uint64_t crc, const void* data, std::size_t size) {
  static const std::array<std::uint64_t, 256> table = makeTable();
  const auto* bytes = static_cast<const unsigned char*>(data);
  crc = ~crc;
  for (std::size_t i = 0; i < size; ++i) crc = table[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

}  // namespace kps
