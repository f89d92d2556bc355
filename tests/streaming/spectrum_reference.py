#!/usr/bin/env python3
"""Computes again what a file of cases claims: total power, bins and noise filters of spectra.

Written from the formulas, standard library only. Each line of the file is one case as JSON; floats are hexadecimal
texts, so that no bit gets lost. Doubles must agree to 1e-9, floats and bins exactly. Ends with 1 and says what
differs first; on standard output comes the number of cases of each kind.
"""
import collections
import json
import math
import struct
import sys

TOLERANCE = 1e-9
SPECTRUM_FILE = 33


def single(value):
    """The nearest number of 32 bits."""
    return struct.unpack("<f", struct.pack("<f", value))[0]


def real(text):
    return float.fromhex(text)


def whole_decibels(values, stream_type):
    return values if stream_type == SPECTRUM_FILE else [(value + 1 & 0xFF) >> 1 for value in values]


class Range:
    """Frequencies that a stream covers, and the bins that they are."""

    def __init__(self, fraction, bins):
        self.fraction, self.bins = fraction, bins
        self.rate = self.low = self.high = 0
        self.width = 0.0

    def take_rate(self, rate):
        if rate != self.rate:
            self.rate, self.low, self.high = rate, 0, rate
        top = rate * self.fraction
        self.width = top / self.bins
        if top < self.low:
            self.low = 0
        if top < self.high:
            self.high = int(top)
        if self.high <= self.low:
            self.low, self.high = 0, int(top)

    def indices(self, enabled, fallback):
        if not enabled or self.width <= 0.000001:
            return [0, fallback]
        return [int(self.low / self.width), int(self.high / self.width)]


def check_power(case):
    covered = Range(real(case["fraction"]), case["bins"])
    covered.take_rate(case["rate"])
    covered.low, covered.high = case["low"], case["high"]
    covered.take_rate(case["rate"])
    first, last = covered.indices(case["enabled"], case["bins"])
    if [first, last] != case["indices"]:
        return f"bins {case['indices']} instead of {[first, last]}"

    values = whole_decibels(case["values"], case["type"])
    if values != case["decibels"]:
        return "other values in dB"
    noise = [real(text) for text in case["noise"]]
    offset = 0.0
    if noise:
        if [single(value - level) for value, level in zip(values, noise)] != [real(x) for x in case["filtered"]]:
            return "other filtered values"
    else:
        offset = single(real(case["fullScale"]) - real(case["sensitivity"]))
    power = math.fsum(math.pow(10.0, single(value + offset) * 0.1)
                      for bin, value in enumerate(values) if bin < case["bins"] and first <= bin <= last)
    total = 10 * math.log10(power) if power > 1e-9 else 0.0
    if abs(total - real(case["total"])) > TOLERANCE:
        return f"total {real(case['total'])!r} instead of {total!r}"
    return None


def noise_filter(spectra):
    count = len(spectra)
    data = [0.0] * len(spectra[0])
    for values in spectra:
        data = [single(total + value) for total, value in zip(data, values)]
    if count <= 1:
        return data
    average = [single(single(single(total + (count >> 1)) + 1.0) / count) for total in data]
    smooth = []
    for bin, level in enumerate(average):
        power = math.pow(10.0, level / 10.0)
        if bin > 0:
            power += 0.5 * math.pow(10.0, average[bin - 1] / 10.0)
        if bin < len(average) - 1:
            power += 0.5 * math.pow(10.0, average[bin + 1] / 10.0)
        smooth.append(single(single(10.0 * math.log10(power) + 0.5) - 3.0))
    return smooth


def check_filter(case):
    spectra = [[real(value) for value in values] for values in case["spectra"]]
    expected = noise_filter(spectra)
    if expected != [real(text) for text in case["filter"]]:
        return "another filter"
    return None


def main():
    checks = {"power": check_power, "filter": check_filter}
    counts = collections.Counter()
    with open(sys.argv[1], encoding="ascii") as file:
        for number, line in enumerate(file, 1):
            case = json.loads(line)
            wrong = checks[case["kind"]](case)
            if wrong:
                sys.exit(f"case {number}, {case['kind']}: {wrong}")
            counts[case["kind"]] += 1
    print(" ".join(f"{kind} {counts[kind]}" for kind in checks))


main()
