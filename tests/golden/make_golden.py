#!/usr/bin/env python3
"""Writes one file for each message of docs/wire-protocol.md into the directory given.

The part of a file's name before the first "-" says who reads it: control, marco, or a stream's kind (wave, spectrum,
sensor). The values are those that tst_golden.cpp expects.
"""
import pathlib
import struct
import sys

from wire import (chunk, collect_chunk, control, data, device, key, marco, network, number_tag, status, stream,
                  tag_list, text, trigger_body, trigger_record, xxh64)

SECOND = 1700000000
NETWORK = network(0x7F4D0001, 0xFF000000, 0x7F000001, 1, bytes([2, 0, 0x5E, 0x10, 0x20, 0x30]))
ALL_TAGS = [number_tag(k, 1000 + k) for k in range(22)]
ALL_TAGS[1] = number_tag(1, -5)
ALL_TAGS[3] = number_tag(3, -180)


def control_messages():
    yield "enquire-request", control("E")
    yield "enquire-reply", control("E", struct.pack(">BHHBBhhHIi", 7, 1234, 0, 1, 87, -1705, -25, 415, 512000, SECOND)
                                   + NETWORK + text("Model X") + text("1.2.3") + text("release \u00b5"))
    yield "time-read", control("A", struct.pack(">i", -1))
    yield "time-reply", control("A", struct.pack(">i", SECOND))
    yield "setup-write", control("D", struct.pack(">HH", 20, 0) + tag_list(ALL_TAGS))
    yield "setup-refused", control("D", struct.pack(">HH", 20, 513) + tag_list([]))
    yield "setup-enquiry", control("F", struct.pack(">H", 20) + tag_list([]))
    yield "setup-reply", control("F", struct.pack(">H", 20) + tag_list(
        [number_tag(14, 512000), struct.pack(">HH", 0x1234, 3) + b"abc",
         struct.pack(">HHHHH", 0x8000, 6, 11, 22, 33)]))
    yield "triggers-request", control("R")
    body = trigger_body(3, 1, 10, 1000, 30, 5, 2, -5000, 1, 7)
    later = trigger_body(3, 1, 10, 1000, 30, 5, 2, -5000, 1, 7, reserved=0x0102)
    yield "triggers-reply", control("R", struct.pack(">H", 2) + trigger_record(6, later)
                                    + trigger_record(9, b"\x01\x02\x03"))
    yield "trigger-write", control("S", struct.pack(">H", 0) + trigger_record(5, body))
    yield "trigger-refused", control("S", struct.pack(">H", 2) + trigger_record(5, body))
    yield "clear-triggers", control("U")
    yield "reset-password", control("V")
    yield "restart", control("Y")
    yield "sync-request", control("[")
    yield "sync-reply", control("[", struct.pack(">BHiI", 2, 4321, -250, SECOND - 7))
    yield "collect-request", control("C", b"\x30")
    samples = struct.pack("<4h", 1, -1, 32767, -32768)
    yield "collect-reply", control("C", b"\xb0"
                                   + collect_chunk(16, struct.pack(">IHhHHHH", 96000, 1024, -180, 4, 512, 8, 2)
                                                   + bytes(range(5)))
                                   + collect_chunk(32, struct.pack(">IhBBH", 48000, -6, 0x82, 2, 2) + samples)
                                   + collect_chunk(4096, struct.pack(">II", SECOND, 77))
                                   + collect_chunk(8192, struct.pack(">II", SECOND, 4000)))
    yield "unknown-letter", control("Z", b"anything")


def marco_messages():
    yield "enquiry", marco(1, 40001, struct.pack(">BH", 0, 0) + network(0))
    yield "answer", marco(1, 0, struct.pack(">BH", 7, 1234) + NETWORK)
    yield "change", marco(2, 40002, struct.pack(">BHH", 5, 99, 0) + NETWORK)
    yield "change-refused", marco(2, 0, struct.pack(">BHH", 5, 99, 0xFFFF) + NETWORK)
    yield "restart", marco(3, 40003, bytes([2, 0, 0x5E, 0x10, 0x20, 0x30]))


def stream_messages():
    wave_setup = chunk(4, struct.pack(">IhBB", 48000, 12, 0x83, 1))
    scaling = chunk(6, struct.pack(">BBHiiii", 0, 24, 0, 8388607, -8388608, 3000000, -3000000))
    yield "wave-header", stream(1, chunk(11, bytes([1, 1])), key(SECOND, 0x123456789ABC), device(7, 1234, -1705),
                                status(215, 400, 9, 5), wave_setup, scaling)
    yield "wave-array-header", stream(
        1, chunk(11, bytes([2, 0])), key(0xFFFFFFFF, -2), device(16, 7, 0, chunk_type=8), device(15, 1, -1700, 7),
        status(-1, 2, 3, 0, 256), device(15, 2, -1710, 7), status(-4, 5, 6, 0, 256), wave_setup, scaling, scaling)
    yield "wave-data16", stream(2, key(SECOND, 480000), data(960, 2, 0x82, 3, struct.pack("<6h", *range(-3, 3))))
    yield "wave-data24", stream(2, key(SECOND, 480000, last=1), data(4294967295, 1, 0x03, 3, bytes(range(9))))
    yield "wave-data32", stream(2, data(0, 1, 0x84, 2, struct.pack("<2i", -(2 ** 31), 2 ** 31 - 1)))
    yield "wave-notify", stream(3, chunk(10, struct.pack(">H", 3) + text("going down")))
    fft = chunk(5, struct.pack(">IHhHHHHBB", 96000, 1024, -180, 4, 512, 8, 2, 1, 0))
    yield "spectrum-header", stream(1, chunk(11, bytes([1, 0])), key(SECOND, 55), device(7, 1234, -1705),
                                    status(215, 400, 9, 5), fft, scaling)
    yield "spectrum-data", stream(2, key(SECOND, 55), data(0, 1, 0x83, 7, bytes([0, 1, 127, 128, 253, 254, 255])))
    yield "sensor-status", stream(
        4, key(SECOND, 0, 3, 2), status(215, 400, 9, 5), chunk(7, struct.pack(">IHhhH", SECOND, 3599, -10, 20, 0)),
        chunk(12, struct.pack(">IHhBBh", SECOND, 14800, -350, 93, 2, 251)),
        chunk(13, struct.pack(">6h", 1000, -1000, 3, 400, -400, 5)),
        chunk(14, struct.pack(">IiHBB", SECOND, -1500, 77, 2, 0)), chunk(15, struct.pack(">IBBH", SECOND, 4, 6, 0)))


def main():
    # Published test values of the checksum: a wrong one here would make the frames agree with nothing.
    assert xxh64(b"") == 0xEF46DB3751D8E999 and xxh64(b"abc") == 0x44BC2CF5AD770999
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for reader, messages in (("control-", control_messages()), ("marco-", marco_messages()), ("", stream_messages())):
        for name, content in messages:
            (folder / f"{reader}{name}.bin").write_bytes(content)


if __name__ == "__main__":
    main()
