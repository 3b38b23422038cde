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
        "vantor/tsanalyze/tsan.h", "vantor/tsanalyze/readout.h", "libtollum/include", "common"],
    "vantor/tsanalyze": ["vantor/misc", "libtollum/include"],
    "vantor/misc": ["libtollum/include"],
    "common": ["libtollum/include"],
    "libtollum": [],
}
INCLUDE_DIRS = ["vantor", "libtollum/include", "common"]
GENERATED = {"build_checksum.h"}
PSI_FILES = {f"vantor/tsanalyze/{name}.cpp" for name in ("section", "pat", "pmt")}
PUBLIC = {
    "vantor/tsanalyze/tsan.h", "vantor/tsanalyze/readout.h", "libtollum/include/log/api.h"}
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def is_in(path, place):
    return path == place or path.startswith(place + "/")


def violation(root, layer, source, bracket, header):
    if header.startswith("bitstream/"):
        return None if source in PSI_FILES else "only section, pat and pmt.cpp may use biTStream"
    places = [source.rpartition("/")[0], *INCLUDE_DIRS]
    found = [os.path.normpath(f"{d}/{header}") for d in places if (root / d / header).is_file()]
    if not found:
        missing = bracket == '"' and header not in GENERATED
        return "no such header" if missing else None
    if source in PUBLIC and found[0] not in PUBLIC:
        return "a header for other programs includes only others of its kind"
    if any(is_in(found[0], place) for place in [layer, *RULES[layer]]):
        return None
    return f"{layer} may include only itself" + "".join(f", {place}" for place in RULES[layer])


root = pathlib.Path(sys.argv[1])
sources = sorted(p for p in root.glob("[vcl]*/**/*") if p.suffix in (".h", ".cpp"))
failures = [] if sources else ["no sources found"]
for path in sources:
    source = path.relative_to(root).as_posix()
    layer = next((layer for layer in RULES if is_in(source, layer)), None)
    for number, line in enumerate(path.read_text().splitlines(), 1):
        include = INCLUDE.match(line)
        if why := include and layer and violation(root, layer, source, *include.groups()):
            failures.append(f"{source}:{number}: {include[2]}: {why}")
sys.exit("\n".join(failures) or 0)
