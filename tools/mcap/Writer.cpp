#include "tools/mcap/Writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/mcap/Compression.h"
#include "tools/mcap/Crc32.h"
#include "tools/mcap/Encoding.h"

namespace lumo::mcap {

Writer::Writer(const std::string& path, WriterOptions options) : filePath(path), options(std::move(options)) {
    if (!knownCompression(this->options.compression)) {
        throw std::invalid_argument("unknown compression '" + this->options.compression + "'");
    }
    fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        throw WriteError("cannot create " + path + ": " + std::strerror(errno));
    }
    append(std::string(magic, magicSize));
    append(encode(Header{this->options.profile, this->options.library}));
}

Writer::~Writer() {
    if (!closed) {
        try {
            close();
        } catch (const std::exception&) {
            // The owner learns of a failed write from write() or close(); here
            // only the descriptor is left to release.
        }
    }
    if (fd >= 0) {
        ::close(fd);
    }
}

void Writer::append(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            throw WriteError("cannot write " + filePath + " at offset " + std::to_string(offset + done) + ": " +
                             std::strerror(n < 0 ? errno : ENOSPC));
        }
        done += static_cast<std::size_t>(n);
    }
    dataCrc = crc32(bytes, dataCrc);
    offset += bytes.size();
}

std::uint16_t Writer::addSchema(const std::string& name, const std::string& encoding, const std::string& data) {
    Schema schema{static_cast<std::uint16_t>(schemas.size() + 1), name, encoding, data};
    append(encode(schema));
    schemas.push_back(std::move(schema));
    return schemas.back().id;
}

std::uint16_t Writer::addChannel(std::uint16_t schemaId, const std::string& topic, const std::string& messageEncoding,
                                 const std::map<std::string, std::string>& metadata) {
    Channel channel{static_cast<std::uint16_t>(channels.size()), schemaId, topic, messageEncoding, metadata};
    append(encode(channel));
    channels.push_back(std::move(channel));
    statistics.channelMessageCounts[channels.back().id] = 0;
    return channels.back().id;
}

void Writer::write(const Message& message) {
    if (message.channelId >= channels.size()) {
        throw std::invalid_argument("message of channel " + std::to_string(message.channelId) +
                                    ", which was not added");
    }
    if (chunkMessages == 0) {
        chunkStart = message.logTime;
        chunkEnd = message.logTime;
    }
    chunkStart = std::min(chunkStart, message.logTime);
    chunkEnd = std::max(chunkEnd, message.logTime);
    auto& index = chunkIndexEntries[message.channelId];
    index.channelId = message.channelId;
    index.entries.push_back({message.logTime, chunkRecords.size()});
    chunkRecords += encode(message);
    ++chunkMessages;

    if (statistics.messageCount == 0) {
        statistics.messageStartTime = message.logTime;
        statistics.messageEndTime = message.logTime;
    }
    ++statistics.messageCount;
    ++statistics.channelMessageCounts[message.channelId];
    statistics.messageStartTime = std::min(statistics.messageStartTime, message.logTime);
    statistics.messageEndTime = std::max(statistics.messageEndTime, message.logTime);

    if (chunkRecords.size() >= options.chunkSize) {
        flushChunk();
    }
}

void Writer::flushChunk() {
    if (chunkMessages == 0) {
        return;
    }
    Chunk chunk;
    chunk.messageStartTime = chunkStart;
    chunk.messageEndTime = chunkEnd;
    chunk.uncompressedSize = chunkRecords.size();
    chunk.uncompressedCrc = crc32(chunkRecords);
    chunk.compression = options.compression;
    chunk.records = compress(options.compression, chunkRecords);

    ChunkIndex index;
    index.messageStartTime = chunkStart;
    index.messageEndTime = chunkEnd;
    index.chunkStartOffset = offset;
    index.compression = chunk.compression;
    index.compressedSize = chunk.records.size();
    index.uncompressedSize = chunk.uncompressedSize;

    // The chunk and its message indexes go out in one write, so that a
    // recording cut short ends at a chunk's edge more often than not.
    std::string bytes = encode(chunk);
    index.chunkLength = bytes.size();
    for (const auto& [channelId, entries] : chunkIndexEntries) {
        index.messageIndexOffsets[channelId] = offset + bytes.size();
        bytes += encode(entries);
    }
    index.messageIndexLength = offset + bytes.size() - index.chunkStartOffset - index.chunkLength;

    chunkRecords.clear();
    chunkMessages = 0;
    chunkIndexEntries.clear();
    append(bytes);
    chunkIndexes.push_back(std::move(index));
    ++statistics.chunkCount;
}

void Writer::writeSummary() {
    append(encodeDataEnd(dataCrc));
    const std::uint64_t summaryStart = offset;
    std::uint32_t summaryCrc = 0;
    std::vector<SummaryOffset> groups;
    auto group = [&](Opcode opcode, const std::string& bytes) {
        if (bytes.empty()) {
            return;
        }
        groups.push_back({static_cast<std::uint8_t>(opcode), offset, bytes.size()});
        summaryCrc = crc32(bytes, summaryCrc);
        append(bytes);
    };
    std::string bytes;
    for (const auto& schema : schemas) {
        bytes += encode(schema);
    }
    group(Opcode::schema, bytes);
    bytes.clear();
    for (const auto& channel : channels) {
        bytes += encode(channel);
    }
    group(Opcode::channel, bytes);
    statistics.schemaCount = static_cast<std::uint16_t>(schemas.size());
    statistics.channelCount = static_cast<std::uint32_t>(channels.size());
    group(Opcode::statistics, encode(statistics));
    bytes.clear();
    for (const auto& index : chunkIndexes) {
        bytes += encode(index);
    }
    group(Opcode::chunkIndex, bytes);

    const std::uint64_t summaryOffsetStart = offset;
    bytes.clear();
    for (const auto& entry : groups) {
        bytes += encode(entry);
    }
    summaryCrc = crc32(bytes, summaryCrc);
    append(bytes);

    const std::string footer = encodeFooterWithoutCrc(Footer{summaryStart, summaryOffsetStart, 0});
    summaryCrc = crc32(footer, summaryCrc);
    FieldWriter crc;
    crc.u32(summaryCrc);
    append(footer + crc.bytes() + std::string(magic, magicSize));
}

void Writer::close() {
    if (closed) {
        return;
    }
    closed = true;
    flushChunk();
    writeSummary();
    const int descriptor = fd;
    fd = -1;
    if (::close(descriptor) != 0) {
        throw WriteError("cannot close " + filePath + ": " + std::strerror(errno));
    }
}

}  // namespace lumo::mcap
