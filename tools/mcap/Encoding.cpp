#include "tools/mcap/Encoding.h"

namespace lumo::mcap {

std::string opcodeName(std::uint8_t opcode) {
    switch (static_cast<Opcode>(opcode)) {
        case Opcode::header: return "header";
        case Opcode::footer: return "footer";
        case Opcode::schema: return "schema";
        case Opcode::channel: return "channel";
        case Opcode::message: return "message";
        case Opcode::chunk: return "chunk";
        case Opcode::messageIndex: return "message index";
        case Opcode::chunkIndex: return "chunk index";
        case Opcode::attachment: return "attachment";
        case Opcode::attachmentIndex: return "attachment index";
        case Opcode::statistics: return "statistics";
        case Opcode::metadata: return "metadata";
        case Opcode::metadataIndex: return "metadata index";
        case Opcode::summaryOffset: return "summary offset";
        case Opcode::dataEnd: return "data end";
    }
    return "unknown (opcode " + std::to_string(opcode) + ")";
}

void FieldWriter::little(std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

void FieldWriter::string(const std::string& value) {
    u32(static_cast<std::uint32_t>(value.size()));
    out += value;
}

std::uint64_t FieldReader::little(int size, const char* field) {
    if (remaining() < static_cast<std::size_t>(size)) {
        throw FieldError(std::string("the content ends inside field ") + field);
    }
    std::uint64_t value = 0;
    for (int i = 0; i < size; ++i) {
        value |= static_cast<std::uint64_t>(static_cast<unsigned char>(content[position + i])) << (8 * i);
    }
    position += size;
    return value;
}

std::string FieldReader::raw(std::uint64_t size, const char* field) {
    if (size > remaining()) {
        throw FieldError(std::string("field ") + field + " declares " + std::to_string(size) + " bytes, but only " +
                         std::to_string(remaining()) + " remain in the record");
    }
    std::string value = content.substr(position, static_cast<std::size_t>(size));
    position += static_cast<std::size_t>(size);
    return value;
}

std::string FieldReader::string(const char* field) { return raw(u32(field), field); }

std::size_t FieldReader::sectionEnd(const char* field) {
    const std::uint32_t size = u32(field);
    if (size > remaining()) {
        throw FieldError(std::string("field ") + field + " declares " + std::to_string(size) + " bytes, but only " +
                         std::to_string(remaining()) + " remain in the record");
    }
    return position + size;
}

std::string record(Opcode opcode, const std::string& content) {
    FieldWriter fields;
    fields.u8(static_cast<std::uint8_t>(opcode));
    fields.u64(content.size());
    fields.raw(content);
    return fields.bytes();
}

namespace {

void writeCountMap(FieldWriter& fields, const std::map<std::uint16_t, std::uint64_t>& map) {
    fields.u32(static_cast<std::uint32_t>(map.size() * (2 + 8)));
    for (const auto& [key, value] : map) {
        fields.u16(key);
        fields.u64(value);
    }
}

std::map<std::uint16_t, std::uint64_t> readCountMap(FieldReader& fields, const char* field) {
    std::map<std::uint16_t, std::uint64_t> map;
    const std::size_t end = fields.sectionEnd(field);
    while (fields.offset() < end) {
        const std::uint16_t key = fields.u16(field);
        map[key] = fields.u64(field);
    }
    if (fields.offset() != end) {
        throw FieldError(std::string("an entry of field ") + field + " runs past the field's length");
    }
    return map;
}

}  // namespace

std::string encode(const Header& header) {
    FieldWriter fields;
    fields.string(header.profile);
    fields.string(header.library);
    return record(Opcode::header, fields.bytes());
}

std::string encode(const Schema& schema) {
    FieldWriter fields;
    fields.u16(schema.id);
    fields.string(schema.name);
    fields.string(schema.encoding);
    fields.string(schema.data);
    return record(Opcode::schema, fields.bytes());
}

std::string encode(const Channel& channel) {
    FieldWriter fields;
    fields.u16(channel.id);
    fields.u16(channel.schemaId);
    fields.string(channel.topic);
    fields.string(channel.messageEncoding);
    FieldWriter metadata;
    for (const auto& [key, value] : channel.metadata) {
        metadata.string(key);
        metadata.string(value);
    }
    fields.string(metadata.bytes());
    return record(Opcode::channel, fields.bytes());
}

std::string encode(const Message& message) {
    FieldWriter fields;
    fields.u16(message.channelId);
    fields.u32(message.sequence);
    fields.u64(message.logTime);
    fields.u64(message.publishTime);
    fields.raw(message.data);
    return record(Opcode::message, fields.bytes());
}

std::string encode(const Chunk& chunk) {
    FieldWriter fields;
    fields.u64(chunk.messageStartTime);
    fields.u64(chunk.messageEndTime);
    fields.u64(chunk.uncompressedSize);
    fields.u32(chunk.uncompressedCrc);
    fields.string(chunk.compression);
    fields.u64(chunk.records.size());
    fields.raw(chunk.records);
    return record(Opcode::chunk, fields.bytes());
}

std::string encode(const MessageIndex& index) {
    FieldWriter fields;
    fields.u16(index.channelId);
    fields.u32(static_cast<std::uint32_t>(index.entries.size() * 16));
    for (const auto& entry : index.entries) {
        fields.u64(entry.logTime);
        fields.u64(entry.offset);
    }
    return record(Opcode::messageIndex, fields.bytes());
}

std::string encode(const ChunkIndex& index) {
    FieldWriter fields;
    fields.u64(index.messageStartTime);
    fields.u64(index.messageEndTime);
    fields.u64(index.chunkStartOffset);
    fields.u64(index.chunkLength);
    writeCountMap(fields, index.messageIndexOffsets);
    fields.u64(index.messageIndexLength);
    fields.string(index.compression);
    fields.u64(index.compressedSize);
    fields.u64(index.uncompressedSize);
    return record(Opcode::chunkIndex, fields.bytes());
}

std::string encode(const Statistics& statistics) {
    FieldWriter fields;
    fields.u64(statistics.messageCount);
    fields.u16(statistics.schemaCount);
    fields.u32(statistics.channelCount);
    fields.u32(statistics.attachmentCount);
    fields.u32(statistics.metadataCount);
    fields.u32(statistics.chunkCount);
    fields.u64(statistics.messageStartTime);
    fields.u64(statistics.messageEndTime);
    writeCountMap(fields, statistics.channelMessageCounts);
    return record(Opcode::statistics, fields.bytes());
}

std::string encode(const SummaryOffset& offset) {
    FieldWriter fields;
    fields.u8(offset.groupOpcode);
    fields.u64(offset.groupStart);
    fields.u64(offset.groupLength);
    return record(Opcode::summaryOffset, fields.bytes());
}

std::string encodeDataEnd(std::uint32_t dataSectionCrc) {
    FieldWriter fields;
    fields.u32(dataSectionCrc);
    return record(Opcode::dataEnd, fields.bytes());
}

std::string encodeFooterWithoutCrc(const Footer& footer) {
    FieldWriter fields;
    fields.u8(static_cast<std::uint8_t>(Opcode::footer));
    fields.u64(8 + 8 + 4);
    fields.u64(footer.summaryStart);
    fields.u64(footer.summaryOffsetStart);
    return fields.bytes();
}

Header decodeHeader(FieldReader& fields) {
    Header header;
    header.profile = fields.string("profile");
    header.library = fields.string("library");
    return header;
}

Schema decodeSchema(FieldReader& fields) {
    Schema schema;
    schema.id = fields.u16("id");
    schema.name = fields.string("name");
    schema.encoding = fields.string("encoding");
    schema.data = fields.string("data");
    return schema;
}

Channel decodeChannel(FieldReader& fields) {
    Channel channel;
    channel.id = fields.u16("id");
    channel.schemaId = fields.u16("schema_id");
    channel.topic = fields.string("topic");
    channel.messageEncoding = fields.string("message_encoding");
    const std::size_t end = fields.sectionEnd("metadata");
    while (fields.offset() < end) {
        std::string key = fields.string("metadata");
        channel.metadata[key] = fields.string("metadata");
    }
    if (fields.offset() != end) {
        throw FieldError("an entry of field metadata runs past the field's length");
    }
    return channel;
}

Message decodeMessage(FieldReader& fields) {
    Message message;
    message.channelId = fields.u16("channel_id");
    message.sequence = fields.u32("sequence");
    message.logTime = fields.u64("log_time");
    message.publishTime = fields.u64("publish_time");
    message.data = fields.rest();
    return message;
}

Chunk decodeChunk(FieldReader& fields) {
    Chunk chunk;
    chunk.messageStartTime = fields.u64("message_start_time");
    chunk.messageEndTime = fields.u64("message_end_time");
    chunk.uncompressedSize = fields.u64("uncompressed_size");
    chunk.uncompressedCrc = fields.u32("uncompressed_crc");
    chunk.compression = fields.string("compression");
    chunk.records = fields.raw(fields.u64("records"), "records");
    return chunk;
}

MessageIndex decodeMessageIndex(FieldReader& fields) {
    MessageIndex index;
    index.channelId = fields.u16("channel_id");
    const std::size_t end = fields.sectionEnd("records");
    while (fields.offset() < end) {
        MessageIndexEntry entry;
        entry.logTime = fields.u64("records");
        entry.offset = fields.u64("records");
        index.entries.push_back(entry);
    }
    if (fields.offset() != end) {
        throw FieldError("an entry of field records runs past the field's length");
    }
    return index;
}

ChunkIndex decodeChunkIndex(FieldReader& fields) {
    ChunkIndex index;
    index.messageStartTime = fields.u64("message_start_time");
    index.messageEndTime = fields.u64("message_end_time");
    index.chunkStartOffset = fields.u64("chunk_start_offset");
    index.chunkLength = fields.u64("chunk_length");
    index.messageIndexOffsets = readCountMap(fields, "message_index_offsets");
    index.messageIndexLength = fields.u64("message_index_length");
    index.compression = fields.string("compression");
    index.compressedSize = fields.u64("compressed_size");
    index.uncompressedSize = fields.u64("uncompressed_size");
    return index;
}

Statistics decodeStatistics(FieldReader& fields) {
    Statistics statistics;
    statistics.messageCount = fields.u64("message_count");
    statistics.schemaCount = fields.u16("schema_count");
    statistics.channelCount = fields.u32("channel_count");
    statistics.attachmentCount = fields.u32("attachment_count");
    statistics.metadataCount = fields.u32("metadata_count");
    statistics.chunkCount = fields.u32("chunk_count");
    statistics.messageStartTime = fields.u64("message_start_time");
    statistics.messageEndTime = fields.u64("message_end_time");
    statistics.channelMessageCounts = readCountMap(fields, "channel_message_counts");
    return statistics;
}

SummaryOffset decodeSummaryOffset(FieldReader& fields) {
    SummaryOffset offset;
    offset.groupOpcode = fields.u8("group_opcode");
    offset.groupStart = fields.u64("group_start");
    offset.groupLength = fields.u64("group_length");
    return offset;
}

Footer decodeFooter(FieldReader& fields) {
    Footer footer;
    footer.summaryStart = fields.u64("summary_start");
    footer.summaryOffsetStart = fields.u64("summary_offset_start");
    footer.summaryCrc = fields.u32("summary_crc");
    return footer;
}

}  // namespace lumo::mcap
