#!/usr/bin/env python3
"""Rejects an #include against the arrows of the layers. CMakeLists.txt is the architecture: each folder with sources is
an orlix_library there (or an orlix_module, which programs load), and may include itself and what its DEPS lead to.
`layers.py --map` prints the rooms, lowest first, as ARCHITECTURE.md shows them."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FREE = ("tests", "benchmarks", "fuzz", "examples", "build", "out")


def read_layers():
    """Folder -> folders of its DEPS, in the order of the file."""
    layers = {}
    text = (ROOT / "CMakeLists.txt").read_text()
    for folder, rest in re.findall(r"^orlix_(?:library|module)\((\S+)([^)]*)\)", text, re.M):
        deps = []
        for name in re.findall(r"\borlix_(\w+)", rest):
            known = [f for f in layers if f.replace("/", "_") == name]
            if not known:
                sys.exit(f"CMakeLists.txt: {folder} depends on orlix_{name}, which no line above it makes")
            deps.append(known[0])
        layers[folder] = deps
    return layers


def reach(layers):
    """Folder -> all folders that it may include."""
    allowed = {}
    for folder, deps in layers.items():
        allowed[folder] = {folder}.union(*(allowed[d] for d in deps)) if deps else {folder}
    return allowed


def folder_of(path, layers):
    """The longest listed folder that holds path."""
    return max((f for f in layers if path.startswith(f + "/")), key=len, default="")


def main():
    layers = read_layers()
    if "--map" in sys.argv:
        for folder, deps in layers.items():
            print(f"{folder:24} {' '.join(deps)}")
        return 0
    allowed = reach(layers)
    bad, checked = [], 0
    for pattern in ("*.h", "*.cpp"):
        for file in ROOT.rglob(pattern):
            path = file.relative_to(ROOT).as_posix()
            if path.split("/")[0] in FREE:
                continue
            own = folder_of(path, layers)
            if not own:
                bad.append(f"{path}: stands in no layer")
                continue
            for number, line in enumerate(file.read_text(errors="replace").splitlines(), 1):
                match = re.match(r'\s*#include "([^"]+)"', line)
                if not match:
                    continue
                checked += 1
                beside = (file.parent / match.group(1)).is_file()
                if not beside and folder_of(match.group(1), layers) not in allowed[own]:
                    bad.append(f'{path}:{number}: {own} must not include "{match.group(1)}"')
    for line in bad:
        print(line)
    print(f"layers: {checked} includes checked, {len(bad)} against the arrows")
    return 1 if bad or checked == 0 else 0


sys.exit(main())
