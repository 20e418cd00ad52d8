#include "tools/mcap/Reader.h"

#include <cerrno>
#include <cstring>

#include "tools/mcap/Compression.h"
#include "tools/mcap/Crc32.h"
#include "tools/mcap/Encoding.h"

namespace lumo::mcap {

namespace {

std::string recordName(std::uint8_t opcode) { return opcodeName(opcode) + " record"; }

std::uint64_t littleU64(const std::string& bytes, std::size_t at) {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) {
        value |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    }
    return value;
}

/// A record's opcode and content length, read from its nine-byte prefix.
struct Prefix {
    std::uint8_t opcode;
    std::uint64_t length;
};

Prefix prefixOf(const std::string& bytes, std::size_t at) {
    return Prefix{static_cast<std::uint8_t>(bytes[at]), littleU64(bytes, at + 1)};
}

}  // namespace

FormatError::FormatError(const std::string& file, std::uint64_t offset, const std::string& record,
                         const std::string& reason)
    : std::runtime_error(file + ": offset " + std::to_string(offset) + ", " + record + ": " + reason),
      fileName(file),
      at(offset),
      recordName(record),
      why(reason) {}

Reader::Reader(const std::string& path) : filePath(path), in(path, std::ios::binary) {
    if (!in) {
        throw FormatError(path, 0, "file", std::string("cannot open it: ") + std::strerror(errno));
    }
    in.seekg(0, std::ios::end);
    fileSize = static_cast<std::uint64_t>(in.tellg());
    if (fileSize < magicSize) {
        fail(0, "magic", "the file has " + std::to_string(fileSize) + " bytes, fewer than the 8 of the magic");
    }
    if (readAt(0, magicSize, "magic") != std::string(magic, magicSize)) {
        fail(0, "magic", "the file does not begin with the magic of a recording (0x89 'MCAP0' CR LF)");
    }
    if (fileSize < magicSize + recordPrefixSize) {
        fail(magicSize, "header record", "the file ends before its header record");
    }
    const std::string prefix = readAt(magicSize, recordPrefixSize, "header record");
    const Prefix header = prefixOf(prefix, 0);
    if (header.opcode != static_cast<std::uint8_t>(Opcode::header)) {
        fail(magicSize, recordName(header.opcode), "the first record is not a header record");
    }
    const std::string content = readAt(magicSize + recordPrefixSize, header.length, "header record");
    try {
        FieldReader fields(content);
        fileHeader = decodeHeader(fields);
    } catch (const FieldError& error) {
        fail(magicSize, "header record", error.what());
    }
    dataStart = magicSize + recordPrefixSize + header.length;
}

void Reader::fail(std::uint64_t offset, const std::string& record, const std::string& reason) const {
    throw FormatError(filePath, offset, record, reason);
}

std::string Reader::readAt(std::uint64_t offset, std::uint64_t size, const std::string& record) {
    if (offset > fileSize || size > fileSize - offset) {
        fail(offset, record,
             "it needs " + std::to_string(size) + " bytes, but the file ends after " +
                 std::to_string(offset > fileSize ? 0 : fileSize - offset));
    }
    std::string bytes(static_cast<std::size_t>(size), '\0');
    in.clear();
    in.seekg(static_cast<std::streamoff>(offset));
    in.read(bytes.data(), static_cast<std::streamsize>(size));
    if (!in) {
        fail(offset, record, "reading " + std::to_string(size) + " bytes failed");
    }
    return bytes;
}

void Reader::takeSchema(const Schema& schema, const Location& where, const Visitor& visitor) {
    if (schema.id == 0) {
        fail(where.offset, "schema record", "schema id 0 is reserved for channels without a schema");
    }
    const auto known = schemas.find(schema.id);
    if (known != schemas.end() && (known->second.name != schema.name || known->second.data != schema.data)) {
        fail(where.offset, "schema record", "schema id " + std::to_string(schema.id) + " is defined twice, differently");
    }
    schemas[schema.id] = schema;
    if (visitor.schema) {
        visitor.schema(schema, where);
    }
}

void Reader::takeChannel(const Channel& channel, const Location& where, const Visitor& visitor) {
    if (channel.schemaId != 0 && schemas.count(channel.schemaId) == 0) {
        fail(where.offset, "channel record",
             "channel " + std::to_string(channel.id) + " (" + channel.topic + ") refers to schema " +
                 std::to_string(channel.schemaId) + ", which no schema record before it defines");
    }
    const auto known = channels.find(channel.id);
    if (known != channels.end() &&
        (known->second.topic != channel.topic || known->second.schemaId != channel.schemaId)) {
        fail(where.offset, "channel record",
             "channel id " + std::to_string(channel.id) + " is defined twice, differently");
    }
    channels[channel.id] = channel;
    if (visitor.channel) {
        visitor.channel(channel, where);
    }
}

