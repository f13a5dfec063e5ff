"""Reads every N.xml of a folder and writes what the interpreter's own plistlib makes of it: N.bin, the binary
form, and N.out, the XML form with sorted keys and without the document type."""

import pathlib
import plistlib
import sys

for source in sorted(pathlib.Path(sys.argv[1]).glob("*.xml")):
    value = plistlib.loads(source.read_bytes())
    source.with_suffix(".bin").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_BINARY))
    lines = plistlib.dumps(value, fmt=plistlib.FMT_XML, sort_keys=True).splitlines(keepends=True)
    source.with_suffix(".out").write_bytes(b"".join(line for line in lines if not line.startswith(b"<!DOCTYPE")))
