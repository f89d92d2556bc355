#!/usr/bin/env python3
"""Reads a settings file by Python's own module and says what is in it, as JSON: {group: {key: text}}."""
import configparser
import json
import sys

parser = configparser.ConfigParser(interpolation=None)
parser.optionxform = str  # keys keep their case
with open(sys.argv[1], encoding="utf-8") as file:
    parser.read_file(file)
json.dump({name: dict(parser[name]) for name in parser.sections()}, sys.stdout)
