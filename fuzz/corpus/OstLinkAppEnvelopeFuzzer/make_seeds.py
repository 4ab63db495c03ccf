#!/usr/bin/env python3
"""Writes the seed corpus of OstLinkAppEnvelopeFuzzer into this folder.

    python3 fuzz/corpus/OstLinkAppEnvelopeFuzzer/make_seeds.py

Each seed is one byte that chooses how the stream is cut into pieces, then
the stream: 32-bit big-endian length N, then N bytes (type byte, payload).
Types: 1 device info (OS type byte, UTF-8 name), 2 device status (one byte),
3 command (one frame).
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def envelope(kind, payload=b""):
    return struct.pack(">I", 1 + len(payload)) + bytes([kind]) + payload


def frame(command, status=0, index=0, count=0, rest=b""):
    return struct.pack(">HHHH", command, status, index, count) + rest


HELLO = envelope(1, b"\x01Pixel") + envelope(2, b"\x02")
SEEDS = {
    # Streams that end cleanly.
    "session.bin": (7, HELLO + envelope(3, frame(0x8001)) +
                    envelope(3, frame(0x8011, rest=struct.pack(">I", 64))) +
                    envelope(3, frame(0x8012, 0, 0, 1, struct.pack(">I", 4) + b"DAP3")) +
                    envelope(2, b"\x03")),
    "session_byte_by_byte.bin": (0, HELLO + envelope(3, frame(0x8001))),
    "ios_device.bin": (3, envelope(1, b"\x00") + envelope(2, b"\x01")),
    "empty_command.bin": (5, envelope(3)),
    "no_device.bin": (2, envelope(2, b"\x00")),
    "empty_stream.bin": (1, b""),
    # Every protocol error.
    "length_zero.bin": (4, HELLO + struct.pack(">I", 0)),
    "length_over_limit.bin": (9, struct.pack(">I", 1024 * 1024 + 1) + b"\x03"),
    "length_largest.bin": (11, b"\xff\xff\xff\xff\x03"),
    "unknown_type.bin": (6, envelope(4, b"\x00\x00")),
    "status_two_bytes.bin": (8, envelope(2, b"\x02\x02")),
    "status_empty.bin": (8, envelope(2)),
    "info_without_os.bin": (10, envelope(1)),
    "cut_in_length.bin": (1, HELLO + b"\x00\x00"),
    "cut_in_body.bin": (2, HELLO + envelope(3, frame(0x8001))[:-3]),
}


def main():
    for name, (cut, stream) in SEEDS.items():
        with open(os.path.join(HERE, name), "wb") as out:
            out.write(bytes([cut]) + stream)


if __name__ == "__main__":
    main()
