#!/usr/bin/env python3
"""A recorder in another language: written from docs/wire-protocol.md, standard library only.

It answers discovery on UDP 62726 and commands on TCP 50000, and streams a ramp of 24-bit waves whose sample value
is its sample number. On standard output it says "wave-port N", "epoch-port N" and "ready", and then a line for
everything that reaches it; it ends when its standard input ends. --seconds makes the stream end after that many whole
seconds, so that the same bytes come every time. --epochs gives every reader of the epoch stream that many starts and
ends of its triggers.
"""
import argparse
import asyncio
import struct
import sys
import time
import zlib

MARCO_PORT = 62726
CONTROL_PORT = 50000
WAVE_RATE_KEY, BIT_DEPTH_KEY, GAIN_KEY = 14, 16, 17
MODEL, VERSION, RELEASE = b"Peer", b"2.7.1", b"2024a"
BLOCKS_A_SECOND = 10
RAMP_LIMIT = 1 << 23
MASK64 = (1 << 64) - 1


def say(*words):
    print(*words, flush=True)


def text(value):
    return bytes([len(value)]) + value


def network_record(address):
    return bytes(map(int, address.split("."))) + bytes([255, 0, 0, 0, 127, 0, 0, 1, 0]) + bytes.fromhex("021122334455")


def xxh64(data):
    """XXH64 with seed 0, after the description of the algorithm."""
    p1, p2, p3 = 11400714785074694791, 14029467366897019727, 1609587929392839161
    p4, p5 = 9650029242287828579, 2870177450012600261

    def rotate(value, bits):
        return (value << bits | value >> (64 - bits)) & MASK64

    def mix(lane, value):
        return rotate((lane + value * p2) & MASK64, 31) * p1 & MASK64

    size, at = len(data), 0
    if size >= 32:
        a, b, c, d = (p1 + p2) & MASK64, p2, 0, -p1 & MASK64
        at = size & ~31
        for w, x, y, z in struct.iter_unpack("<4Q", data[:at]):
            a, b, c, d = mix(a, w), mix(b, x), mix(c, y), mix(d, z)
        value = (rotate(a, 1) + rotate(b, 7) + rotate(c, 12) + rotate(d, 18)) & MASK64
        for lane in (a, b, c, d):
            value = ((value ^ mix(0, lane)) * p1 + p4) & MASK64
    else:
        value = p5
    value = (value + size) & MASK64
    while at + 8 <= size:
        value = (rotate(value ^ mix(0, struct.unpack_from("<Q", data, at)[0]), 27) * p1 + p4) & MASK64
        at += 8
    if at + 4 <= size:
        value = (rotate(value ^ struct.unpack_from("<I", data, at)[0] * p1 & MASK64, 23) * p2 + p3) & MASK64
        at += 4
    for byte in data[at:]:
        value = rotate(value ^ byte * p5 & MASK64, 11) * p1 & MASK64
    value = (value ^ value >> 33) * p2 & MASK64
    value = (value ^ value >> 29) * p3 & MASK64
    return value ^ value >> 32


class Recorder:
    """What the recorder is and remembers."""

    def __init__(self, options):
        self.address = options.report_address or options.address
        self.type, self.serial = options.type, options.serial
        self.rate, self.seconds, self.pace = options.rate, options.seconds, options.pace
        self.tags = {WAVE_RATE_KEY: struct.pack(">I", options.rate), BIT_DEPTH_KEY: struct.pack(">I", 24),
                     GAIN_KEY: struct.pack(">I", 6), 0: bytes(4)}
        self.triggers, self.epochs = [], options.epochs
        self.clock_offset = 0
        self.sample = 0

    def now(self):
        return int(time.time()) + self.clock_offset

    def tag_list(self):
        return struct.pack(">H", len(self.tags)) + b"".join(
            struct.pack(">HH", key, len(value)) + value for key, value in sorted(self.tags.items()))


