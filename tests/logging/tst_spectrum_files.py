#!/usr/bin/env python3
"""Reads each kind of text file as docs/file-formats.md gives it, with csv and numpy, and compares with what was sent.

    tst_spectrum_files.py MAKER      MAKER writes the files and sent.json into the directory that it is given
"""
import calendar
import csv
import json
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

import numpy

MAKER = sys.argv.pop(1)
TYPES = {"spectrum": 0, "filtered": 0, "statistics": 2, "impulse": 4, "accmag": 6, "battery": 7, "timing": 8, "click": 9,
         "noise": 10}


def seconds(text):
    return calendar.timegm(time.strptime(text, "%Y-%m-%d %H:%M:%S"))


class SpectrumFiles(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        subprocess.run([MAKER, cls.folder.name], check=True, timeout=240)
        cls.sent = json.loads((pathlib.Path(cls.folder.name) / "sent.json").read_text(encoding="utf-8"))

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def read(self, kind):
        """Header entries, titles and records of a kind's file."""
        path = self.sent[kind]["file"]
        self.assertTrue(pathlib.Path(path).read_bytes().endswith(b"\n"))
        rows = list(csv.reader(open(path, encoding="utf-8", newline=""), delimiter="\t", quoting=csv.QUOTE_NONE))
        titles, *records = rows[[row[0] for row in rows].index("Time"):]
        self.assertEqual(rows[0], ["Nerivox spectrum file", "1"])
        header = {row[0]: row[1] for row in rows[1:len(rows) - len(records) - 1]}
        self.assertEqual(header["Type"], str(TYPES[kind]))
        self.assertEqual(len(records), len(self.sent[kind]["records"]))
        for record in records:
            self.assertEqual(len(record), len(titles))
        return header, titles, records

    def compare(self, kind, numbers, first_level=None):
        """Equal to what was sent; from column first_level on as far as single precision goes, in which levels are kept."""
        for got, sent in zip(numbers, self.sent[kind]["records"], strict=True):
            self.assertEqual(got[:first_level], sent[:first_level])
            if first_level is not None:
                self.assertEqual([numpy.float32(value) for value in got[first_level:]],
                                 [numpy.float32(value) for value in sent[first_level:]])

    def check_spectra(self, kind):
        header, titles, records = self.read(kind)
        self.assertEqual(header["Serial"], "77")
        self.assertEqual(header["Start"], "2024-02-29 12:34:56")
        self.assertEqual(float(header["Sensitivity (dB re 1 V/uPa)"]), -170.4)
        frequencies = numpy.array([float(title) for title in titles[5:]])
        numpy.testing.assert_array_equal(frequencies, numpy.arange(513) * 48000 / 1024)
        self.assertEqual({record[1] for record in records}, {'"quoted", with a comma; Ünïcödé'})
        numbers = [[seconds(record[0])] + [float(field) for field in record[2:]] for record in records]
        for number, sent in zip(numbers, self.sent[kind]["records"], strict=True):
            # Temperature and humidity are kept in single precision.
            self.assertEqual(numpy.float32(number[1]), numpy.float32(sent[1]))
            self.assertEqual(numpy.float32(number[2]), numpy.float32(sent[2]))
            self.assertEqual([number[0]] + number[3:], [sent[0]] + sent[3:])

    def test_spectrum(self):
        self.check_spectra("spectrum")

    def test_filtered_spectrum(self):
        self.check_spectra("filtered")

    def test_noise(self):
        self.assertTrue(self.sent["noise"]["file"].endswith("/F_CAL_77_DEV.txt"))
        self.check_spectra("noise")

    def test_form_of_the_values_is_stated(self):
        for kind, form in (("spectrum", "bytes"), ("filtered", "decimals"), ("noise", "bytes")):
            self.assertEqual(self.read(kind)[0]["Values"], form)

    def test_numpy_alone_reads_spectra(self):
        path = self.sent["spectrum"]["file"]
        lines = pathlib.Path(path).read_text(encoding="utf-8").split("\n")
        start = next(index for index, line in enumerate(lines) if line.startswith("Time\t"))
        bins = numpy.loadtxt(path, delimiter="\t", skiprows=start + 1, usecols=range(5, 5 + 513), comments=None,
                             encoding="utf-8")
        numpy.testing.assert_array_equal(bins, numpy.array([sent[4:] for sent in self.sent["spectrum"]["records"]]))

    def check_records(self, kind, first_level=None):
        _, titles, records = self.read(kind)
        self.assertEqual(titles[:4], ["Time", "Comment", "Device", "Serial"])
        self.compare(kind, [[seconds(record[0])] + [float(field) for field in record[3:]] for record in records],
                     first_level)

    def test_impulse(self):
        self.check_records("impulse", 7)

    def test_click(self):
        self.check_records("click", 7)

    def test_statistics(self):
        self.check_records("statistics", 4)

    def test_accelerometer_and_magnetometer(self):
        self.check_records("accmag")

    def test_battery(self):
        self.check_records("battery")

    def test_timing(self):
        _, titles, records = self.read("timing")
        self.compare("timing", [[seconds(record[0])] + [int(field) for field in record[3:6]] for record in records])
        sent = self.sent["timing"]["records"]
        self.assertEqual(records[0][6:8], ["", ""])
        for before, after, record in zip(sent, sent[1:], records[1:]):
            self.assertEqual(record[6:8], [str(after[3] - before[3]), str(after[2] - before[2])])
        self.assertEqual(titles[8], "Name")


if __name__ == "__main__":
    unittest.main()
