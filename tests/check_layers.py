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

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def resolve(src, path, quote, name):
    """The file under src that the include names, or None."""
    places = ([path.parent] if quote == '"' else []) + [src]
    for place in places:
        target = (place / name).resolve()
        if target.is_file() and target.is_relative_to(src):
            return target
    return None


def includes(src, files):
    """Each file's includes of files under src, with their line numbers."""
    graph = {}
    for path in files:
        found = graph[path] = []
        for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
            match = INCLUDE.match(line)
            target = match and resolve(src, path, match.group(1), match.group(2))
            if target:
                found.append((number, target))
    return graph


def loops(graph):
    """One list of files for each loop of includes, found depth first."""
    state = {}
    found = []

    def visit(path, stack):
        state[path] = "open"
        stack.append(path)
        for _, target in graph.get(path, []):
            if state.get(target) == "open":
                found.append(stack[stack.index(target):] + [target])
            elif target not in state:
                visit(target, stack)
        stack.pop()
        state[path] = "done"

    for path in graph:
        if path not in state:
            visit(path, [])
    return found


def main(root):
    src = (pathlib.Path(root) / "src").resolve()
    folders = sorted(p.name for p in src.iterdir() if p.is_dir())
    unknown = [f for f in folders if f not in LAYERS]
    if unknown:
        print(f"folders without a layer: {', '.join(unknown)}")
        return 1
    rank = {name: i for i, name in enumerate(LAYERS)}
    files = sorted(p for p in src.rglob("*") if p.suffix in (".h", ".cpp", ".inc"))
    graph = includes(src, files)
    broken = 0
    for path, found in graph.items():
        folder = path.relative_to(src).parts[0]
        for number, target in found:
            above = target.relative_to(src).parts[0]
            if rank[above] > rank[folder]:
                print(f"src/{path.relative_to(src)}:{number}: {folder} includes {above}, a layer above it")
                broken += 1
    for loop in loops(graph):
        print("a loop of includes: " + " -> ".join(str(p.relative_to(src)) for p in loop))
        broken += 1
    print(f"{broken} includes against the layers")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else "."))
