#!/usr/bin/env python3
"""Makes the pictures of docs/materials and writes the list of docs/materials.md: each preset of the gas material, on a
plume, a flame or an explosion. Names of presets choose some."""
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
ORLIX = ROOT / "build/release/bin/orlix"
PAGE = ROOT / "docs/materials.md"
PICTURES = ROOT / "docs/materials"
MOST_BYTES = 80 << 10
BEGIN, END = "<!-- presets, by materials.py -->", "<!-- end of presets -->"


def presets():
    """Names and texts, from the reference."""
    row = next(line for line in (ROOT / "docs/reference/gas.md").read_text().splitlines() if "`preset`" in line)
    names = re.findall(r"\d+ ([a-z ]+)", row.split("|")[5])
    return [name.strip() for name in names if name.strip() != "none"]


def scene_of(name):
    """The scene, the path of its material and the frame that is shown."""
    if name == "fireball":
        return ROOT / "scenes/explosion.json", "Fireball", 22
    if name == "fire":
        return PICTURES / "fire.json", "Look", 40
    return PICTURES / "smoke.json", "Look", 62


def make_picture(name):
    scene, material, frame = scene_of(name)
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([ORLIX, "render", scene, "--frames", str(frame), "--out", folder, "--size", "480x360", "--quiet",
                        "--set", f"{material}.preset={name}"], check=True)
        png = next(pathlib.Path(folder).rglob("*.png"))
        jpeg = PICTURES / (name.replace(" ", "_") + ".jpg")
        for quality in range(2, 32):
            subprocess.run(["ffmpeg", "-y", "-loglevel", "error", "-i", png, "-q:v", str(quality), jpeg], check=True)
            if jpeg.stat().st_size <= MOST_BYTES:
                return
    sys.exit(f"{jpeg} stays larger than {MOST_BYTES} bytes")


def write_page():
    cells = [f"![{name}](materials/{name.replace(' ', '_')}.jpg)<br>`\"preset\": \"{name}\"`" for name in presets()]
    rows = [cells[n:n + 3] for n in range(0, len(cells), 3)]
    table = "\n".join(["| | | |", "|---|---|---|"] + ["| " + " | ".join(row + [""] * (3 - len(row))) + " |" for row in rows])
    text = PAGE.read_text()
    head, tail = text.split(BEGIN)[0], text.split(END)[1]
    PAGE.write_text(f"{head}{BEGIN}\n\n{table}\n\n{END}{tail}")


chosen = sys.argv[1:] or presets()
for preset in chosen:
    if preset not in presets():
        sys.exit(f"there is no preset {preset}")
    make_picture(preset)
write_page()
