#include "tools/play/Info.h"

#include <cstdio>
#include <ctime>
#include <set>

#include "tools/mcap/Reader.h"

namespace lumo::play {

namespace {

std::string utcTime(std::uint64_t ns) {
    const std::time_t seconds = static_cast<std::time_t>(ns / 1000000000u);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[96];
    std::snprintf(text, sizeof text, "%s.%09uZ (%llu.%09u)", date, static_cast<unsigned>(ns % 1000000000u),
                  static_cast<unsigned long long>(ns / 1000000000u), static_cast<unsigned>(ns % 1000000000u));
    return text;
}

/// What the summary says, or what a scan of an unclosed file finds.
mcap::Summary summaryOf(mcap::Reader& reader, bool recover, std::string& note) {
    if (auto summary = reader.summary(); summary && summary->statistics) {
        return *summary;
    }
    mcap::Summary found;
    found.statistics = mcap::Statistics{};
    auto& statistics = *found.statistics;
    mcap::Visitor visitor;
    visitor.schema = [&](const mcap::Schema& schema, const mcap::Location&) { found.schemas[schema.id] = schema; };
    visitor.channel = [&](const mcap::Channel& channel, const mcap::Location&) {
        found.channels[channel.id] = channel;
    };
    visitor.message = [&](const mcap::Message& message, const mcap::Channel&, const mcap::Location&) {
        if (statistics.messageCount == 0 || message.logTime < statistics.messageStartTime) {
            statistics.messageStartTime = message.logTime;
        }
        statistics.messageEndTime = std::max(statistics.messageEndTime, message.logTime);
        ++statistics.messageCount;
        ++statistics.channelMessageCounts[message.channelId];
    };
    const auto result = reader.scan(visitor, recover);
    statistics.chunkCount = static_cast<std::uint32_t>(result.chunks);
    note = result.unfinishedAt ? "not closed; counted by a scan of its complete records (" + result.unfinishedReason +
                                     " at offset " + std::to_string(*result.unfinishedAt) + ")"
                               : "no summary; counted by a scan";
    return found;
}

}  // namespace

void printInfo(const std::string& file, bool recover, std::ostream& out) {
    mcap::Reader reader(file);
    std::string note;
    const mcap::Summary summary = summaryOf(reader, recover, note);
    const auto& statistics = *summary.statistics;
    const double seconds =
        static_cast<double>(statistics.messageEndTime - statistics.messageStartTime) / 1e9;
    std::set<std::string> compressions;
    for (const auto& index : summary.chunkIndexes) {
        compressions.insert(index.compression.empty() ? "none" : index.compression);
    }
    std::string compression;
    for (const auto& name : compressions) {
        compression += (compression.empty() ? "" : ", ") + name;
    }
    char line[160];
    out << "file:      " << file << " (" << reader.size() << " bytes)\n"
        << "library:   " << reader.header().library << "\n"
        << "profile:   " << reader.header().profile << "\n";
    if (!note.empty()) {
        out << "note:      " << note << "\n";
    }
    out << "messages:  " << statistics.messageCount << "\n";
    out << "chunks:    " << statistics.chunkCount << (compression.empty() ? "" : " (" + compression + ")") << "\n";
    if (statistics.messageCount != 0) {
        std::snprintf(line, sizeof line, "%.3f s", seconds);
        out << "start:     " << utcTime(statistics.messageStartTime) << "\n"
            << "end:       " << utcTime(statistics.messageEndTime) << "\n"
            << "duration:  " << line << "\n";
    }
    out << "channels:\n";
    for (const auto& [id, channel] : summary.channels) {
        const auto counted = statistics.channelMessageCounts.find(id);
        const std::uint64_t count = counted == statistics.channelMessageCounts.end() ? 0 : counted->second;
        const auto schema = summary.schemas.find(channel.schemaId);
        std::snprintf(line, sizeof line, "  (%u) %-40s %8llu msgs (%.1f Hz)", static_cast<unsigned>(id),
                      channel.topic.c_str(), static_cast<unsigned long long>(count),
                      seconds > 0 ? static_cast<double>(count) / seconds : 0.0);
        out << line << " : " << (schema == summary.schemas.end() ? "(no schema)" : schema->second.name) << " ["
            << channel.messageEncoding << "]\n";
    }
    out << "schemas:\n";
    for (const auto& [id, schema] : summary.schemas) {
        out << "  (" << id << ") " << schema.name << " [" << schema.encoding << ", " << schema.data.size()
            << " bytes]\n";
    }
}

}  // namespace lumo::play
