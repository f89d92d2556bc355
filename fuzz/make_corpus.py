#!/usr/bin/env python3
"""Writes the seeds of the fuzzers' corpora from the golden messages: each alone, all in one, and some broken ones.

    fuzz/make_corpus.py        run from anywhere; replaces the seeds under fuzz/corpus
"""
import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE.parent / "tests" / "golden"))

import make_golden  # noqa: E402  (needs the path above)


def write(target, name, content):
    folder = HERE / "corpus" / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / f"seed-{name}").write_bytes(content)


def seeds(target, messages):
    messages = list(messages)
    for name, content in messages:
        write(target, name, content)
        broken = bytearray(content)
        broken[len(broken) // 2] ^= 0x40
        write(target, f"{name}-broken", bytes(broken))
    together = b"".join(content for _, content in messages)
    write(target, "all", together)
    write(target, "all-with-junk", b"0*".join(content + b"*" for _, content in messages))
    write(target, "all-cut", together[:-3])


def collect_payloads():
    """Without their frames: the target takes them so as well."""
    payload = dict(make_golden.control_messages())["collect-reply"][4:-4]
    yield "collect-bare", payload
    # Samples of three bytes instead of two.
    yield "collect-bare-unfit", payload.replace(b"\x82\2\0\2", b"\x83\2\0\2")


def trigger_payloads():
    """Without their frames, like the above."""
    messages = dict(make_golden.control_messages())
    yield "triggers-bare", messages["triggers-reply"][4:-4]
    yield "trigger-bare", messages["trigger-write"][4:-4]
    yield "triggers-bare-too-many", b"\xff\xff" + messages["triggers-reply"][6:-4]
    yield "triggers-bare-too-few", b"\0\0" + messages["triggers-reply"][6:-4]


def epoch_lines():
    begin = b"2021-03-04 05:06:07, SN 1234, Epoch 3, "
    yield "started", begin + b"Seq 100, 10-1000 > 5000uPa, 30s"
    yield "below", begin + b"Seq 18446744073709551615, 0-4294967295 < -32768uPa, 65535s\r"
    yield "ended", begin + b"Ended"
    yield "no-numbers", b", SN, Epoch, Seq, , "
    yield "long-numbers", begin + b"Seq " + 40 * b"9" + b", " + 40 * b"9" + b"-" + 40 * b"9" + b" > " + 40 * b"9" + b"uPa, " + 40 * b"9"
    yield "other-digits", "2021-03-04 05:06:07, SN ١٢, Epoch ١, Seq ١, ١-٢ > ١uPa, ١s".encode()
    yield "zero", b"\0" + begin + b"Ended"
    yield "commas", 64 * b"," + b"Epoch"


def job_tags():
    yield "unsigned", b"$WAVE_SAMPLE_RATE=96000"
    yield "signed", b"$FFT_REF_LEVEL=-180"
    yield "list", b"ARRAY_SERIALS=1,22,65535"
    yield "no-number", b"$WAVE_GAIN=loud"
    yield "too-large", b"$FFT_POINTS=" + 40 * b"9"
    yield "two-borders", b"$WAVE_GAIN=3=6"
    yield "no-key", b"$=1"
    yield "unknown", b"$TAG_16384=1"


def spectrum_files():
    header = (b"Nerivox spectrum file\t1\nType\t0\nName\tSpec_20240229_123456\nClient\tclient\nDevice type\t5\nSerial\t42\n"
              b"Start\t2024-02-29 12:34:56\nStart sample\t4886718345\nContinued\t1\nContinued from\tSpec\n"
              b"Continued from time\t2024-02-29 12:33:56\nSpectra by\tcomputer\nSample rate (Hz)\t48000\nPoints\t1024\n"
              b"Points between\t512\nAccumulations\t20\nPower calculation\t3\nReference level (dB re 1 V)\t-180\n"
              b"Sensitivity (dB re 1 V/uPa)\t-170.4\n")
    titles = b"Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\t0\t46.875\n"
    yield "bytes", header + titles + b"2024-02-29 12:34:56\tquiet\t12.3\t45.6\t5000000001\t0\t255\n"
    yield "decimals", header + titles + b"2024-02-29 12:34:56\t\t12.3\t45.6\t1\t-0.5\t1e-300\n"
    yield "late-first-row", header + titles + b"\n\n\n2024-02-29 12:34:56\tquiet\t12.3\t45.6\t1\t0\t255\n"
    yield "time-of-day", header + b"12:34:56\t\t0\t0\t0\t1\n00:00:01\t\t0\t0\t0\t2\n"
    yield "broken-rows", header + titles + b"2024-02-30 12:34:56\t\t0\t0\t0\t1\n12:34:56\t\tnan\t0\t0\t2\n\n\t\t\t\t\t\n"


def text(content):
    return bytes([len(content)]) + content


def info_record(kind):
    slot = struct.pack(">BHhhhB", 15, 4711, -170, -15, 400, 7) + text(b"1.2") + text(b"Model 7 1.3")
    common = struct.pack(">HBIQfi", 1, kind, 1709210096, 0x123456789ABC, 2.5, 0x800000) + text(b"ABC_20240229_123456") + text(b"Nerivox'")
    if kind == 1:
        return common + slot + b"\1" + struct.pack(">IHhh", 1709210000, 3599, -123, 321)
    return common + b"\2" + 3 * slot


def chunk(order, name, content):
    return name + struct.pack(order + "I", len(content)) + content + b"\0" * (len(content) % 2)


def head(order):
    return (b"RIFX" if order == ">" else b"RIFF") + bytes(4) + b"WAVE"


def fmt(order, channels, bits, tag=1, extension=b""):
    align = channels * bits // 8
    return chunk(order, b"fmt ", struct.pack(order + "HHIIHH", tag, channels, 48000, 48000 * align, align, bits) + extension)


def info(order, kind):
    return chunk(order, b"LIST", b"INFO" + chunk(order, b"ICMT", b"abc") + chunk(order, b"INVX", info_record(kind)))


def wave_files():
    data = chunk("<", b"data", bytes(range(1, 49)))
    guid = struct.pack("<HHIIHH", 22, 24, 3, 1, 0, 16) + bytes.fromhex("800000aa00389b71")
    yield "one-recorder", head("<") + fmt("<", 1, 16) + info("<", 1) + data
    yield "array-big-endian", head(">") + fmt(">", 2, 24) + info(">", 2) + chunk(">", b"data", bytes(48))
    yield "extensible", head("<") + fmt("<", 2, 24, 0xFFFE, guid) + data
    yield "list-at-tail", head("<") + fmt("<", 1, 32) + data + info("<", 1)
    yield "two-lists-at-tail", head("<") + fmt("<", 2, 16) + data + chunk("<", b"LIST", b"adtl") + info("<", 2)
    yield "foreign-chunks", (head("<") + chunk("<", b"bext", bytes(101)) + chunk("<", b"LIST", b"INFO" + chunk("<", b"ISFT", b"tool"))
                             + fmt("<", 1, 16) + chunk("<", b"fact", bytes(4)) + data)
    yield "record-one", info_record(1)
    yield "record-array", info_record(2)


def ftp_replies():
    yield "session", b"220 Ready\r\n331 Password\r\n230 Welcome\r\n200 Type\r\n213 4711\r\n221 Bye\r\n"
    yield "passive", b"227 Entering Passive Mode (127,0,0,1,4,210).\r\n229 Entering Extended Passive Mode (|||6446|)\r\n"
    yield "bad-passive", b"227 (127,0,0,256,4,210)\r\n227 (127,0,0,1,0,0)\r\n229 (|||0|)\r\n229 (!!!65536!)\r\n"
    yield "lines", b"211-Features\r\n SIZE\r\n211-more\r\n2110 no end\r\n211 End\r\n"
    yield "encodings", b"550 m\xc3\xa9r\r\n550 m\xe9r\r\n550 a\0b\n"
    yield "long", b"550-" + 1400 * b"\xe2\x82\xac" + b"\r\n550 \r\n"
    yield "junk", b"hello\r\n\r\n22 x\r\n 220 x\r\n220\r\n999 y\r\n000z\r\n"


def ftp_listings():
    yield "unix", (b"total 12\r\n-rw-r--r--    1 ftp      ftp       1234567 Mar 04 05:06 REC1234_20210304_050607.wav\r\n"
                   b"drwxr-sr-t 2 root root 4096 Mar  4  2021 Data\r\nlrwxrwxrwx 1 a b 11 Feb 29 2020 l.wav -> x.wav\r\n")
    yield "netbsd", (b"-rw-r--r--  1 operator    512 Mar 04 2021 log.txt\r\n-rw-r--r-- 1  staff 512 Mar 04 2021 log.txt\r\n"
                     b"-rw-r--r-- 1   512 Mar 04 2021 log.txt\r\n")
    yield "dos", (b"03-04-21  05:06AM              1234567 REC1234_20210304_050607.wav\r\n12-31-70  11:59PM       <DIR>          Data\r\n"
                  b"03-04-2021  12:00AM 512 a.txt.LNK\r\n03-04-021  12:00PM 512 a.txt\r\n")
    yield "missing", b"ls: Data: No such file or directory\r\n"
    yield "names", b"-rw-r--r-- 1 a b 1 Mar 04 2021 m\xc3\xa9r.wav\r\n-rw-r--r-- 1 a b 1 Mar 04 2021 m\xe9r.wav\n"
    yield "long", b"-rw-r--r-- 1 a b 1 Mar 04 2021 " + 8300 * b"x" + b".wav\r\n-rw-r--r-- 1 a b 1 Mar 04 2021 a.wav\r\n"


def cgi_replies():
    yield "status", (b'{"serialNumber":600,"currentTime":1700000000,"devs":[{"devSerial":11,"state":1},{"devSerial":12,"state":1}]}')
    yield "configuration", (b'{"serialNumber":600,"configuration":{"wavSampRate":96000,"startTime":0,"wavBitDepth":24,"wavGain":6,'
                            b'"wavEndian":0,"fftRef":-120,"fftPts":1024,"fftLogLen":60,"tmiDevType":16}}')
    yield "time", b'{"serialNumber":600,"currentTime":1700000000}'
    yield "odd", b'devs:[{}"devSerial":+5,,"wavSampRate": -2147483649 ,serialNumber:\0,"currentTime":1}2}'


def zcr_configs():
    yield "plain", b"$FFT_ACCUM=20\n$WAVE_SAMPLE_RATE=96000\n$ARRAY_SERIALS=11,12,13\n"
    yield "sections", b"; of the maker\r\n$WAVE_GAIN=1\r\n[*]\r\n$WAVE_GAIN=2\r\n#$WAVE_GAIN=3\r\n[NET]\r\n$WAVE_GAIN=4\r\n"
    yield "section-ahead", b"[x]\n$FFT_TYPE=1\n [*] \n[*] x\n$FFT_TYPE=2"
    yield "odd-values", b"$FFT_REF_LEVEL=-2147483649\n$FFT_REF_LEVEL= +5\t\r\n$ARRAY_SERIALS=1,,x,65536,4294967296,-1,\r\n$WAVE_BIT_DEPTH=257\n"
    yield "odd-lines", b"$ARRAY_SERIALS\n#$ARRAY_SERIALS=9\n=\n==\n$WAVE_GAIN =1\n$AUX_MSG=\0\n\r\r\n$AUX_PIN=\r7\r\r\n"


def array_frames():
    layout = "<BBHHIHiIhHHHHH"
    yield "typical", struct.pack(layout, 0, 3, 1234, 215, 7, 4, -120, 96000, -165, 0, 20, 0, 0, 1024) + b"\x00\xff\x7f\x80"
    yield "no-bins", struct.pack(layout, 9, 255, 65535, 65535, 0xFFFFFFFF, 0, -0x80000000, 0xFFFFFFFF, -0x8000, 65535, 65535, 1, 2, 65535)
    yield "wider-than-the-frame", struct.pack(layout, 0, 1, 11, 0, 0, 65535, 0, 0, 0, 0, 0, 0, 0, 0) + b"\x03\xfd\xfe"
    yield "narrower-than-the-frame", struct.pack(layout, 0, 1, 11, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0) + bytes(range(256))
    yield "cut", struct.pack(layout, 0, 1, 11, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0)[:31]


def replay_files():
    """Wave files that are large enough for a list at their tail to be looked for, and the spectrum files."""
    samples = bytes(range(200)) * 8
    yield "list-at-tail", head("<") + fmt("<", 1, 16) + chunk("<", b"data", samples) + info("<", 1)
    yield "list-at-tail-big-endian", head(">") + fmt(">", 2, 24) + chunk(">", b"data", samples) + info(">", 2)
    yield "list-ahead", head("<") + fmt("<", 2, 16) + info("<", 2) + chunk("<", b"data", samples)
    yield "no-list", head("<") + fmt("<", 1, 8) + chunk("<", b"data", samples)
    yield "promises-too-much", head("<") + fmt("<", 1, 16) + b"data\xff\xff\xff\xff" + samples + info("<", 1)
    yield "list-in-a-chunk-ahead", head("<") + fmt("<", 1, 16) + chunk("<", b"JUNK", samples + info("<", 1)) + chunk("<", b"data", samples[:100])
    yield from spectrum_files()


if __name__ == "__main__":
    seeds("control", make_golden.control_messages())
    for name, content in collect_payloads():
        write("control", name, content)
    for name, content in trigger_payloads():
        write("control", name, content)
    seeds("marco", make_golden.marco_messages())
    seeds("stream", make_golden.stream_messages())
    seeds("spectrum", spectrum_files())
    seeds("wav_header", wave_files())
    seeds("replay_headers", replay_files())
    seeds("epoch_line", epoch_lines())
    seeds("job_tag", job_tags())
    seeds("ftp_reply", ftp_replies())
    seeds("ftp_listing", ftp_listings())
    seeds("cgi_reply", cgi_replies())
    seeds("zcr_config", zcr_configs())
    seeds("array_frame", array_frames())