class Discovery(asyncio.DatagramProtocol):
    def __init__(self, recorder):
        self.recorder = recorder

    def connection_made(self, transport):
        self.transport = transport

    def datagram_received(self, data, sender):
        say("marco", sender[0], sender[1], data.hex())
        if len(data) < 14 or data[:5] != b"NVXM\x01":
            return
        kind, port, size = struct.unpack_from(">BHH", data, 5)
        body, check = data[10:-4], data[-4:]
        if len(body) != size or check != struct.pack(">I", zlib.crc32(data[:-4])):
            return
        answer = self.answer(kind, body)
        if answer is not None:
            head = b"NVXM\x01" + struct.pack(">BHH", kind, 0, len(answer)) + answer
            self.transport.sendto(head + struct.pack(">I", zlib.crc32(head)), (sender[0], port))

    def answer(self, kind, body):
        recorder = self.recorder
        if kind == 3:
            return body if len(body) == 6 else None
        if len(body) != (22 if kind == 1 else 24):
            return None
        device_type, serial = struct.unpack_from(">BH", body)
        if device_type not in (0, recorder.type) or serial not in (0, recorder.serial):
            return None
        own = struct.pack(">BH", recorder.type, recorder.serial)
        if kind == 1:
            return own + network_record(recorder.address)
        return own + b"\0\0" + body[5:] if kind == 2 else None


class Commands(asyncio.Protocol):
    def __init__(self, recorder):
        self.recorder = recorder
        self.received = b""

    def connection_made(self, transport):
        self.transport = transport
        say("command-open")

    def connection_lost(self, _error):
        say("command-closed")

    def data_received(self, data):
        self.received += data
        while True:
            start = self.received.find(b"*")
            self.received = self.received[start:] if start >= 0 else b""
            if len(self.received) < 8:
                return
            size = struct.unpack_from(">H", self.received, 2)[0]
            if len(self.received) < size + 8:
                return
            frame, check = self.received[:size + 4], self.received[size + 4:size + 8]
            if check != struct.pack(">I", zlib.crc32(frame)):
                self.received = self.received[1:]
                continue
            self.received = self.received[size + 8:]
            letter = frame[1:2]
            say("command", letter.decode("latin-1"), frame[4:].hex())
            reply = self.reply(letter, frame[4:])
            if reply is not None:
                head = b"*" + letter + struct.pack(">H", len(reply)) + reply
                self.transport.write(head + struct.pack(">I", zlib.crc32(head)))

    def reply(self, letter, payload):
        recorder = self.recorder
        if letter == b"A":
            wanted = struct.unpack(">i", payload)[0]
            if wanted != -1:
                recorder.clock_offset += wanted - recorder.now()
            return struct.pack(">i", recorder.now())
        if letter == b"D":
            count, at = struct.unpack_from(">H", payload, 4)[0], 6
            for _ in range(count):
                key, size = struct.unpack_from(">HH", payload, at)
                recorder.tags[key] = payload[at + 4:at + 4 + size]
                at += 4 + size
            return payload[:2] + bytes(2) + recorder.tag_list()
        if letter == b"E":
            return (struct.pack(">BHHBBhhHIi", recorder.type, recorder.serial, 0, 1, 87, -1705, 123, 456,
                                recorder.rate, recorder.now()) + network_record(recorder.address)
                    + text(MODEL) + text(VERSION) + text(RELEASE))
        if letter == b"F":
            return payload[:2] + recorder.tag_list()
        if letter == b"R":
            return struct.pack(">H", len(recorder.triggers)) + b"".join(recorder.triggers)
        if letter == b"S":
            recorder.triggers.append(payload[2:])
            return bytes(2) + payload[2:]
        if letter == b"U":
            recorder.triggers.clear()
            return b""
        if letter in (b"V", b"Y"):
            return b""
        if letter == b"[":
            return struct.pack(">BHiI", 2, 77, -250, recorder.now() - 5)
        return None


