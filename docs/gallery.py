#!/usr/bin/env python3
"""Makes the pictures of docs/gallery and writes docs/gallery.md: each scene is run with all its frames, one of them is
shown. --quick makes the shown frames alone and keeps the times that the page has, --page writes the page by what is
there; names of scenes choose some. --keep FOLDER leaves four pictures over the length of each scene there, as they are."""
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
ORLIX = ROOT / "build/release/bin/orlix"
PAGE = ROOT / "docs/gallery.md"
PICTURES = ROOT / "docs/gallery"
MOST_BYTES, MOST_BYTES_IN_ALL = 80 << 10, 2 << 20

# Name of the scene, the frame that is shown, what there is to see. Scenes that aren't here follow by name, with their own
# first sentence.
SCENES = [
    ("demo", 60, "Smoke rises around a scanned rabbit."),
    ("smoke_plume", 75, "The smallest smoke: an emitter, two channels, buoyancy, open sides."),
    ("plume_around_obstacle", 52, "A plume meets a ball, parts and closes again, in a low sun."),
    ("explosion", 36, "Fuel, combustion, expansion: a fireball that rolls up from the ground."),
    ("campfire", 30, "A campfire: flames lick and tear off, sparks fly, thin smoke rises."),
    ("cumulus", 48, "A cumulus under a sun: light that scatters many times inside it."),
    ("coloured_smokes", 56, "A wall of coloured smokes, whose colours travel with them and mix."),
    ("torch", 30, "A torch lights a tunnel, and nothing else does."),
    ("candle", 14, "A small flame with the colours of a black body."),
    ("smoke_ring", 16, "A short push rolls smoke up into a ring that travels."),
    ("jet", 60, "Air is blown out of a pipe and breaks up into eddies."),
    ("wind_moving_obstacle", 64, "A wind tunnel: threads of smoke around a ball that rises and sinks, coloured by speed."),
    ("constraint_shaped_emission", 24, "Emission confined to a ring's skin, by height, by a noise and by what is there."),
    ("curl_and_vortex", 46, "A vortex winds a bar of smoke to a spiral, curl noise frays it."),
    ("scripted_knot", 36, "A knot of smoke: scripts say where it is, what colour it has and where it flows."),
    ("vortex_particles", 50, "Smoke made finer by vorticity particles, beside the same without."),
    ("dam_break", 14, "A column of water collapses."),
    ("dam_break_on_mesh", 24, "A wave meets a mesh."),
    ("breaking_wave", 20, "A bore breaks, with foam, spray and bubbles."),
    ("waterfall", 20, "A stream falls onto rocks, with mist and foam."),
    ("drops", 30, "Drops in a room without gravity: a liquid of particles alone."),
    ("two_liquids", 26, "Oil and water are poured into one glass."),
    ("ball_into_pool", 22, "A ball is thrown into a pool."),
    ("shaken_tank", 40, "A tank is shaken to and fro near the period of its own waves: the water climbs its walls."),
    ("floating_crate", 40, "A crate falls into a pool and floats."),
    ("crates_in_pool", 21, "Twenty crates of three densities."),
    ("raft", 14, "A crate lands on a raft."),
    ("dominoes_in_wave", 22, "A wave and a row of dominoes."),
    ("wall_in_wave", 18, "A wave breaks a wall of bricks."),
    ("ball_lets_go", 60, "A smoking ball is carried along an arc and let go."),
    ("pouring", 48, "Water is poured into a glass with thin walls."),
    ("fountain", 36, "A jet of water falls back into its basin."),
    ("honey", 36, "A viscous thread coils up on a plate."),
    ("csg_sculpture", 18, "A knot and a ball, blended, cut and smoothed by keyframes."),
    ("lettering", 7, "Letters of water fall and flow together into a sheet."),
    ("remeshed", 0, "A mesh, and what becomes of it: voxelised and meshed again, and smoothed."),
    ("reconstructions", 1, "The particles of three knots as surfaces, by each way of reconstruction."),
    ("embers", 34, "Embers rise from a fire and glow by the temperature of the air."),
    ("dust", 32, "A slab falls, and its air rolls up the dust on the ground."),
    ("rain", 36, "Drops burst on a ball."),
    ("dissolving_mesh", 76, "A knot of coloured grains dissolves in a curl flow."),
]
HEAD = """# Gallery

Every scene of [scenes/](../scenes). `./dev gallery` makes everything on this page anew and measures the time of all
frames of each scene, simulation and pictures, in processor seconds (two idle cores take a little more than half of it);
`./dev gallery --quick NAME` makes one picture. Of the times with "about", the simulation ran through, with pictures of
pairs of frames over its length; the other pictures are taken to cost as much as those. The machine did other
work meanwhile, by which the same run differs by a fifth.
"""


