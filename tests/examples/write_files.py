#!/usr/bin/env python3
"""Writes a spectrum file by the description in docs/file-formats.md, or a wave file by the module wave.

    write_files.py spectra FILE SERIAL START RECORDS    bin b of record r is (7 r + b) % 256, one record a second
    write_files.py waves FILE CHANNELS SECONDS RATE     frame f of channel c is 16 bits of f + 1000 c
"""
import struct
import sys
import time
import wave

BINS = 513


def stamp(seconds):
    return time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(seconds))


def spectra(path, serial, start, records):
    entries = [("Type", 0), ("Device type", 5), ("Serial", serial), ("Firmware", "1.0"), ("Start", stamp(start)),
               ("Start sample", 0), ("Spectra by", "device"), ("Sample rate (Hz)", 48000), ("Points", 1024),
               ("Points between", 512), ("Accumulations", 94), ("Power calculation", 0),
               ("Reference level (dB re 1 V)", -180), ("Sensitivity (dB re 1 V/uPa)", -170)]
    titles = ["Time", "Comment", "Temperature (C)", "Humidity (%)", "Sequence"]
    with open(path, "w", encoding="utf-8", newline="") as file:
        print("Nerivox spectrum file", 1, sep="\t", file=file)
        for entry in entries:
            print(*entry, sep="\t", file=file)
        print(*titles, *(48000 * b / 1024 for b in range(BINS)), sep="\t", file=file)
        for r in range(records):
            print(stamp(start + r), "by Python", 12.5, 40, r, *((7 * r + b) % 256 for b in range(BINS)), sep="\t", file=file)


def waves(path, channels, seconds, rate):
    with wave.open(path, "wb") as file:
        file.setnchannels(channels)
        file.setsampwidth(2)
        file.setframerate(rate)
        for f in range(rate * seconds):
            file.writeframes(struct.pack(f"<{channels}h", *((f + 1000 * c) % 32768 for c in range(channels))))


if __name__ == "__main__":
    kind, path, *numbers = sys.argv[1:]
    {"spectra": spectra, "waves": waves}[kind](path, *map(int, numbers))
