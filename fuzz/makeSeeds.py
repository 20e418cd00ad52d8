#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into corpus/. The seeds are
committed; rerun this only to change them. Samples are the binding tests'
reference samples; headers are written field by field by the wire rules."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))

# Topic order of the package, with one complete sample each (hex).
TOPICS = [
    ("InterfaceControlArgs", "08 09 10 01"),
    ("Dummy", "08 02"),
    ("LumoMode", "08 02 10 08"),
    ("RefPos", "0D 01 00 00 00 15 02 00 00 00 1D 03 00 00 00 25 04 00 00 00"),
    ("CentOpt", "0D 07 00 00 00 15 00 00 00 3F 1D 09 00 00 00"),
    ("CentError", "0D 00 00 80 3F 15 00 00 00 C0 1D 00 00 00 3F 20 01"),
    ("SimCentErrors", "0A 11 0D 00 00 80 3F 15 00 00 80 3F 1D 00 00 80 3F 20 00 12 11 0D 00 00 00 40 15 00 00 00 40 1D 00 00 "
     "00 40 20 00 1A 11 0D 00 00 40 40 15 00 00 40 40 1D 00 00 40 40 20 00 22 11 0D 00 00 80 40 15 00 00 80 "
     "40 1D 00 00 80 40 20 01 32 11 0D 00 00 80 3E 15 00 00 00 3F 1D 00 00 40 3F 20 01"),
    ("FieldStablizationTopicIn", "08 01 10 00 19 00 00 00 00 00 00 F8 3F 25 2A 00 00 00 2A 08 00 00 80 3F 00 00 00 40 6D 00 00 00 3F 75 "
     "00 00 80 3F 7D 00 00 C0 3F 85 01 00 00 00 40 8A 01 04 00 00 40 40 AD 01 00 00 80 3E"),
    ("FieldStablizationTopicOut", "08 00 10 01 19 00 00 00 00 00 00 04 40 25 07 00 00 00 8A 01 04 00 00 80 BF 95 01 06 00 00 00 99 01 00 "
     "00 00 00 00 00 00 40 A5 01 00 00 80 3F AD 01 00 00 00 40 B5 01 00 00 40 40 BD 01 00 00 80 40 C5 01 00 "
     "00 A0 40 CD 01 00 00 C0 40"),
    ("HokuTopicIn", "08 01 10 01 19 00 00 00 00 00 00 08 40 25 01 00 00 00 32 08 00 00 00 3F 00 00 80 3E"),
    ("HokuTopicOut", "08 01 10 00 19 00 00 00 00 00 00 10 40 25 02 00 00 00 2A 04 00 00 80 3F 35 01 00 00 00 39 00 00 00 00 "
     "00 00 08 40 45 00 00 00 00 4D 00 00 00 00 55 00 00 00 00 5D 00 00 00 00 65 00 00 00 00 6D 00 00 80 BF"),
]
FIELD_STABILIZATION_OUT_TYPE_HASH = 0xF8D457E0
SUBSCRIBER_TOPIC_PATH = "/fuzz/receive/fieldStabilizationOut"


def unhex(text):
    return bytes(int(h, 16) for h in text.split())


def header(type_hash, timestamp=1.7e9, sequence=0, trace=None):
    out = b""
    if trace is not None:
        out += b"\x0a" + bytes([len(trace)]) + trace
    out += b"\x11" + struct.pack("<d", timestamp)
    out += b"\x1d" + struct.pack("<i", 0)
    out += b"\x25" + struct.pack("<I", sequence)
    out += b"\x2d" + struct.pack("<I", type_hash)
    return out


def topic_frame(path):
    h = 2166136261
    for b in path.encode():
        h = ((h ^ b) * 16777619) & 0xFFFFFFFF
    return struct.pack(">I", h)


def write(target, name, data):
    directory = os.path.join(HERE, "corpus", target)
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, name), "wb") as f:
        f.write(data)


def frames(control, parts):
    """Control byte, then each frame but the last with a length byte, then the last."""
    out = bytes([control])
    for part in parts[:-1]:
        assert len(part) < 256
        out += bytes([len(part)]) + part
    return out + parts[-1]


for index, (name, sample) in enumerate(TOPICS):
    write("fromByteArray_fuzz", f"{index:02d}-{name}", bytes([index]) + unhex(sample))
    write("fromByteArray_fuzz", f"{index:02d}-{name}-empty", bytes([index]))

write("krinHeader_fuzz", "plain", header(0x67C91967, sequence=42))
write("krinHeader_fuzz", "traced", header(0x67C91967, trace=b"00-" + b"0" * 32 + b"-" + b"0" * 16 + b"-01"))
write("krinHeader_fuzz", "empty", b"")

uris = [
    (3, "krin.ps://127.0.0.1:5555/topic"),
    (3, "krin.ps://*:5555/topic"),
    (2, "krin.ps://*:5555/topic"),
    (2, "krin.ps://[::1]:5555/a/b"),
    (2, "KRIN.PS://host:1/"),
    (0, "krin.ps://host:65536/t"),
    (2, "krin.ps://host:0/t"),
    (2, "krin.ps://host:99999999999999999999/t"),
    (2, "krin.ps://host/t"),
    (2, "krin.ps:///t"),
    (2, "tcp://host:1/t"),
    (2, "krin.ps://user@host:7/t?q=1#f"),
    (2, "not a uri"),
    (2, ""),
]
for i, (flags, uri) in enumerate(uris):
    write("uri_fuzz", f"uri-{i:02d}", bytes([flags]) + uri.encode())

sample = unhex(TOPICS[8][1])
good_header = header(FIELD_STABILIZATION_OUT_TYPE_HASH)
own_frame = topic_frame(SUBSCRIBER_TOPIC_PATH)
# Three frames, the first replaced by the subscriber's topic frame (control bit 3).
write("subscriberReceive_fuzz", "good", frames(0x08 | 2, [b"", good_header, sample]))
write("subscriberReceive_fuzz", "good-own-frame", frames(2, [own_frame, good_header, sample]))
write("subscriberReceive_fuzz", "one-frame", frames(0x08 | 0, [b""]))
write("subscriberReceive_fuzz", "two-frames", frames(0x08 | 1, [b"", good_header]))
write("subscriberReceive_fuzz", "four-frames", frames(0x08 | 3, [b"", good_header, sample, b"surplus"]))
write("subscriberReceive_fuzz", "five-frames", frames(0x08 | 4, [b"", good_header, sample, b"more", b"surplus"]))
write("subscriberReceive_fuzz", "foreign-topic", frames(2, [b"XXXX", good_header, sample]))
write("subscriberReceive_fuzz", "bad-header", frames(0x08 | 2, [b"", b"\xff\xff\xff\xff", sample]))
write("subscriberReceive_fuzz", "foreign-type", frames(0x08 | 2, [b"", header(0x67C91967), sample]))
write("subscriberReceive_fuzz", "empty-payload", frames(0x08 | 2, [b"", good_header, b""]))
