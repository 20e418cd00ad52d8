#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lumo::mcap {

/// CRC-32 (the polynomial of zlib and Ethernet), continued from `crc` so that
/// a long section can be summed as it is written.
std::uint32_t crc32(const void* data, std::size_t size, std::uint32_t crc = 0);

inline std::uint32_t crc32(const std::string& bytes, std::uint32_t crc = 0) {
    return crc32(bytes.data(), bytes.size(), crc);
}

}  // namespace lumo::mcap
