"""Fills a folder with random lists as the interpreter's own plistlib writes them: N.xml, with sorted keys,
and N.bin, the binary form."""

import datetime
import pathlib
import plistlib
import random
import sys

LISTS = 300
PIECES = ["a", "Z", "<&>", " ", "\n\t", "\"'", "\u00e9", "\ue000", "\ufffd", "\U0001f600", "\x7f"]
wild = random.Random(20261122)


def text():
    return "".join(wild.choices(PIECES, k=wild.randrange(6)))


def value(depth):
    kinds = [
        lambda: wild.random() < 0.5,
        lambda: wild.randrange(-(2**63), 2**64) >> wild.randrange(64),
        lambda: wild.uniform(-1, 1) * 10 ** wild.randrange(15),
        lambda: datetime.datetime.min + datetime.timedelta(seconds=wild.randrange(315537897600)),
        lambda: wild.randbytes(wild.randrange(120)),
        text,
        lambda: [value(depth - 1) for _ in range(wild.randrange(6))],
        lambda: {text(): value(depth - 1) for _ in range(wild.randrange(20))},
    ]
    return wild.choice(kinds if depth > 0 else kinds[:-2])()


for n in range(LISTS):
    made = value(5)
    for _ in range(n % 12):
        made = [made]
    target = pathlib.Path(sys.argv[1], str(n))
    target.with_suffix(".bin").write_bytes(plistlib.dumps(made, fmt=plistlib.FMT_BINARY))
    target.with_suffix(".xml").write_bytes(plistlib.dumps(made))
