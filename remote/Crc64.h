// CRC-64/ECMA-182 as the object store reports it in x-oss-hash-crc64ecma (reflected, all-ones
// start and end: the variant also known as CRC-64/XZ).
#pragma once

#include <cstddef>
#include <cstdint>

namespace kps {

// Continues `crc` (0 for the start) over `size` bytes.
std::uint64_t crc64(std::uint64_t crc, const void* data, std::size_t size);

}  // namespace kps
