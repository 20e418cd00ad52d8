#pragma once

// Records to bytes and back. Integers are little-endian; a string and a byte
// array carry a 32-bit length, a map and an array the 32-bit length in bytes
// of their entries.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tools/mcap/Records.h"

namespace lumo::mcap {

/// Content that does not hold the fields its record type needs; `what()`
/// names the field. The reader adds the file, the offset and the record.
class FieldError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Appends fields to a record's content.
class FieldWriter {
public:
    void u8(std::uint8_t value) { out.push_back(static_cast<char>(value)); }
    void u16(std::uint16_t value) { little(value, 2); }
    void u32(std::uint32_t value) { little(value, 4); }
    void u64(std::uint64_t value) { little(value, 8); }
    void string(const std::string& value);
    void raw(const std::string& value) { out += value; }
    const std::string& bytes() const { return out; }

private:
    void little(std::uint64_t value, int size);
    std::string out;
};

/// Takes fields off a record's content, refusing to read past its end.
class FieldReader {
public:
    explicit FieldReader(const std::string& content, std::size_t begin = 0, std::size_t end = std::string::npos)
        : content(content), position(begin), end(end == std::string::npos ? content.size() : end) {}

    std::uint8_t u8(const char* field) { return static_cast<std::uint8_t>(little(1, field)); }
    std::uint16_t u16(const char* field) { return static_cast<std::uint16_t>(little(2, field)); }
    std::uint32_t u32(const char* field) { return static_cast<std::uint32_t>(little(4, field)); }
    std::uint64_t u64(const char* field) { return little(8, field); }
    /// A 32-bit length and that many bytes.
    std::string string(const char* field);
    /// The next `size` bytes.
    std::string raw(std::uint64_t size, const char* field);
    /// Everything up to the end of the content.
    std::string rest() { return raw(remaining(), "data"); }
    /// A 32-bit byte length; the reader of the entries stops at the returned end.
    std::size_t sectionEnd(const char* field);
    std::size_t offset() const { return position; }
    std::size_t remaining() const { return end - position; }

private:
    std::uint64_t little(int size, const char* field);
    const std::string& content;
    std::size_t position;
    std::size_t end;
};

/// A whole record: opcode, content length and content.
std::string record(Opcode opcode, const std::string& content);

std::string encode(const Header& header);
std::string encode(const Schema& schema);
std::string encode(const Channel& channel);
std::string encode(const Message& message);
std::string encode(const Chunk& chunk);
std::string encode(const MessageIndex& index);
std::string encode(const ChunkIndex& index);
std::string encode(const Statistics& statistics);
std::string encode(const SummaryOffset& offset);
std::string encodeDataEnd(std::uint32_t dataSectionCrc);
/// The footer without its CRC field, which sums the bytes up to it.
std::string encodeFooterWithoutCrc(const Footer& footer);

Header decodeHeader(FieldReader& fields);
Schema decodeSchema(FieldReader& fields);
Channel decodeChannel(FieldReader& fields);
Message decodeMessage(FieldReader& fields);
Chunk decodeChunk(FieldReader& fields);
MessageIndex decodeMessageIndex(FieldReader& fields);
ChunkIndex decodeChunkIndex(FieldReader& fields);
Statistics decodeStatistics(FieldReader& fields);
SummaryOffset decodeSummaryOffset(FieldReader& fields);
Footer decodeFooter(FieldReader& fields);

}  // namespace lumo::mcap
