#!/usr/bin/env python3
"""Writes the seeds of the fuzzers' corpora from the golden messages: each alone, all in one, and some broken ones.

    fuzz/make_corpus.py        run from anywhere; replaces the seeds under fuzz/corpus
"""
import pathlib
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


if __name__ == "__main__":
    seeds("control", make_golden.control_messages())
    seeds("marco", make_golden.marco_messages())
    seeds("stream", make_golden.stream_messages())
