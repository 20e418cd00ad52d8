// The bytes of single records, pinned, and whole files written by the writer
// read back by the reader: every message with its times and sequence, the
// summary with its counts, in each compression.
#include <gtest/gtest.h>

#include "McapTestFiles.h"
#include "tools/mcap/Compression.h"
#include "tools/mcap/Crc32.h"
#include "tools/mcap/Encoding.h"
#include "tools/mcap/Reader.h"
#include "tools/mcap/Writer.h"

namespace {

using namespace lumo::mcap;
using lumo::test::ScratchFile;

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int value : values) {
        out.push_back(static_cast<char>(value));
    }
    return out;
}

TEST(McapFormat, HeaderRecordIsOpcodeLengthAndTwoPrefixedStrings) {
    const std::string expected = bytes({0x01, 10, 0, 0, 0, 0, 0, 0, 0,  // opcode, content length
                                        1, 0, 0, 0, 'p',                // profile
                                        1, 0, 0, 0, 'l'});              // library
    EXPECT_EQ(encode(Header{"p", "l"}), expected);
}

TEST(McapFormat, MessageRecordCarriesChannelSequenceTimesAndTheRawPayload) {
    Message message{0x0102, 7, 0x1122334455667788ull, 9, "ab"};
    const std::string expected = bytes({0x05, 24, 0, 0, 0, 0, 0, 0, 0,             // opcode, length
                                        0x02, 0x01,                                // channel
                                        7, 0, 0, 0,                                // sequence
                                        0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11,  // log time
                                        9, 0, 0, 0, 0, 0, 0, 0,                    // publish time
                                        'a', 'b'});
    EXPECT_EQ(encode(message), expected);
}

TEST(McapFormat, ChannelMetadataIsAMapPrefixedByItsByteLength) {
    Channel channel{3, 1, "/t", "protobuf", {{"k", "v"}}};
    const std::string expected = bytes({0x04, 36, 0, 0, 0, 0, 0, 0, 0,
                                        3, 0, 1, 0,
                                        2, 0, 0, 0, '/', 't',
                                        8, 0, 0, 0, 'p', 'r', 'o', 't', 'o', 'b', 'u', 'f',
                                        10, 0, 0, 0, 1, 0, 0, 0, 'k', 1, 0, 0, 0, 'v'});
    EXPECT_EQ(encode(channel), expected);
}

TEST(McapFormat, CrcIsTheCrc32OfZlib) {
    EXPECT_EQ(crc32(std::string("123456789")), 0xCBF43926u);
    EXPECT_EQ(crc32(std::string("56789"), crc32(std::string("1234"))), 0xCBF43926u);
}

TEST(McapFormat, EveryCompressionRestoresTheRecordsExactly) {
    std::string records;
    for (int i = 0; i < 5000; ++i) {
        records += std::to_string(i * 7919 % 1000);
    }
    for (const std::string compression : {"", "zstd", "lz4"}) {
        const std::string packed = compress(compression, records);
        EXPECT_EQ(decompress(compression, packed, records.size()), records) << compression;
        EXPECT_THROW(decompress(compression, packed, records.size() + 1), CompressionError) << compression;
    }
}

struct Recorded {
    std::vector<Message> messages;
    std::vector<std::string> topics;
};

Recorded readAll(const std::string& path) {
    Recorded recorded;
    Reader reader(path);
    Visitor visitor;
    visitor.message = [&](const Message& message, const Channel& channel, const Location&) {
        recorded.messages.push_back(message);
        recorded.topics.push_back(channel.topic);
    };
    reader.scan(visitor);
    return recorded;
}

void writeSample(Writer& writer, std::uint16_t channel, std::uint32_t sequence) {
    writer.write(Message{channel, sequence, 1000 + sequence, 500 + sequence, "payload " + std::to_string(sequence)});
}

TEST(McapFormat, WriterAndReaderRoundTripMessagesInOrderInEachCompression) {
    for (const std::string compression : {"", "zstd", "lz4"}) {
        ScratchFile file("roundtrip");
        {
            WriterOptions options;
            options.compression = compression;
            options.chunkSize = 200;  // several chunks
            Writer writer(file.path(), options);
            const auto schema = writer.addSchema("pkg.A", "protobuf", "descriptor");
            const auto a = writer.addChannel(schema, "/a", "protobuf");
            const auto b = writer.addChannel(schema, "/b", "protobuf", {{"type", "A"}});
            for (std::uint32_t i = 0; i < 40; ++i) {
                writeSample(writer, i % 3 == 0 ? b : a, i);
            }
            writer.close();
        }
        const Recorded recorded = readAll(file.path());
        ASSERT_EQ(recorded.messages.size(), 40u) << compression;
        for (std::uint32_t i = 0; i < 40; ++i) {
            EXPECT_EQ(recorded.messages[i].sequence, i);
            EXPECT_EQ(recorded.messages[i].logTime, 1000 + i);
            EXPECT_EQ(recorded.messages[i].publishTime, 500 + i);
            EXPECT_EQ(recorded.messages[i].data, "payload " + std::to_string(i));
            EXPECT_EQ(recorded.topics[i], i % 3 == 0 ? "/b" : "/a");
        }
    }
}

