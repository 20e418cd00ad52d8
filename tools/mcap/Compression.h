#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace lumo::mcap {

/// A chunk whose content does not decompress to what its record declares.
class CompressionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// True for the compressions chunks may use here: "" (none), "zstd" and "lz4"
/// (the LZ4 frame format).
bool knownCompression(const std::string& compression);

std::string compress(const std::string& compression, const std::string& records);

/// The content of a chunk, which must come to exactly `uncompressedSize` bytes.
std::string decompress(const std::string& compression, const std::string& compressed,
                       std::uint64_t uncompressedSize);

}  // namespace lumo::mcap
