#!/usr/bin/env python3
"""The folders of src/ are layers: a file includes only headers of its own
folder and of the folders below it, in the order of LAYERS, and no file
includes itself back through others. Every include is resolved as the
compiler finds it, beside the file first ("x.h", "../records/x.h") and then
under src/ ("records/x.h", <records/x.h>). Prints each include that breaks
the order and each loop, and exits 1 if there is one."""
import pathlib
import re
import sys

# From the bottom up.
LAYERS = ["platform", "frame", "formats", "tablefile", "fields", "catalogue",
          "records", "values", "edits", "navigation", "search", "table"]

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def resolve(src, path, quote, name):
    """The file under src that an include names, or None."""
    for place in ([path.parent] if quote == '"' else []) + [src]:
        target = (place / name).resolve()
        if target.is_file() and target.is_relative_to(src):
            return target
    return None


def loops(graph):
    """The loops of includes, each as its files, found depth first."""
    state, found = {}, []

    def visit(path, stack):
        state[path] = "open"
        for target in graph[path]:
            if state.get(target) == "open":
                found.append(stack[stack.index(target):] + [target])
            elif target not in state:
                visit(target, stack + [target])
        state[path] = "done"

    for path in graph:
        if path not in state:
            visit(path, [path])
    return found


def main(root):
    src = (pathlib.Path(root) / "src").resolve()
    unknown = sorted(p.name for p in src.iterdir() if p.is_dir() and p.name not in LAYERS)
    if unknown:
        print(f"folders without a layer: {', '.join(unknown)}")
        return 1
    rank = {name: i for i, name in enumerate(LAYERS)}
    graph, broken = {}, []
    for path in sorted(p for p in src.rglob("*") if p.suffix in (".h", ".cpp", ".inc")):
        text = path.read_text(errors="replace")
        graph[path] = []
        for match in INCLUDE.finditer(text):
            target = resolve(src, path, *match.groups())
            if target is None:
                continue
            graph[path].append(target)
            folder, above = path.relative_to(src).parts[0], target.relative_to(src).parts[0]
            if rank[above] > rank[folder]:
                line = text.count("\n", 0, match.start()) + 1
                broken.append(f"src/{path.relative_to(src)}:{line}: {folder} includes {above}, a layer above it")
    broken += ["a loop of includes: " + " -> ".join(str(p.relative_to(src)) for p in loop) for loop in loops(graph)]
    print("\n".join(broken + [f"{len(broken)} includes against the layers"]))
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else "."))
