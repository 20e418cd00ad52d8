#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/mcap/Records.h"

namespace lumo::mcap {

/// A file that is not a readable recording. `what()` names the file, the
/// offset and the record at fault, and why.
class FormatError : public std::runtime_error {
public:
    FormatError(const std::string& file, std::uint64_t offset, const std::string& record, const std::string& reason);
    const std::string& file() const { return fileName; }
    std::uint64_t offset() const { return at; }
    const std::string& record() const { return recordName; }
    const std::string& reason() const { return why; }

private:
    std::string fileName;
    std::uint64_t at;
    std::string recordName;
    std::string why;
};

/// The summary at the end of a closed file: what a reader learns without
/// reading the messages.
struct Summary {
    std::map<std::uint16_t, Schema> schemas;
    std::map<std::uint16_t, Channel> channels;
    std::optional<Statistics> statistics;
    std::vector<ChunkIndex> chunkIndexes;
};

/// Where a record lies: its offset in the file, and for a record inside a
/// chunk the chunk's offset too.
struct Location {
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> chunkOffset;
};

/// What a scan hands out, record by record, in the order of the file.
struct Visitor {
    std::function<void(const Schema&, const Location&)> schema;
    std::function<void(const Channel&, const Location&)> channel;
    std::function<void(const Message&, const Channel&, const Location&)> message;
};

struct ScanResult {
    std::uint64_t messages = 0;
    std::uint64_t chunks = 0;
    /// Set when the file ends before its footer: where, and why.
    std::optional<std::uint64_t> unfinishedAt;
    std::string unfinishedReason;
};

/// Reads a recording, checking every length against the file before it
/// reads or allocates, every CRC the file carries, and the references of
/// messages to channels and of channels to schemas.
class Reader {
public:
    /// Opens `path` and checks its magic and header.
    explicit Reader(const std::string& path);

    const std::string& path() const { return filePath; }
    std::uint64_t size() const { return fileSize; }
    const Header& header() const { return fileHeader; }

    /// The summary, read from the end of the file without a scan; empty if
    /// the file has no footer (a recording that was not closed) or a footer
    /// without a summary.
    std::optional<Summary> summary();

    /// Reads the data section from the start. A file that ends before its
    /// footer is refused, unless `acceptUnfinished`: then the scan hands out
    /// every complete record and says where the file stopped.
    ScanResult scan(const Visitor& visitor, bool acceptUnfinished = false);

private:
    std::string readAt(std::uint64_t offset, std::uint64_t size, const std::string& record);
    [[noreturn]] void fail(std::uint64_t offset, const std::string& record, const std::string& reason) const;
    void scanChunk(const std::string& content, std::uint64_t chunkOffset, const Visitor& visitor, ScanResult& result);
    void takeSchema(const Schema& schema, const Location& where, const Visitor& visitor);
    void takeChannel(const Channel& channel, const Location& where, const Visitor& visitor);
    /// `record` and `subject` name the message in a refusal.
    void takeMessage(const Message& message, const Location& where, const std::string& record,
                     const std::string& subject, const Visitor& visitor, ScanResult& result);
    void checkFooter(std::uint64_t footerOffset);

    std::string filePath;
    std::ifstream in;
    std::uint64_t fileSize = 0;
    Header fileHeader;
    std::uint64_t dataStart = 0;
    std::map<std::uint16_t, Schema> schemas;
    std::map<std::uint16_t, Channel> channels;
};

}  // namespace lumo::mcap
