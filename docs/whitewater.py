#!/usr/bin/env python3
"""Makes the small pictures of docs/whitewater: frame FRAME of scenes/breaking_wave.json at a low resolution, with one
setting of "Whitewater" changed in each. Names choose some; the page itself is written by hand."""
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
ORLIX = ROOT / "build/release/bin/orlix"
PICTURES = ROOT / "docs/whitewater"
MOST_BYTES = 80 << 10
FRAME = 21
QUICK = ["Coast.voxel_size=0.075", "Coast.render_voxel_size=0.075"]

# The name of a picture, and what differs from the shipped scene.
PICTURES_OF = {
    "shipped": [],
    "crest_rate": ["Whitewater.crest_rate=40000"],
    "trapped_air_min": ["Whitewater.trapped_air_min=10", "Whitewater.trapped_air_max=60"],
    "energy_min": ["Whitewater.energy_min=3"],
    "foam_life": ["Whitewater.foam_life=0.5"],
    "spray_boost": ["Whitewater.spray_boost=1.5"],
    "spray_kick": ["Whitewater.spray_kick=40"],
    "spray_to_foam": ["Whitewater.spray_to_foam=false"],
    "bubbles_enabled": ["Whitewater.bubbles_enabled=false"],
}


def make_picture(name):
    settings = [word for each in QUICK + PICTURES_OF[name] for word in ("--set", each)]
    with tempfile.TemporaryDirectory() as folder:
        command = [ORLIX, "--quiet", "render", ROOT / "scenes/breaking_wave.json", "--frames", str(FRAME), "--size", "480x270",
                   "--out", folder, *settings]
        subprocess.run(command, check=True)
        png = next(pathlib.Path(folder).rglob("*.png"))
        jpeg = PICTURES / f"{name}.jpg"
        for quality in range(3, 32):
            subprocess.run(["ffmpeg", "-y", "-loglevel", "error", "-i", png, "-q:v", str(quality), jpeg], check=True)
            if jpeg.stat().st_size <= MOST_BYTES:
                return
    sys.exit(f"{jpeg} stays larger than {MOST_BYTES} bytes")


def main(names):
    unknown = set(names) - set(PICTURES_OF)
    if unknown:
        sys.exit(f"no such picture: {', '.join(sorted(unknown))}")
    PICTURES.mkdir(exist_ok=True)
    for name in names or PICTURES_OF:
        make_picture(name)
        print(name, flush=True)


main(sys.argv[1:])
