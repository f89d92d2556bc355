"""Prints as JSON what Python's own reader finds in a configuration file of an array controller."""
import configparser
import json
import sys

parser = configparser.RawConfigParser(strict=False, delimiters=("=",), comment_prefixes=(";", "#"), allow_no_value=True)
parser.optionxform = str
with open(sys.argv[1], encoding="latin-1") as file:
    # The lines ahead of any section are those of the section "*".
    parser.read_string("[*]\n" + file.read())
print(json.dumps({section: dict(parser[section]) for section in parser.sections()}))