void Reader::takeMessage(const Message& message, const Location& where, const std::string& record,
                         const std::string& subject, const Visitor& visitor, ScanResult& result) {
    const auto channel = channels.find(message.channelId);
    if (channel == channels.end()) {
        fail(where.offset, record,
             subject + " refers to channel " + std::to_string(message.channelId) +
                 ", which no channel record before it defines");
    }
    ++result.messages;
    if (visitor.message) {
        visitor.message(message, channel->second, where);
    }
}

void Reader::scanChunk(const std::string& content, std::uint64_t chunkOffset, const Visitor& visitor,
                       ScanResult& result) {
    Chunk chunk;
    std::string records;
    try {
        FieldReader fields(content);
        chunk = decodeChunk(fields);
        records = decompress(chunk.compression, chunk.records, chunk.uncompressedSize);
    } catch (const std::runtime_error& error) {
        fail(chunkOffset, "chunk record", error.what());
    }
    if (chunk.uncompressedCrc != 0 && crc32(records) != chunk.uncompressedCrc) {
        fail(chunkOffset, "chunk record", "its records do not match the CRC it carries");
    }
    std::size_t at = 0;
    while (at < records.size()) {
        const std::string where = " at offset " + std::to_string(at) + " of the chunk's records";
        if (records.size() - at < recordPrefixSize) {
            fail(chunkOffset, "chunk record", "a record" + where + " is cut off inside its prefix");
        }
        const Prefix prefix = prefixOf(records, at);
        if (prefix.length > records.size() - at - recordPrefixSize) {
            fail(chunkOffset, "chunk record",
                 "the " + recordName(prefix.opcode) + where + " declares " + std::to_string(prefix.length) +
                     " bytes, more than the chunk holds");
        }
        const std::size_t begin = at + recordPrefixSize;
        const std::size_t end = begin + static_cast<std::size_t>(prefix.length);
        const Location location{chunkOffset, chunkOffset};
        try {
            FieldReader fields(records, begin, end);
            switch (static_cast<Opcode>(prefix.opcode)) {
                case Opcode::schema: takeSchema(decodeSchema(fields), location, visitor); break;
                case Opcode::channel: takeChannel(decodeChannel(fields), location, visitor); break;
                case Opcode::message:
                    takeMessage(decodeMessage(fields), location, "chunk record", "the message record" + where,
                                visitor, result);
                    break;
                default:
                    fail(chunkOffset, "chunk record",
                         "it holds a " + recordName(prefix.opcode) + where +
                             "; a chunk holds only schema, channel and message records");
            }
        } catch (const FieldError& error) {
            fail(chunkOffset, "chunk record", "the " + recordName(prefix.opcode) + where + ": " + error.what());
        }
        at = end;
    }
    ++result.chunks;
}

ScanResult Reader::scan(const Visitor& visitor, bool acceptUnfinished) {
    schemas.clear();
    channels.clear();
    ScanResult result;
    std::uint32_t dataCrc = crc32(readAt(0, dataStart, "header record"));
    std::uint64_t at = dataStart;
    auto unfinished = [&](const std::string& record, const std::string& reason) {
        if (!acceptUnfinished) {
            fail(at, record, reason + "; the recording was not closed or was cut short");
        }
        result.unfinishedAt = at;
        result.unfinishedReason = reason;
        return result;
    };
    for (;;) {
        if (at == fileSize) {
            return unfinished("end of file", "the file ends after the last complete record, without a footer");
        }
        if (fileSize - at < recordPrefixSize) {
            return unfinished("record prefix", "the file ends inside a record's prefix");
        }
        const std::string prefixBytes = readAt(at, recordPrefixSize, "record prefix");
        const Prefix prefix = prefixOf(prefixBytes, 0);
        const std::string name = recordName(prefix.opcode);
        if (prefix.length > fileSize - at - recordPrefixSize) {
            return unfinished(name, "the record declares " + std::to_string(prefix.length) +
                                        " bytes, but the file ends after " +
                                        std::to_string(fileSize - at - recordPrefixSize));
        }
        const std::string content = readAt(at + recordPrefixSize, prefix.length, name);
        const Location location{at, std::nullopt};
        try {
            FieldReader fields(content);
            switch (static_cast<Opcode>(prefix.opcode)) {
                case Opcode::header: fail(at, name, "a second header record"); break;
                case Opcode::schema: takeSchema(decodeSchema(fields), location, visitor); break;
                case Opcode::channel: takeChannel(decodeChannel(fields), location, visitor); break;
                case Opcode::message:
                    takeMessage(decodeMessage(fields), location, name, "it", visitor, result);
                    break;
                case Opcode::chunk: scanChunk(content, at, visitor, result); break;
                case Opcode::messageIndex: decodeMessageIndex(fields); break;
                case Opcode::dataEnd: {
                    const std::uint32_t declared = fields.u32("data_section_crc");
                    if (declared != 0 && declared != dataCrc) {
                        fail(at, name, "the data section does not match the CRC it carries");
                    }
                    checkFooter(at + recordPrefixSize + prefix.length);
                    return result;
                }
                case Opcode::footer:
                    checkFooter(at);
                    return result;
                default:
                    // Attachments, metadata and records of later versions of
                    // the format carry nothing a player needs.
                    break;
            }
        } catch (const FieldError& error) {
            fail(at, name, error.what());
        }
        dataCrc = crc32(prefixBytes + content, dataCrc);
        at += recordPrefixSize + prefix.length;
    }
}

