// The reader's refusals: a file cut short, a corrupt byte, a foreign file, a
// reference to a channel nobody defined; each names the file, the offset and
// the record. And a recording that was never closed still gives up every
// chunk it finished when asked to.
#include <gtest/gtest.h>

#include "McapTestFiles.h"
#include "tools/mcap/Encoding.h"
#include "tools/mcap/Reader.h"
#include "tools/mcap/Writer.h"

namespace {

using namespace lumo::mcap;
using lumo::test::ScratchFile;

/// A closed recording of `count` messages on one channel, several chunks.
void writeRecording(const std::string& path, std::uint32_t count, const std::string& compression = "zstd") {
    WriterOptions options;
    options.compression = compression;
    options.chunkSize = 256;
    Writer writer(path, options);
    const auto schema = writer.addSchema("pkg.A", "protobuf", "descriptor");
    const auto channel = writer.addChannel(schema, "/a", "protobuf");
    for (std::uint32_t i = 0; i < count; ++i) {
        writer.write(Message{channel, i, 1000 + i, 1000 + i, "sample number " + std::to_string(i)});
    }
    writer.close();
}

std::uint64_t countMessages(const std::string& path, bool acceptUnfinished, ScanResult* result = nullptr) {
    Reader reader(path);
    std::uint64_t count = 0;
    Visitor visitor;
    visitor.message = [&](const Message& message, const Channel&, const Location&) {
        EXPECT_EQ(message.sequence, count);
        ++count;
    };
    const ScanResult scanned = reader.scan(visitor, acceptUnfinished);
    if (result != nullptr) {
        *result = scanned;
    }
    return count;
}

FormatError refusalOf(const std::string& path) {
    try {
        countMessages(path, false);
    } catch (const FormatError& error) {
        return error;
    }
    ADD_FAILURE() << path << " was read without complaint";
    return FormatError(path, 0, "", "");
}

TEST(McapReader, FileCutInsideAChunkIsRefusedNamingFileOffsetAndRecord) {
    ScratchFile file("cut");
    writeRecording(file.path(), 50);
    Reader whole(file.path());
    const auto summary = whole.summary();
    ASSERT_TRUE(summary.has_value());
    const auto& second = summary->chunkIndexes.at(1);
    file.overwrite(file.bytes().substr(0, second.chunkStartOffset + second.chunkLength / 2));

    const FormatError error = refusalOf(file.path());
    EXPECT_EQ(error.file(), file.path());
    EXPECT_EQ(error.offset(), second.chunkStartOffset);
    EXPECT_EQ(error.record(), "chunk record");
    EXPECT_NE(std::string(error.what()).find(file.path() + ": offset " + std::to_string(second.chunkStartOffset)),
              std::string::npos)
        << error.what();
}

TEST(McapReader, UnclosedRecordingGivesUpItsCompleteChunksWhenAskedTo) {
    ScratchFile file("unclosed");
    writeRecording(file.path(), 50);
    Reader whole(file.path());
    const auto summary = whole.summary();
    ASSERT_TRUE(summary.has_value());
    const auto& third = summary->chunkIndexes.at(2);
    // What a killed recorder leaves: everything up to a chunk in the middle.
    file.overwrite(file.bytes().substr(0, third.chunkStartOffset + third.chunkLength / 2));

    ScanResult result;
    const std::uint64_t read = countMessages(file.path(), true, &result);
    EXPECT_GT(read, 0u);
    EXPECT_LT(read, 50u);
    EXPECT_EQ(result.chunks, 2u);
    ASSERT_TRUE(result.unfinishedAt.has_value());
    EXPECT_EQ(*result.unfinishedAt, third.chunkStartOffset);
    EXPECT_FALSE(Reader(file.path()).summary().has_value());
}

TEST(McapReader, CorruptByteInAChunkIsCaughtByItsCrc) {
    ScratchFile file("corrupt");
    writeRecording(file.path(), 20, "");
    Reader whole(file.path());
    const auto chunk = whole.summary()->chunkIndexes.at(0);
    std::string bytes = file.bytes();
    bytes[chunk.chunkStartOffset + chunk.chunkLength - 3] ^= 0x40;  // inside the last message's payload
    file.overwrite(bytes);

    const FormatError error = refusalOf(file.path());
    EXPECT_EQ(error.offset(), chunk.chunkStartOffset);
    EXPECT_EQ(error.record(), "chunk record");
    EXPECT_NE(error.reason().find("CRC"), std::string::npos) << error.what();
}

TEST(McapReader, CorruptCompressedChunkIsRefusedWithItsOffset) {
    ScratchFile file("badzstd");
    writeRecording(file.path(), 20, "zstd");
    Reader whole(file.path());
    const auto chunk = whole.summary()->chunkIndexes.at(0);
    std::string bytes = file.bytes();
    const std::uint64_t middle = chunk.chunkStartOffset + chunk.chunkLength - chunk.compressedSize / 2;
    for (std::uint64_t i = middle; i < middle + 8; ++i) {
        bytes[i] = static_cast<char>(0xFF);
    }
    file.overwrite(bytes);
    const FormatError error = refusalOf(file.path());
    EXPECT_EQ(error.offset(), chunk.chunkStartOffset);
    EXPECT_EQ(error.record(), "chunk record");
}

TEST(McapReader, RecordLengthBeyondTheFileIsRefusedBeforeAnythingIsAllocated) {
    ScratchFile file("length");
    writeRecording(file.path(), 5);
    std::string bytes = file.bytes();
    // The schema record follows the header; give it a length of 2^62.
    Reader whole(file.path());
    const std::size_t schemaAt = magicSize + recordPrefixSize + encode(whole.header()).size() - recordPrefixSize;
    ASSERT_EQ(bytes[schemaAt], static_cast<char>(Opcode::schema));
    bytes[schemaAt + 8] = 0x40;
    file.overwrite(bytes);
    const FormatError error = refusalOf(file.path());
    EXPECT_EQ(error.offset(), schemaAt);
    EXPECT_EQ(error.record(), "schema record");
    EXPECT_NE(error.reason().find("the file ends after"), std::string::npos) << error.what();
}

TEST(McapReader, ForeignFileIsRefusedAtItsFirstByte) {
    ScratchFile file("foreign");
    file.overwrite("PK\x03\x04 this is an archive, not a recording");
    try {
        Reader reader(file.path());
        FAIL() << "a foreign file was opened";
    } catch (const FormatError& error) {
        EXPECT_EQ(error.offset(), 0u);
        EXPECT_EQ(error.record(), "magic");
    }
}

TEST(McapReader, MessageOfAnUndefinedChannelIsRefused) {
    ScratchFile file("nochannel");
    std::string bytes(magic, magicSize);
    bytes += encode(Header{"", "test"});
    const std::size_t messageAt = bytes.size();
    bytes += encode(Message{4, 0, 1, 1, "x"});
    file.overwrite(bytes);
    const FormatError error = refusalOf(file.path());
    EXPECT_EQ(error.offset(), messageAt);
    EXPECT_EQ(error.record(), "message record");
    EXPECT_NE(error.reason().find("channel 4"), std::string::npos) << error.what();
}

TEST(McapReader, EveryTruncationOfASmallFileIsRefusedOrReadUpToItsCut) {
    ScratchFile file("everycut");
    writeRecording(file.path(), 12, "lz4");
    const std::string bytes = file.bytes();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        file.overwrite(bytes.substr(0, size));
        try {
            Reader reader(file.path());
            reader.summary();
            std::uint64_t count = 0;
            Visitor visitor;
            visitor.message = [&](const Message&, const Channel&, const Location&) { ++count; };
            reader.scan(visitor, true);
            EXPECT_LE(count, 12u);
        } catch (const FormatError& error) {
            EXPECT_EQ(error.file(), file.path());
        }
    }
}

}  // namespace
