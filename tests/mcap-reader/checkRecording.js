// Reads a recording with an MCAP reader written elsewhere, decodes every
// message with the schema stored in the file, and checks it against what
// the test published:
//
//   node checkRecording.js FILE --count N [--expect CHANNEL_TOPIC=JSON]...
//
// Checks: the summary's message count equals the messages read and N; every
// channel and schema is protobuf; per channel, sequence numbers run without a
// gap in log-time order and publish times lie near log times; every message
// decodes and, where --expect names its channel, equals the given value.
// Prints one line per channel and exits 1 on the first failed check.
"use strict";

const fs = require("fs/promises");
const { McapIndexedReader } = require("@mcap/core");
const fzstd = require("fzstd");
const protobuf = require("protobufjs");
const descriptor = require("protobufjs/ext/descriptor");

function fail(message) {
  console.error("FAIL " + message);
  process.exit(1);
}

function parseArguments(argv) {
  const options = { file: undefined, count: undefined, expect: new Map() };
  for (let i = 0; i < argv.length; ++i) {
    if (argv[i] === "--count") {
      options.count = BigInt(argv[++i]);
    } else if (argv[i] === "--expect") {
      const text = argv[++i];
      const equals = text.indexOf("=");
      options.expect.set(text.slice(0, equals), JSON.parse(text.slice(equals + 1)));
    } else {
      options.file = argv[i];
    }
  }
  if (options.file === undefined) {
    fail("usage: node checkRecording.js FILE --count N [--expect CHANNEL_TOPIC=JSON]...");
  }
  return options;
}

/// Field names compared without case or underscores, so that the schema's
/// names and the JSON of krin-pub (which keeps them) meet whatever the
/// decoder does to them.
function normalised(value) {
  if (Array.isArray(value)) {
    return value.map(normalised);
  }
  if (value !== null && typeof value === "object") {
    const out = {};
    for (const key of Object.keys(value).sort()) {
      out[key.replace(/_/g, "").toLowerCase()] = normalised(value[key]);
    }
    return out;
  }
  return value;
}

/// True if every field of `expected` is in `actual` with the same value.
function covers(actual, expected) {
  if (expected !== null && typeof expected === "object") {
    if (actual === null || typeof actual !== "object") {
      return false;
    }
    return Object.keys(expected).every((key) => covers(actual[key], expected[key]));
  }
  return actual === expected;
}

async function main() {
  const options = parseArguments(process.argv.slice(2));
  const handle = await fs.open(options.file, "r");
  const readable = {
    size: async () => BigInt((await handle.stat()).size),
    read: async (offset, length) => {
      const buffer = new Uint8Array(Number(length));
      await handle.read(buffer, 0, Number(length), Number(offset));
      return buffer;
    },
  };
  const reader = await McapIndexedReader.Initialize({
    readable,
    decompressHandlers: { zstd: (data, size) => fzstd.decompress(data, new Uint8Array(Number(size))) },
  });
  if (reader.statistics === undefined) {
    fail("the file has no statistics record");
  }

  const decoders = new Map();
  for (const [id, channel] of reader.channelsById) {
    const schema = reader.schemasById.get(channel.schemaId);
    if (schema === undefined || schema.encoding !== "protobuf" || channel.messageEncoding !== "protobuf") {
      fail(`channel ${channel.topic} is not a protobuf channel with a protobuf schema`);
    }
    const root = protobuf.Root.fromDescriptor(descriptor.FileDescriptorSet.decode(schema.data));
    decoders.set(id, root.lookupType(schema.name));
  }

  const perChannel = new Map();
  let total = 0n;
  for await (const message of reader.readMessages({ validateCrcs: true })) {
    ++total;
    const channel = reader.channelsById.get(message.channelId);
    const seen = perChannel.get(message.channelId) ?? { count: 0, last: undefined, lastLogTime: -1n };
    if (seen.last !== undefined && message.sequence !== seen.last + 1) {
      fail(`${channel.topic}: sequence ${message.sequence} follows ${seen.last}`);
    }
    if (message.logTime < seen.lastLogTime) {
      fail(`${channel.topic}: log time goes back at sequence ${message.sequence}`);
    }
    const skew = message.logTime > message.publishTime ? message.logTime - message.publishTime
                                                       : message.publishTime - message.logTime;
    if (skew > 10n * 1000000000n) {
      fail(`${channel.topic}: publish time ${message.publishTime} is far from log time ${message.logTime}`);
    }
    const type = decoders.get(message.channelId);
    const decoded = type.toObject(type.decode(message.data), { enums: String, longs: Number, defaults: true });
    const expected = options.expect.get(channel.topic);
    if (expected !== undefined && !covers(normalised(decoded), normalised(expected))) {
      fail(`${channel.topic}: sample ${message.sequence} is ${JSON.stringify(decoded)}, not ${JSON.stringify(expected)}`);
    }
    seen.count += 1;
    seen.last = message.sequence;
    seen.lastLogTime = message.logTime;
    perChannel.set(message.channelId, seen);
  }

  if (reader.statistics.messageCount !== total) {
    fail(`the statistics count ${reader.statistics.messageCount} messages, the file holds ${total}`);
  }
  if (options.count !== undefined && total !== options.count) {
    fail(`the file holds ${total} messages, not ${options.count}`);
  }
  for (const [id, channel] of reader.channelsById) {
    const counted = reader.statistics.channelMessageCounts.get(id) ?? 0n;
    const seen = perChannel.get(id)?.count ?? 0;
    if (counted !== BigInt(seen)) {
      fail(`${channel.topic}: the statistics count ${counted} messages, the file holds ${seen}`);
    }
    console.log(`${channel.topic} ${reader.schemasById.get(channel.schemaId).name} ${seen}`);
  }
  console.log(`total ${total} in ${reader.chunkIndexes.length} chunks`);
  await handle.close();
}

main().catch((error) => fail(error.stack ?? String(error)));