void Reader::checkFooter(std::uint64_t summaryStart) {
    if (fileSize < summaryStart || fileSize - summaryStart < footerRecordSize + magicSize) {
        fail(summaryStart, "footer record", "the file ends before its footer and closing magic");
    }
    const std::uint64_t magicAt = fileSize - magicSize;
    if (readAt(magicAt, magicSize, "magic") != std::string(magic, magicSize)) {
        fail(magicAt, "magic", "the file does not end with the magic of a recording");
    }
    const std::uint64_t footerAt = magicAt - footerRecordSize;
    const Prefix footer = prefixOf(readAt(footerAt, recordPrefixSize, "footer record"), 0);
    if (footer.opcode != static_cast<std::uint8_t>(Opcode::footer) || footer.length != footerRecordSize - recordPrefixSize) {
        fail(footerAt, "footer record", "the record before the closing magic is not a footer");
    }
}

std::optional<Summary> Reader::summary() {
    if (fileSize < dataStart + footerRecordSize + magicSize) {
        return std::nullopt;
    }
    const std::uint64_t magicAt = fileSize - magicSize;
    const std::uint64_t footerAt = magicAt - footerRecordSize;
    if (readAt(magicAt, magicSize, "magic") != std::string(magic, magicSize)) {
        return std::nullopt;
    }
    const std::string footerBytes = readAt(footerAt, footerRecordSize, "footer record");
    const Prefix prefix = prefixOf(footerBytes, 0);
    if (prefix.opcode != static_cast<std::uint8_t>(Opcode::footer) ||
        prefix.length != footerRecordSize - recordPrefixSize) {
        fail(footerAt, "footer record", "the record before the closing magic is not a footer");
    }
    FieldReader footerFields(footerBytes, recordPrefixSize);
    const Footer footer = decodeFooter(footerFields);
    if (footer.summaryStart == 0) {
        return std::nullopt;
    }
    if (footer.summaryStart < dataStart || footer.summaryStart > footerAt) {
        fail(footerAt, "footer record",
             "its summary_start " + std::to_string(footer.summaryStart) + " lies outside the file's sections");
    }
    const std::string section = readAt(footer.summaryStart, footerAt - footer.summaryStart, "summary section");
    if (footer.summaryCrc != 0 &&
        crc32(footerBytes.substr(0, footerRecordSize - 4), crc32(section)) != footer.summaryCrc) {
        fail(footerAt, "footer record", "the summary does not match the CRC the footer carries");
    }
    Summary summary;
    std::size_t at = 0;
    while (at < section.size()) {
        const std::uint64_t offset = footer.summaryStart + at;
        if (section.size() - at < recordPrefixSize) {
            fail(offset, "summary section", "a record is cut off inside its prefix");
        }
        const Prefix record = prefixOf(section, at);
        const std::string name = recordName(record.opcode);
        if (record.length > section.size() - at - recordPrefixSize) {
            fail(offset, name, "the record declares " + std::to_string(record.length) + " bytes, more than the summary holds");
        }
        const std::size_t begin = at + recordPrefixSize;
        const std::size_t end = begin + static_cast<std::size_t>(record.length);
        try {
            FieldReader fields(section, begin, end);
            switch (static_cast<Opcode>(record.opcode)) {
                case Opcode::schema: {
                    Schema schema = decodeSchema(fields);
                    summary.schemas[schema.id] = std::move(schema);
                    break;
                }
                case Opcode::channel: {
                    Channel channel = decodeChannel(fields);
                    summary.channels[channel.id] = std::move(channel);
                    break;
                }
                case Opcode::statistics: summary.statistics = decodeStatistics(fields); break;
                case Opcode::chunkIndex: {
                    ChunkIndex index = decodeChunkIndex(fields);
                    if (index.chunkStartOffset > fileSize || index.chunkLength > fileSize - index.chunkStartOffset) {
                        fail(offset, name, "it points at a chunk beyond the end of the file");
                    }
                    summary.chunkIndexes.push_back(std::move(index));
                    break;
                }
                default: break;
            }
        } catch (const FieldError& error) {
            fail(offset, name, error.what());
        }
        at = end;
    }
    return summary;
}

}  // namespace lumo::mcap