TEST(McapFormat, SummaryCountsMessagesPerChannelAndIndexesEveryChunkWithoutAScan) {
    ScratchFile file("summary");
    {
        WriterOptions options;
        options.chunkSize = 100;
        Writer writer(file.path(), options);
        const auto schema = writer.addSchema("pkg.A", "protobuf", "descriptor");
        const auto a = writer.addChannel(schema, "/a", "protobuf");
        const auto b = writer.addChannel(schema, "/b", "protobuf");
        for (std::uint32_t i = 0; i < 10; ++i) {
            writeSample(writer, i < 7 ? a : b, i);
        }
        writer.close();
    }
    Reader reader(file.path());
    const auto summary = reader.summary();
    ASSERT_TRUE(summary.has_value());
    ASSERT_TRUE(summary->statistics.has_value());
    EXPECT_EQ(summary->statistics->messageCount, 10u);
    EXPECT_EQ(summary->statistics->channelMessageCounts.at(0), 7u);
    EXPECT_EQ(summary->statistics->channelMessageCounts.at(1), 3u);
    EXPECT_EQ(summary->statistics->messageStartTime, 1000u);
    EXPECT_EQ(summary->statistics->messageEndTime, 1009u);
    EXPECT_EQ(summary->schemas.at(1).name, "pkg.A");
    EXPECT_EQ(summary->channels.at(1).topic, "/b");
    EXPECT_EQ(summary->chunkIndexes.size(), summary->statistics->chunkCount);
    EXPECT_GT(summary->chunkIndexes.size(), 1u);

    // Each chunk index points at a chunk record and at message index records.
    const std::string bytes = file.bytes();
    for (const auto& index : summary->chunkIndexes) {
        EXPECT_EQ(bytes[index.chunkStartOffset], static_cast<char>(Opcode::chunk));
        for (const auto& [channel, offset] : index.messageIndexOffsets) {
            EXPECT_EQ(bytes[offset], static_cast<char>(Opcode::messageIndex)) << "channel " << channel;
        }
    }
}

TEST(McapFormat, MessageIndexOffsetsPointAtTheirMessagesInTheUncompressedChunk) {
    ScratchFile file("index");
    {
        WriterOptions options;
        options.compression = "";
        Writer writer(file.path(), options);
        const auto schema = writer.addSchema("pkg.A", "protobuf", "descriptor");
        const auto a = writer.addChannel(schema, "/a", "protobuf");
        for (std::uint32_t i = 0; i < 3; ++i) {
            writeSample(writer, a, i);
        }
        writer.close();
    }
    Reader reader(file.path());
    const auto summary = reader.summary();
    ASSERT_TRUE(summary.has_value());
    ASSERT_EQ(summary->chunkIndexes.size(), 1u);
    const auto& chunkIndex = summary->chunkIndexes.front();
    const std::string bytes = file.bytes();
    FieldReader chunkFields(bytes, chunkIndex.chunkStartOffset + recordPrefixSize,
                            chunkIndex.chunkStartOffset + chunkIndex.chunkLength);
    const Chunk chunk = decodeChunk(chunkFields);
    const auto indexAt = chunkIndex.messageIndexOffsets.at(0);
    FieldReader indexFields(bytes, indexAt + recordPrefixSize);
    const MessageIndex index = decodeMessageIndex(indexFields);
    ASSERT_EQ(index.entries.size(), 3u);
    for (std::uint32_t i = 0; i < 3; ++i) {
        FieldReader messageFields(chunk.records, index.entries[i].offset + recordPrefixSize);
        EXPECT_EQ(decodeMessage(messageFields).sequence, i);
        EXPECT_EQ(index.entries[i].logTime, 1000 + i);
    }
}

TEST(McapFormat, WriterThatCannotCreateItsFileSaysWhichAndWhy) {
    try {
        Writer writer("/nonexistent-directory/recording.mcap");
        FAIL() << "the writer opened a file in a missing directory";
    } catch (const WriteError& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent-directory/recording.mcap"), std::string::npos);
        EXPECT_NE(std::string(error.what()).find("No such file or directory"), std::string::npos);
    }
}

TEST(McapFormat, WriterOnAFullDiskSaysSo) {
    try {
        Writer writer("/dev/full");
        FAIL() << "writing to a full device succeeded";
    } catch (const WriteError& error) {
        EXPECT_NE(std::string(error.what()).find("No space left on device"), std::string::npos) << error.what();
    }
}

}  // namespace
