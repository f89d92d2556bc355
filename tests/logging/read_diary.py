"""Reads a diary of epochs as docs/file-formats.md gives it."""
import re

DETAILS = r"(?:, S, (?P<digits>\d+)(?:, (?P<low>\d+)-(?P<high>\d+) Hz,  (?P<sign>[<>]) (?P<threshold>-?\d+) uPa, " \
          r"Duration \(sec\): (?P<seconds>\d+))?)?"
FORMS = [re.compile(r"(?P<time>\d{4}-\d\d-\d\d \d\d:\d\d:\d\d), " + form) for form in (
    r"(?P<who>P), (?P<text>Logging Started)",
    r"(?P<who>[PU]), (?P<serial>\d+), E, (?P<number>\d+)(?:, (?P<state>[^,]+)" + DETAILS + r")?(?:, (?P<share>[^,]+)%)?",
    r"(?P<who>[PD]), (?P<serial>\d+), , ,  \*{15} File: (?P<file>.*) \*{15} ",
    r"(?P<who>[PD]), (?P<serial>\d+), , , (?P<text>.+)")]


def read(path):
    """The lines of a diary, in order, each as a dictionary of what it says. Raises ValueError at what is none."""
    with open(path, encoding="utf-8", newline="") as file:
        text = file.read()
    if not text.endswith("\n"):
        raise ValueError(f"the last line has no end: {text[-80:]!r}")
    return [said(line) for line in text[:-1].split("\n")]


def said(line):
    for form in FORMS:
        match = form.fullmatch(line)
        if match:
            return {name: value for name, value in match.groupdict().items() if value is not None}
    raise ValueError(f"no line of a diary: {line!r}")