def add_others():
    known = {name for name, _, _ in SCENES}
    for file in sorted((ROOT / "scenes").glob("*.json")):
        if file.stem in known:
            continue
        text = file.read_text()
        comment = re.match(r"(?://.*\n)+", text)
        words = re.sub(r"\s*//\s*", " ", comment[0]).strip() if comment else file.stem
        last = re.search(r'"frames": \[\d+, (\d+)\]', text)
        SCENES.append((file.stem, int(last[1]) * 2 // 3 if last else 0, words.split(". ")[0].rstrip(".") + "."))


def processor_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def make_jpeg(png, jpeg):
    for quality in range(2, 32):
        subprocess.run(["ffmpeg", "-y", "-loglevel", "error", "-i", png, "-q:v", str(quality), jpeg], check=True)
        if jpeg.stat().st_size <= MOST_BYTES:
            return
    sys.exit(f"{jpeg} stays larger than {MOST_BYTES} bytes")


def make_picture(name, frame, quick, keep):
    """Seconds of the run, or None; the picture is in place afterwards if the scene makes one."""
    with tempfile.TemporaryDirectory() as folder:
        before = processor_seconds()
        frames = ["--frames", str(frame)] if quick else []
        command = [ORLIX, "--quiet", "render", ROOT / f"scenes/{name}.json", "--out", folder, *frames]
        if name == "demo":
            command, folder = [ROOT / "scenes/demo/run.sh", "--quiet", *frames], ROOT / "out/demo"
        done = subprocess.run(command)
        pictures = sorted(pathlib.Path(folder).rglob("*.png"))
        for quarter in range(4 if keep and pictures else 0):
            shutil.copy(pictures[quarter * (len(pictures) - 1) // 3], keep / f"{name}.{quarter}.png")
        if done.returncode:
            sys.exit(f"{name} ended with {done.returncode}")
        found = list(pathlib.Path(folder).rglob(f"*.{frame:04}.png"))
        if found:
            make_jpeg(found[0], PICTURES / f"{name}.jpg")
        return None if quick else processor_seconds() - before


def write_page(times):
    text = HEAD
    for name, frame, words in SCENES:
        text += f"\n## {name}\n\n{words}\n\n"
        if (PICTURES / f"{name}.jpg").exists():
            text += f"![{words}](gallery/{name}.jpg)\n\n"
        time = f"   # {times[name]} s" if name in times else ""
        command = "./dev demo" if name == "demo" else f"build/release/bin/orlix render scenes/{name}.json --out out/{name}"
        text += f"    {command}{time}\n"
    PAGE.write_text(text)
    size = sum(file.stat().st_size for file in PICTURES.iterdir())
    if size > MOST_BYTES_IN_ALL:
        sys.exit(f"the pictures take {size} bytes, more than {MOST_BYTES_IN_ALL}")


def main(arguments):
    add_others()
    quick = "--quick" in arguments
    keep = None
    if "--keep" in arguments:
        at = arguments.index("--keep")
        keep = pathlib.Path(arguments[at + 1])
        keep.mkdir(parents=True, exist_ok=True)
        del arguments[at:at + 2]
    names = [a for a in arguments if not a.startswith("--")]
    unknown = set(names) - {name for name, _, _ in SCENES}
    if unknown:
        sys.exit(f"no such scene: {', '.join(sorted(unknown))}")
    if not shutil.which("ffmpeg"):
        sys.exit("the gallery needs ffmpeg")
    old = PAGE.read_text() if PAGE.exists() else ""
    times = dict(re.findall(r"^    .*?(\w+)   # ((?:about )?\d+) s$", old, re.M))
    PICTURES.mkdir(exist_ok=True)
    if "--page" in arguments:
        return write_page(times)
    for name, frame, _ in SCENES:
        if names and name not in names:
            continue
        seconds = make_picture(name, frame, quick, keep)
        if seconds is not None:
            times[name] = round(seconds)
        print(f"{name}: frame {frame}" + ("" if seconds is None else f", {seconds:.0f} s in all"), flush=True)
        write_page(times)


main(sys.argv[1:])
