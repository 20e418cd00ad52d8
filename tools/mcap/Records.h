#pragma once

// The records of a recording file, as plain values: what the writer is given
// and what the reader hands back. Times are nanoseconds since the Unix epoch.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace lumo::mcap {

/// The eight bytes that open and close every file; the sixth is the format's
/// major version, ASCII '0'.
constexpr char magic[8] = {'\x89', 'M', 'C', 'A', 'P', '0', '\r', '\n'};
constexpr std::size_t magicSize = sizeof magic;

enum class Opcode : std::uint8_t {
    header = 0x01,
    footer = 0x02,
    schema = 0x03,
    channel = 0x04,
    message = 0x05,
    chunk = 0x06,
    messageIndex = 0x07,
    chunkIndex = 0x08,
    attachment = 0x09,
    attachmentIndex = 0x0A,
    statistics = 0x0B,
    metadata = 0x0C,
    metadataIndex = 0x0D,
    summaryOffset = 0x0E,
    dataEnd = 0x0F,
};

/// The name of a record type as error messages spell it ("chunk", "message index").
std::string opcodeName(std::uint8_t opcode);

/// Every record starts with its opcode and the length of its content.
constexpr std::size_t recordPrefixSize = 1 + 8;

struct Header {
    std::string profile;
    std::string library;
};

struct Schema {
    std::uint16_t id = 0;  // 0 is reserved for "no schema"
    std::string name;
    std::string encoding;
    std::string data;
};

struct Channel {
    std::uint16_t id = 0;
    std::uint16_t schemaId = 0;
    std::string topic;
    std::string messageEncoding;
    std::map<std::string, std::string> metadata;
};

struct Message {
    std::uint16_t channelId = 0;
    std::uint32_t sequence = 0;
    std::uint64_t logTime = 0;
    std::uint64_t publishTime = 0;
    std::string data;
};

struct MessageIndexEntry {
    std::uint64_t logTime = 0;
    std::uint64_t offset = 0;  // into the chunk's uncompressed records
};

struct MessageIndex {
    std::uint16_t channelId = 0;
    std::vector<MessageIndexEntry> entries;
};

/// A chunk's content before compression: records of schemas, channels and messages.
struct Chunk {
    std::uint64_t messageStartTime = 0;
    std::uint64_t messageEndTime = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint32_t uncompressedCrc = 0;
    std::string compression;  // "", "zstd" or "lz4"
    std::string records;      // compressed as `compression` says
};

struct ChunkIndex {
    std::uint64_t messageStartTime = 0;
    std::uint64_t messageEndTime = 0;
    std::uint64_t chunkStartOffset = 0;
    std::uint64_t chunkLength = 0;
    std::map<std::uint16_t, std::uint64_t> messageIndexOffsets;
    std::uint64_t messageIndexLength = 0;
    std::string compression;
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
};

struct Statistics {
    std::uint64_t messageCount = 0;
    std::uint16_t schemaCount = 0;
    std::uint32_t channelCount = 0;
    std::uint32_t attachmentCount = 0;
    std::uint32_t metadataCount = 0;
    std::uint32_t chunkCount = 0;
    std::uint64_t messageStartTime = 0;
    std::uint64_t messageEndTime = 0;
    std::map<std::uint16_t, std::uint64_t> channelMessageCounts;
};

struct SummaryOffset {
    std::uint8_t groupOpcode = 0;
    std::uint64_t groupStart = 0;
    std::uint64_t groupLength = 0;
};

struct Footer {
    std::uint64_t summaryStart = 0;
    std::uint64_t summaryOffsetStart = 0;
    std::uint32_t summaryCrc = 0;
};

/// The size of a footer record with its prefix, fixed by its three fields.
constexpr std::size_t footerRecordSize = recordPrefixSize + 8 + 8 + 4;

}  // namespace lumo::mcap
