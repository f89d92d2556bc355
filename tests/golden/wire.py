"""Encodes the frames of docs/wire-protocol.md. Standard library only; shares no code with the library."""
import struct
import zlib

MASK64 = (1 << 64) - 1
PRIME1, PRIME2, PRIME3 = 0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9
PRIME4, PRIME5 = 0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5


def _rotate(value, bits):
    return ((value << bits) | (value >> (64 - bits))) & MASK64


def _round(accumulator, lane):
    return (_rotate((accumulator + lane * PRIME2) & MASK64, 31) * PRIME1) & MASK64


def xxh64(data):
    """XXH64 with seed 0, after the algorithm's public description."""
    position, length = 0, len(data)
    if length >= 32:
        lanes = [(PRIME1 + PRIME2) & MASK64, PRIME2, 0, (-PRIME1) & MASK64]
        while position + 32 <= length:
            for i, lane in enumerate(struct.unpack_from("<4Q", data, position)):
                lanes[i] = _round(lanes[i], lane)
            position += 32
        result = sum(_rotate(lanes[i], (1, 7, 12, 18)[i]) for i in range(4)) & MASK64
        for lane in lanes:
            result = ((result ^ _round(0, lane)) * PRIME1 + PRIME4) & MASK64
    else:
        result = PRIME5
    result = (result + length) & MASK64
    while position + 8 <= length:
        result ^= _round(0, struct.unpack_from("<Q", data, position)[0])
        result = (_rotate(result, 27) * PRIME1 + PRIME4) & MASK64
        position += 8
    if position + 4 <= length:
        result ^= (struct.unpack_from("<I", data, position)[0] * PRIME1) & MASK64
        result = (_rotate(result, 23) * PRIME2 + PRIME3) & MASK64
        position += 4
    for byte in data[position:]:
        result ^= (byte * PRIME5) & MASK64
        result = (_rotate(result, 11) * PRIME1) & MASK64
    result = ((result ^ (result >> 33)) * PRIME2) & MASK64
    result = ((result ^ (result >> 29)) * PRIME3) & MASK64
    return result ^ (result >> 32)


def text(value):
    encoded = value.encode("utf-8")
    assert len(encoded) <= 255
    return bytes([len(encoded)]) + encoded


def control(letter, payload=b""):
    """One frame of the command channel."""
    head = b"*" + letter.encode("ascii") + struct.pack(">H", len(payload)) + payload
    return head + struct.pack(">I", zlib.crc32(head))


def network(address, mask=0, gateway=0, mode=0, mac=bytes(6)):
    return struct.pack(">IIIB", address, mask, gateway, mode) + mac


def number_tag(key, value):
    return struct.pack(">HHI", key, 4, value & 0xFFFFFFFF)


def tag_list(tags):
    return struct.pack(">H", len(tags)) + b"".join(tags)


def trigger_record(test_type, body):
    return struct.pack(">BH", test_type, len(body)) + body


def trigger_body(number, enabled, low, high, duration, hold, before, threshold, kind, effect, reserved=0):
    return struct.pack(">BBIIHHHhHHH", number, enabled, low, high, duration, hold, before, threshold, kind, effect,
                       reserved)


def collect_chunk(name, body):
    return struct.pack(">HH", name, len(body)) + body


def marco(kind, response_port, body):
    """One discovery datagram."""
    head = b"NVXM" + struct.pack(">BBHH", 1, kind, response_port, len(body)) + body
    return head + struct.pack(">I", zlib.crc32(head))


def stream(kind, *chunks):
    """One frame of a stream."""
    body = b"".join(chunks)
    head = b"0*" + struct.pack(">BBI", kind, 1, len(body)) + body
    return head + struct.pack(">I", xxh64(head) & 0xFFFFFFFF)


def chunk(kind, body):
    return struct.pack(">HI", kind, len(body)) + body


def key(time, sequence, trigger=0, state=0, last=0):
    return chunk(1, struct.pack(">IqBBBB", time, sequence, trigger, state, last, 0))


def device(kind, serial, sensitivity, host=0, chunk_type=2):
    return chunk(chunk_type, struct.pack(">BBHHh", kind, 0, host, serial, sensitivity))


def status(temperature, humidity, extra, rollover, flags=0):
    return chunk(3, struct.pack(">hhBBH", temperature, humidity, extra, rollover, flags))


def data(position, channels, sample_format, count, samples):
    return chunk(9, struct.pack(">IBBH", position, channels, sample_format, count) + samples)