class Waves(asyncio.Protocol):
    """Samples go out most significant byte first; the setup asks for little-endian files."""

    def __init__(self, recorder):
        self.recorder = recorder
        self.received = b""
        self.task = None

    def connection_made(self, transport):
        self.transport = transport
        say("stream-open")

    def connection_lost(self, _error):
        self.stop()
        say("stream-closed")

    def data_received(self, data):
        self.received += data
        while len(self.received) >= 4:
            size = struct.unpack_from(">H", self.received, 2)[0] + 4
            if len(self.received) < size:
                return
            message, self.received = self.received[:size], self.received[size:]
            say("stream-message", message.hex())
            self.stop()
            if message[:4] == b"3*\0\4":
                minutes = struct.unpack_from(">H", message, 4)[0]
                self.task = asyncio.get_running_loop().create_task(self.stream(minutes * 60))

    def stop(self):
        if self.task:
            self.task.cancel()
            self.task = None

    def send(self, kind, *chunks):
        body = b"".join(struct.pack(">HI", number, len(data)) + data for number, data in chunks)
        frame = b"0*" + struct.pack(">BBI", kind, 1, len(body)) + body
        self.transport.write(frame + struct.pack(">I", xxh64(frame) & 0xFFFFFFFF))

    def event_header(self, second, first):
        recorder = self.recorder
        device = struct.pack(">BBHHh", recorder.type, 0, 0, recorder.serial, -1705)
        self.send(1, (11, bytes([1, 1])), (1, struct.pack(">IqBBBB", second, first, 0, 0, 0, 0)), (2, device),
                  (3, struct.pack(">hHBBH", 123, 456, 0, 1, 0)), (4, struct.pack(">IhBB", recorder.rate, 6, 3, 1)),
                  (6, struct.pack(">BBHiiii", 0, 24, 0, RAMP_LIMIT - 1, -RAMP_LIMIT, 2500000, -2500000)))

    async def stream(self, limit):
        recorder = self.recorder
        second, started, sent = recorder.now(), time.monotonic(), 0
        length = min(filter(None, (limit, recorder.seconds)), default=0)
        while not length or sent < length:
            first = recorder.sample
            self.event_header(second, first)
            edges = [recorder.rate * i // BLOCKS_A_SECOND for i in range(BLOCKS_A_SECOND + 1)]
            for i, (begin, end) in enumerate(zip(edges, edges[1:])):
                due = started + (sent + i / BLOCKS_A_SECOND) / recorder.pace
                await asyncio.sleep(max(0.0, due - time.monotonic()))
                key = struct.pack(">IqBBBB", second, first, 0, 0, int(end == recorder.rate), 0)
                samples = b"".join(((first + n) % RAMP_LIMIT).to_bytes(3, "big") for n in range(begin, end))
                self.send(2, (1, key), (9, struct.pack(">IBBH", begin, 1, 3, end - begin) + samples))
                recorder.sample = first + end
            second, sent = second + 1, sent + 1
        say("stream-end", recorder.sample)


class Epochs(asyncio.Protocol):
    """Lets each trigger in turn start and end, a whole line in a write."""

    def __init__(self, recorder):
        self.recorder = recorder
        self.task = None

    def connection_made(self, transport):
        self.transport = transport
        self.task = asyncio.get_running_loop().create_task(self.write())
        say("epoch-open")

    def connection_lost(self, _error):
        self.task.cancel()
        say("epoch-closed")

    def data_received(self, data):
        say("epoch-message", data.hex())

    async def write(self):
        recorder = self.recorder
        for sequence in range(1, recorder.epochs + 1):
            body = recorder.triggers[sequence % len(recorder.triggers)][3:]
            number, _, low, high, duration = struct.unpack_from(">BBIIH", body)
            threshold = struct.unpack_from(">h", body, 16)[0]
            for rest in (f"Seq {sequence}, {low}-{high} > {threshold}uPa, {duration}s", "Ended"):
                stamp = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(recorder.now()))
                self.transport.write(f"{stamp}, SN {recorder.serial}, Epoch {number}, {rest}\n".encode())
                await asyncio.sleep(0.003)
        say("epoch-end", recorder.epochs)


async def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", help="address to listen on; 0.0.0.0 to hear broadcasts")
    parser.add_argument("--report-address", help="address in the network record where it isn't the one listened on")
    parser.add_argument("--marco-only", action="store_true", help="no command and stream ports")
    parser.add_argument("--type", type=int, default=5)
    parser.add_argument("--serial", type=int, default=4242)
    parser.add_argument("--rate", type=int, default=8000, help="samples a second, at most 655350")
    parser.add_argument("--seconds", type=int, default=0, help="length of the stream; 0: until stopped")
    parser.add_argument("--epochs", type=int, default=0, help="occurrences on the epoch stream; needs triggers")
    parser.add_argument("--pace", type=float, default=1.0, help="seconds of sound in a second of time")
    options = parser.parse_args()

    recorder = Recorder(options)
    loop = asyncio.get_running_loop()
    await loop.create_datagram_endpoint(lambda: Discovery(recorder), (options.address, MARCO_PORT))
    if not options.marco_only:
        await loop.create_server(lambda: Commands(recorder), options.address, CONTROL_PORT)
        waves = await loop.create_server(lambda: Waves(recorder), options.address, 0)
        say("wave-port", waves.sockets[0].getsockname()[1])
        epochs = await loop.create_server(lambda: Epochs(recorder), options.address, 0)
        say("epoch-port", epochs.sockets[0].getsockname()[1])
    say("ready")
    await loop.run_in_executor(None, sys.stdin.buffer.read)


if __name__ == "__main__":
    asyncio.run(main())
