#!/usr/bin/env python3
"""Writes a settings file by Python's own module, texts as Qt expects them.

    write_ini.py FILE      reads {group: {key: text}} from its input as JSON
"""
import configparser
import json
import sys

NAMED = {'"': r"\"", "\\": r"\\", "\n": r"\n", "\r": r"\r", "\t": r"\t"}


def quoted(text):
    # A text of decimals or letters alone stands for itself; ", " in a bare one makes a list.
    if text.isalnum() or text.startswith("bare:"):
        return text.removeprefix("bare:")
    return '"' + "".join(NAMED.get(char, char) for char in text) + '"'


parser = configparser.ConfigParser(interpolation=None)
parser.optionxform = str  # keys keep their case
for group, values in json.load(sys.stdin).items():
    parser[group] = {key.replace("/", "\\"): quoted(text) for key, text in values.items()}
with open(sys.argv[1], "w", encoding="utf-8", newline="\n") as file:
    parser.write(file)
