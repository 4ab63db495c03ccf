#!/usr/bin/env python3
"""Writes the seed corpus of MoxProtocolFuzzer into this folder.

    python3 fuzz/corpus/MoxProtocolFuzzer/make_seeds.py

Each seed is one conversation with the phone in the fuzzer's input layout:
a start byte (0 lookup, 1 connect, 2 cancel, 3 carry on), then records of a
2-byte big-endian length and that many frame bytes; length 0xFFFF lets the
command timer expire, 0xFFFE reports the phone application lost, 0xFFFD
with a chunk index and count feeds a chunk of 64 KiB of zeros. One seed,
chunks_past_file_limit, is an answer whose last chunk would grow the result
file past the module's limit.
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


class Action(bytes):
    """Bytes that the fuzzer takes as an action, not as a framed record."""


EXPIRE = Action(b"\xff\xff")
LINK_LOST = Action(b"\xff\xfe")
LARGE_CHUNK_PAYLOAD = 64 * 1024


def header(command, status=0, index=0, count=0):
    return struct.pack(">HHHH", command, status, index, count)


def notice(db_size):
    return header(0x8011) + struct.pack(">I", db_size)


def chunk(index, count, payload, declared=None):
    length = len(payload) if declared is None else declared
    return header(0x8012, 0, index, count) + struct.pack(">I", length) + payload


def record(frame):
    return struct.pack(">H", len(frame)) + frame


def seed(start, *steps):
    out = bytes([start])
    for step in steps:
        out += step if isinstance(step, Action) else record(step)
    return out


# The module's result-file limit.
RESULT_FILE_MAX = 1024 * 1024


def large_chunk(index, count):
    """A chunk of LARGE_CHUNK_PAYLOAD zero bytes, made by the fuzzer."""
    return Action(b"\xff\xfd" + struct.pack(">HH", index, count))


def past_file_limit():
    """Chunks up to the limit exactly, then one more."""
    count = RESULT_FILE_MAX // LARGE_CHUNK_PAYLOAD + 1
    chunks = [large_chunk(i, count) for i in range(count)]
    return seed(0, notice(count * LARGE_CHUNK_PAYLOAD), *chunks)


SEEDS = {
    "whole_lookup": seed(0, header(0x8010), notice(9), chunk(0, 3, b"abc"),
                         chunk(1, 3, b"def"), chunk(2, 3, b"ghi")),
    "single_chunk": seed(0, notice(4), chunk(0, 1, b"DAP3")),
    "connect_answered": seed(1, header(0x8001)),
    "connect_silent": seed(1, EXPIRE),
    "silent_phone": seed(0, EXPIRE, EXPIRE),
    "cancel_answered": seed(2, header(0x8FFF)),
    "status_103": seed(0, header(0x8010, 103)),
    "status_5": seed(0, header(0x8011, 5), EXPIRE),
    "chunk_gap": seed(0, notice(6), chunk(0, 3, b"ab"), chunk(2, 3, b"cd")),
    "chunk_count_zero": seed(0, notice(2), chunk(0, 0, b"xy")),
    "chunk_empty": seed(0, notice(0), chunk(0, 2, b""), chunk(1, 2, b"z")),
    "chunk_declared_short": seed(0, notice(4), chunk(0, 1, b"four", declared=3)),
    "chunk_declared_long": seed(0, notice(4), chunk(0, 1, b"four", declared=400)),
    "chunk_cut": seed(0, notice(4), chunk(0, 1, b"")[:11]),
    "notice_short": seed(0, header(0x8010), notice(9)[:11]),
    "link_lost_mid_transfer": seed(0, notice(6), chunk(0, 2, b"abc"), LINK_LOST,
                                   chunk(1, 2, b"def")),
    "unknown_and_echo": seed(3, header(0x1234), header(0xFFFF), b"\x80", b""),
    "chunks_past_file_limit": past_file_limit(),
}


def main():
    for name, data in SEEDS.items():
        with open(os.path.join(HERE, name + ".bin"), "wb") as out:
            out.write(data)


if __name__ == "__main__":
    main()
