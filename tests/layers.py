#!/usr/bin/env python3
"""Rejects an #include against the arrows of the layers. The lists below are the architecture: a folder may include
itself and what stands in the lines above it, as the line says."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
KERNELS = ["globals", "host", "fluids/grids", "fluids/scene"]
# folder -> folders that it may include (itself is always allowed)
ALLOWED = {
    "globals": [],
    "host/threads": ["globals"],
    "host/description": ["globals"],
    "host/objects": ["globals", "host/description"],
    "host/ui": ["globals"],
    "host/files": ["globals"],
    "host/noise": ["globals"],
    "host/geometry": ["globals", "host/description", "host/objects", "host/files", "host/threads"],
    "host/render": ["globals", "host"],
    "fluids/grids": ["globals", "host/threads"],
    "fluids/scene": ["globals", "host", "fluids/grids"],
    "fluids/channels": KERNELS,
    "fluids/volume": KERNELS,
    "fluids/constraints": KERNELS + ["fluids/channels", "fluids/volume"],
    "fluids/emitters": KERNELS + ["fluids/channels", "fluids/volume", "fluids/constraints"],
    "fluids/dynamics": KERNELS + ["fluids/channels", "fluids/volume", "fluids/constraints", "fluids/emitters"],
}
NODES = KERNELS + ["fluids/channels", "fluids/volume", "fluids/constraints", "fluids/emitters", "fluids/dynamics"]
for family in ["forces", "operators", "caches", "volume_renderer"]:
    ALLOWED["fluids/" + family] = NODES
ALLOWED["exchange"] = ["globals", "host", "fluids"]
ALLOWED["main"] = ["globals", "host", "fluids"]
ALLOWED["apps"] = ["globals", "host", "fluids", "main", "exchange"]


def folder_of(path):
    """The longest listed folder that holds path."""
    best = ""
    for folder in ALLOWED:
        if path.startswith(folder + "/") and len(folder) > len(best):
            best = folder
    return best


def main():
    bad, checked = [], 0
    for pattern in ("*.h", "*.cpp"):
        for file in ROOT.rglob(pattern):
            path = file.relative_to(ROOT).as_posix()
            own = folder_of(path)
            if not own:
                if path.split("/")[0] not in ("tests", "benchmarks", "fuzz", "build"):
                    bad.append(f"{path}: stands in no layer")
                continue
            for number, line in enumerate(file.read_text(errors="replace").splitlines(), 1):
                match = re.match(r'\s*#include "([^"]+)"', line)
                if not match:
                    continue
                checked += 1
                target = match.group(1)
                allowed = [own] + ALLOWED[own]
                if not any(target.startswith(folder + "/") for folder in allowed):
                    bad.append(f'{path}:{number}: {own} must not include "{target}"')
    for line in bad:
        print(line)
    print(f"layers: {checked} includes checked, {len(bad)} against the arrows")
    return 1 if bad or checked == 0 else 0


sys.exit(main())
