#!/usr/bin/env python3
"""Reads diaries that were written in several time zones, and finds each occurrence once, in order.

    tst_epoch_diary.py MAKER      MAKER writes the occurrences that it is given into a directory
"""
import datetime
import json
import os
import pathlib
import random
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import zoneinfo

import read_diary

MAKER = sys.argv.pop(1)
ZONES = ["UTC", "America/Vancouver", "Asia/Kolkata"]
STATES = {0: "Inactive", 1: "Pre-Event", 2: "Started", 4: "Active", 5: "Post-Event", 6: "Ended", 7: "Active",
          8: "Trigger's message", 16: "Trigger's message", 255: "Trigger's message"}
STREAMS = {9: "Streaming is Started", 10: "WAV Streaming is Started", 11: "FFT Streaming is Started",
           12: "File WAV Streaming is Started", 13: "File FFT Streaming is Started", 15: "File Streaming is Stopped"}
LAST = "Logging Finished"
SEED = int(os.environ.get("NVX_SEED", random.randrange(2**32)))


def digits(time):
    return time.strftime("%Y-%m-%d %H:%M:%S")


def utc(seconds):
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc)


def band(fields, seconds):
    return {"digits": fields["seq"], "low": str(fields["low"]), "high": str(fields["high"]),
            "sign": "<" if fields["below"] else ">", "threshold": str(fields["threshold"]), "seconds": str(seconds)}


def device_line(time, fields, ended):
    """A line as a device writes it, and what the diary has to say of it."""
    line = f"{time}, SN {fields['serial']}, Epoch {fields['number']}, "
    expected = {"time": time, "who": "U", "serial": str(fields["serial"]), "number": str(fields["number"])}
    if ended:
        return {"line": line + "Ended"}, [expected | {"state": "Ended"}]
    line += f"Seq {fields['seq']}, {fields['low']}-{fields['high']} {'<' if fields['below'] else '>'} " \
            f"{fields['threshold']}uPa, {fields['duration']}s"
    return {"line": line}, [expected | {"state": "Started"} | band(fields, fields["duration"])]


def program_trigger(fields, state):
    expected = {"time": digits(utc(fields["time"])), "who": "P", "serial": str(fields["serial"]),
                "number": str(fields["number"] + 1), "state": STATES[state]}
    seconds = {1: fields["pre"], 2: fields["duration"], 5: fields["hold"]}.get(state)
    if seconds is not None:
        expected |= band(fields, seconds)
    else:
        expected["digits"] = fields["seq"] + ("" if state == 6 else str(fields["duration"]))
    if fields["meas"]:
        expected["share"] = f"{fields['meas'] / 4 * 100:g}"
    return fields | {"type": 0, "state": state}, [expected]


def stream(fields, state, by_device, zone):
    time = utc(fields["time"])
    expected = {"time": digits(time.astimezone(zone) if by_device else time), "who": "D" if by_device else "P",
                "serial": str(fields["serial"])}
    lines = [expected | {"text": STREAMS[state]}]
    if state in (12, 13):
        lines.insert(0, expected | {"file": fields["file"]})
    return fields | {"type": int(by_device), "state": state}, lines


