#pragma once

#include <functional>
#include <map>
#include <string>

#include <google/protobuf/descriptor.h>
#include "tools/mcap/Reader.h"
#include "tools/play/PlayOptions.h"

namespace lumo::play {

/// A channel of the file that is to be played.
struct PlayedChannel {
    std::uint16_t id = 0;
    /// The channel's topic in the file, such as "/lumo/demo/LumoMode".
    std::string path;
    /// The topic type its schema names, such as "LumoMode".
    std::string topic;
    std::uint64_t messages = 0;
};

/// A recording checked whole before anything is played: every record
/// readable, every chosen channel a protobuf channel of a topic, every one of
/// its messages a payload of that topic. Refusals are `FormatError`s naming
/// the file, the offset and the record.
class Recording {
public:
    /// `wire` is the plug-in's schema, which the recorded ones must match.
    Recording(const PlayOptions& options, const google::protobuf::FileDescriptor& wire);

    const std::map<std::uint16_t, PlayedChannel>& channels() const { return played; }

    /// Hands out the messages of the chosen channels in the order of the
    /// file; stops when `take` returns false.
    void forEachMessage(const std::function<bool(const mcap::Message&, const PlayedChannel&)>& take);

private:
    void check(const google::protobuf::FileDescriptor& wire);

    const PlayOptions& options;
    mcap::Reader reader;
    std::map<std::uint16_t, PlayedChannel> played;
};

}  // namespace lumo::play
