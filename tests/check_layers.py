#!/usr/bin/env python3
"""The folders of src/ are layers: a file includes only headers of its own
folder and of the folders below it, in the order of LAYERS. Prints each
include that breaks the order and exits 1 if there is one."""
import pathlib
import re
import sys

# From the bottom up.
LAYERS = ["platform", "frame", "formats", "tablefile", "fields", "catalogue",
          "records", "values", "edits", "navigation", "search", "table"]

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"/]+)/')


def main(root):
    src = pathlib.Path(root) / "src"
    folders = sorted(p.name for p in src.iterdir() if p.is_dir())
    unknown = [f for f in folders if f not in LAYERS]
    if unknown:
        print(f"folders without a layer: {', '.join(unknown)}")
        return 1
    rank = {name: i for i, name in enumerate(LAYERS)}
    broken = 0
    for path in sorted(src.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".inc"):
            continue
        folder = path.relative_to(src).parts[0]
        for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
            match = INCLUDE.match(line)
            if match and match.group(1) in rank and rank[match.group(1)] > rank[folder]:
                print(f"{path.relative_to(root)}:{number}: {folder} includes {match.group(1)}, a layer above it")
                broken += 1
    print(f"{broken} includes against the layers")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else "."))