class EpochDiary(unittest.TestCase):
    def write(self, zone, occurrences, *arguments):
        """Writes a diary in a zone, and gives its lines as the reader finds them."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        run = subprocess.run([MAKER, folder.name, *arguments], input=json.dumps(occurrences).encode(),
                             env=os.environ | {"TZ": zone}, timeout=60)
        self.assertEqual(run.returncode, -signal.SIGKILL if arguments else 0)
        files = list(pathlib.Path(folder.name).iterdir())
        self.assertEqual(len(files), 1, files)
        return files[0].name, read_diary.read(files[0])

    def any_occurrences(self, zone):
        source = random.Random(SEED)
        zone = zoneinfo.ZoneInfo(zone)
        sent, expected = [], []
        for _ in range(1000):
            fields = {"time": 1614837967 + source.randrange(10**6), "serial": source.randrange(65536),
                      "seq": str(source.randrange(2**64)), "number": source.randrange(255),
                      "low": source.randrange(2**32), "high": source.randrange(2**32),
                      "below": source.random() < 0.5, "threshold": source.randrange(32768),
                      "pre": source.randrange(65536), "duration": source.randrange(65536),
                      "hold": source.randrange(65536), "meas": source.randrange(5),
                      "file": source.choice(["a.wav", "Wäl, 日誌 *** .wav", ""])}
            kind = source.randrange(3)
            if kind == 0:
                time = digits(utc(fields["time"]).astimezone(zone))
                occurrence, lines = device_line(time, fields, source.random() < 0.5)
            elif kind == 1:
                occurrence, lines = program_trigger(fields, source.choice(list(STATES)))
            else:
                occurrence, lines = stream(fields, source.choice(list(STREAMS)), source.random() < 0.5, zone)
            sent.append(occurrence)
            expected += lines
        return sent, expected

    def digits_of_the_device(self, zone, day):
        """What becomes of a device's times, one for each ten minutes of a day: {written: in the diary}."""
        hours = [f"{day} {minute // 60:02}:{minute % 60:02}:59" for minute in range(0, 1440, 10)]
        _, lines = self.write(zone, [{"line": f"{hour}, SN 1234, Epoch 3, Ended"} for hour in hours])
        self.assertEqual(lines.pop()["text"], LAST)
        return dict(zip(hours, [line["time"] for line in lines], strict=True))

    # --- happy flows

    def test_each_occurrence_once_in_order(self):
        for zone in ZONES:
            with self.subTest(zone=zone, seed=SEED):
                sent, expected = self.any_occurrences(zone)
                began = utc(time.time())
                _, lines = self.write(zone, sent)
                last = lines.pop()
                self.assertEqual((last["who"], last["serial"], last["text"]), ("P", "1234", LAST))
                self.assertTrue(digits(began) <= last["time"] <= digits(utc(time.time())), last["time"])
                self.assertEqual(lines, expected)

    def test_zone_is_in_force(self):
        # The same second, as the program and as the device see it.
        seconds = {"UTC": "05:06:07", "America/Vancouver": "21:06:07", "Asia/Kolkata": "10:36:07"}
        for zone in ZONES:
            fields = {"time": 1614834367, "serial": 1234}
            _, lines = self.write(zone, [fields | {"type": 0, "state": 9}, fields | {"type": 1, "state": 9}])
            self.assertEqual([line["time"][11:] for line in lines[:2]], ["05:06:07", seconds[zone]])

    def test_name_has_the_day_of_the_line(self):
        fields = {"time": 1614834367, "serial": 1234, "state": 9}
        name, _ = self.write("America/Vancouver", [fields | {"type": 0}])
        self.assertEqual(name, "VEEpoch__1234_20210304_050607.txt")
        name, _ = self.write("America/Vancouver", [fields | {"type": 1}])
        self.assertEqual(name, "VEEpoch__1234_20210303_210607.txt")

    def test_digits_of_a_device_come_back(self):
        for zone in ZONES:
            for day in ("2021-03-14", "2021-07-01", "2021-11-07", "2024-02-29", "1999-12-31"):
                if (zone, day) != ("America/Vancouver", "2021-03-14"):
                    times = self.digits_of_the_device(zone, day)
                    self.assertEqual(list(times.values()), list(times), zone)

    def test_stream_of_a_device(self):
        # Whole lines, one a write, the next one when the diary has the one before.
        source = random.Random(SEED)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        with socket.create_server(("127.0.77.1", 0)) as server:
            server.settimeout(60)
            maker = subprocess.Popen([MAKER, folder.name, "127.0.77.1", str(server.getsockname()[1]), "200"],
                                     stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
            self.addCleanup(maker.stdout.close)
            self.addCleanup(maker.kill)
            device, _ = server.accept()
        expected = []
        with device:
            for seq in range(200):
                time = digits(utc(1614834367 + seq))
                fields = {"serial": 1234, "seq": str(seq), "number": seq % 20, "low": 10, "high": 1000,
                          "below": source.random() < 0.5, "threshold": 5000, "duration": 30}
                occurrence, lines = device_line(time, fields, source.random() < 0.5)
                expected += lines
                device.sendall(occurrence["line"].encode() + b"\n")
                self.assertEqual(maker.stdout.readline(), "logged\n")
            self.assertEqual(maker.wait(60), 0)
        lines = read_diary.read(next(pathlib.Path(folder.name).iterdir()))
        self.assertEqual(lines.pop()["text"], LAST)
        self.assertEqual(lines, expected)

    # --- rainy day flows

    def test_killed_program_loses_no_line(self):
        sent, expected = self.any_occurrences("UTC")
        _, lines = self.write("UTC", sent, "die")
        self.assertEqual(lines, expected)

    def test_skipped_hour_goes_on_by_the_time_of_before(self):
        for zone, day, skipped in (("America/Vancouver", "2021-03-14", "02"), ("Europe/London", "2021-03-28", "01")):
            times = self.digits_of_the_device(zone, day)
            for written, kept in times.items():
                hour = written[11:13]
                later = f"{int(hour) + 1:02}" if hour == skipped else hour
                self.assertEqual(kept, written[:11] + later + written[13:])

    def test_wrong_times_are_the_epoch(self):
        for written in ("2021-02-30 05:06:07", "2021-03-04 24:00:00", "yesterday", ""):
            _, lines = self.write("Asia/Kolkata", [{"line": f"{written}, SN 1234, Epoch 3, Ended"}])
            self.assertEqual(lines[0]["time"], "1970-01-01 05:30:00")

    def test_lines_that_are_none_are_refused(self):
        for line in ("", "2021-03-04 05:06:07", "2021-03-04 05:06:07, X, 1, , , a", "05:06:07, P, 1, , , a",
                     "2021-03-04 05:06:07, P, 1, E, 3, Started, S, 100, 10-1000 Hz, > 1 uPa"):
            with self.assertRaises(ValueError):
                read_diary.said(line)


if __name__ == "__main__":
    unittest.main()
