#!/usr/bin/env python3
"""Reads a settings file by Python's own module, decodes what Qt escapes, and says what is in it, as JSON.

    read_ini.py FILE      {group: [[key, text], ...]} in the order of the file, groups within a group as group/key
"""
import configparser
import json
import re
import sys

ESCAPE = re.compile(r"\\(?:x([0-9a-fA-F]+)|([0-7]+)|(.))", re.DOTALL)
NAMED = {"a": "\a", "b": "\b", "f": "\f", "n": "\n", "r": "\r", "t": "\t", "v": "\v"}


def unescape(match):
    hexadecimal, octal, char = match.groups()
    if hexadecimal:
        return chr(int(hexadecimal, 16))
    return chr(int(octal, 8)) if octal else NAMED.get(char, char)


def value_of(text):
    if len(text) > 1 and text.startswith('"') and text.endswith('"'):
        text = text[1:-1]
    text = ESCAPE.sub(unescape, text)
    if text.startswith("@String(") and text.endswith(")"):
        return text[len("@String("):-1]
    return text[1:] if text.startswith("@@") else text


def key_of(text):
    text = re.sub(r"%U([0-9A-F]{4})|%([0-9A-F]{2})", lambda match: chr(int(match[1] or match[2], 16)), text)
    return text.replace("\\", "/")


parser = configparser.ConfigParser(interpolation=None)
parser.optionxform = str  # keys keep their case
with open(sys.argv[1], encoding="utf-8", newline="\n") as file:
    parser.read_file(file)
json.dump({name: [[key_of(key), value_of(value)] for key, value in parser[name].items()] for name in parser.sections()},
          sys.stdout)
