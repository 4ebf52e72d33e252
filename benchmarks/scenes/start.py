#!/usr/bin/env python3
"""start.py FOLDER: writes a scene of some fifty nodes and five meshes of 100,000 triangles, for the time that a scene takes
until its first sub-step:

    python3 benchmarks/scenes/start.py /tmp/start
    time build/release/bin/orlix validate /tmp/start/start.json
    time build/release/bin/orlix run /tmp/start/start.json --frames 0 --out /tmp/start/out
"""
import json
import math
import pathlib
import sys

ROUND, ACROSS, MESHES, SOLIDS, SMOKES = 250, 200, 5, 2, 4


def torus(phase):
    def point(i, j):
        u, v = 2 * math.pi * i / ROUND, 2 * math.pi * j / ACROSS
        tube = 0.1 + 0.01 * math.sin(7 * u + phase) * math.sin(5 * v)
        ring = 0.3 + tube * math.cos(v)
        return f"v {ring * math.cos(u):.6f} {tube * math.sin(v):.6f} {ring * math.sin(u):.6f}\n"

    def faces(i, j):
        a, b = i * ACROSS + j + 1, i * ACROSS + (j + 1) % ACROSS + 1
        c, d = (i + 1) % ROUND * ACROSS + j + 1, (i + 1) % ROUND * ACROSS + (j + 1) % ACROSS + 1
        return f"f {a} {b} {d}\nf {a} {d} {c}\n"

    cells = [(i, j) for i in range(ROUND) for j in range(ACROSS)]
    return "".join(point(*c) for c in cells) + "".join(faces(*c) for c in cells)


def emitter(n):
    children = []
    for channel in [f"smoke {m}" for m in range(SMOKES)] + ["temperature"]:
        children += [{"type": "channelsettings", "name": f"{n} into {channel}", "channel": channel, "settings": f"{n} {channel}"},
                     {"type": "emission_setting", "name": f"{n} {channel}", "mode": "add", "value": 1}]
    return {"type": "gridemitter", "name": f"Emitter {n}", "volume": f"Volume {n}",
            "pairs": [c["name"] for c in children if c["type"] == "channelsettings"], "children": children}


def advection(channel):
    node = {"type": "grid_advection", "name": f"Move {channel}", "solver": "Air", "scheme": "maccormack"}
    return node if channel == "air" else node | {"channel": channel, "stage": 14}


def scene():
    channels = [{"type": "channel_scalar", "name": f"smoke {m}", "value_max": 10} for m in range(SMOKES)]
    channels.append({"type": "channel_temp", "name": "temperature", "value_max": 5000})
    volumes = [{"type": "volume", "name": f"Volume {n}", "object": f"Torus {n}"} for n in range(MESHES)]
    for solid in volumes[:SOLIDS]:
        solid["tags"] = [{"type": "c4d_obstacle"}]
    air = {"type": "fluid", "name": "Air", "container": [440, 320, 200], "anchor_mode": "bottom", "margin": 8,
           "face_y_max": "open", "pressure_solver": "multigrid", "forces": ["Lift", "Swirl", "Weight"]}
    forces = [{"type": "force_buoyancy", "name": "Lift", "temperature": "temperature", "density": "smoke 0"},
              {"type": "force_swirling", "name": "Swirl", "strength": 1}, {"type": "force_gravity", "name": "Weight"}]
    moves = [advection(channel) for channel in ["air"] + [c["name"] for c in channels]]
    nodes = [air, *channels, *volumes, *(emitter(n) for n in range(SOLIDS, MESHES)), *forces, *moves]
    room = {"type": "scene", "name": "Room", "scale_units": 100, "scale_metres": 1, "voxel_size": 0.04, "children": nodes}
    meshes = [{"type": "mesh", "name": f"Torus {n}", "file": f"torus{n}.obj", "position": [70 * (n - 2), 60 + 25 * n, 0],
               "scale": [100, 100, 100]} for n in range(MESHES)]
    return {"orlix": 1, "fps": 24, "frames": [0, 2], "up": "y", "objects": [*meshes, room],
            "output": [{"folder": "out", "file_name": "start"}]}


folder = pathlib.Path(sys.argv[1])
folder.mkdir(parents=True, exist_ok=True)
for number in range(MESHES):
    (folder / f"torus{number}.obj").write_text(torus(number))
(folder / "start.json").write_text(json.dumps(scene(), indent=1))
