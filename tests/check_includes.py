#!/usr/bin/env python3
"""Holds the sources against the rule of who may include whom: check_includes.py ROOT

Layers and what their files may include, beside the headers of the system and of themselves. Only
PSI_FILES may include the headers of biTStream; PUBLIC headers, for other programs, only each other.
"""

import os.path
import pathlib
import re
import sys

RULES = {
    "vantor/tsa": [
        "vantor/outputs", "vantor/input", "vantor/audit/audit.h", "vantor/tsanalyze/tsan.h", "vantor/tsanalyze/readout.h",
        "libtollum/include", "common"],
    "vantor/outputs": [
        "vantor/audit/audit.h", "vantor/audit/clock.h", "vantor/mpegts",
        "vantor/tsanalyze/tsan.h", "vantor/tsanalyze/readout.h", "libtollum/include", "common"],
    "vantor/audit": ["vantor/mpegts", "vantor/misc/sized_record.h"],
    "vantor/input": ["libtollum/include"],
    "vantor/tsanalyze": ["vantor/mpegts", "vantor/misc", "libtollum/include"],
    "vantor/mpegts": [],
    "vantor/misc": ["libtollum/include"],
    "common": ["libtollum/include"],
    "libtollum": [],
    "libkorva": [
        "vantor/audit/audit.h", "vantor/input", "vantor/mpegts", "vantor/misc/sized_record.h",
        "libtollum/include"],
}
INCLUDE_DIRS = ["vantor", "libtollum/include", "common", "libkorva/include"]
PSI_FILES = {f"vantor/tsanalyze/{name}.cpp" for name in ("section", "pat", "pmt")} | {
    "vantor/audit/sections.cpp"}
PUBLIC = {
    "vantor/audit/audit.h", "vantor/tsanalyze/tsan.h", "vantor/tsanalyze/readout.h",
    "libkorva/include/korva/log.h"}
INCLUDE = re.compile(r'^\s*#\s*include\s*["<]([^">]+)[">]')


def violation(layer, source, header):
    if header.startswith("bitstream/"):
        return None if source in PSI_FILES else f"only {', '.join(sorted(PSI_FILES))} may use biTStream"
    places = (os.path.normpath(f"{d}/{header}") for d in [os.path.dirname(source), *INCLUDE_DIRS])
    found = next((place for place in places if (root / place).is_file()), None)
    if found and source in PUBLIC and found not in PUBLIC:
        return "a header for other programs includes only others of its kind"
    allowed = [layer, *RULES[layer]]
    if found and not any(found == place or found.startswith(place + "/") for place in allowed):
        return f"{layer} may include only {', '.join(allowed)}"


root = pathlib.Path(sys.argv[1])
sources = sorted(p for p in root.glob("[vcl]*/**/*") if p.suffix in (".h", ".cpp"))
failures = [] if sources else ["no sources found"]
for path in sources:
    source = path.relative_to(root).as_posix()
    layer = next((layer for layer in RULES if source.startswith(layer + "/")), None)
    for number, line in enumerate(path.read_text().splitlines(), 1):
        include = INCLUDE.match(line)
        if why := include and layer and violation(layer, source, include[1]):
            failures.append(f"{source}:{number}: {include[1]}: {why}")
sys.exit("\n".join(failures) or 0)
