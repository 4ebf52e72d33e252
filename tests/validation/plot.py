#!/usr/bin/env python3
"""Draws the pictures of docs/validation.md.

    mkdir -p out/validation
    ORLIX_VALIDATION=out/validation build/release/bin/test_validation --gtest_filter='*Slow*'
    tests/validation/plot.py out/validation docs/validation
"""

import csv
import pathlib
import sys

WIDTH, HEIGHT, LEFT, BOTTOM, TOP, RIGHT = 560, 320, 62, 46, 34, 12
COLOURS = ["#1f6fb4", "#d1495b", "#2a9d5c", "#8a5fb0", "#c98a1b"]

# name: title, label of x, label of y, range of y (or None), curves: (file, column, label, dashed)
PICTURES = {
    "column_front": ("Collapsing column: front", "T = t sqrt(2 g / width)", "front / width", None, [
        ("column_coarse", "front", "10 cells across the width", False),
        ("column_fine", "front", "20 cells across the width", False),
        ("column_coarse", "front (measured)", "Martin and Moyce 1952", True)]),
    "column_height": ("Collapsing column: height", "T = t sqrt(2 g / width)", "height / height at the start", None, [
        ("column_coarse", "height", "10 cells across the width", False),
        ("column_fine", "height", "20 cells across the width", False),
        ("column_coarse", "height (measured)", "Martin and Moyce 1952", True)]),
    "slosh": ("A standing wave, 48 cells long", "t (s)", "amplitude (m)", None, [
        ("slosh_48", "amplitude (m)", "simulated", False),
        ("slosh_48", "linear theory (m)", "linear theory", True)]),
    "torricelli": ("Outflow beneath a gate", "t (s)", "speed (m/s)", (0, 4.2), [
        ("torricelli_32", "speed (m/s)", "32 cells a metre", False),
        ("torricelli_64", "speed (m/s)", "64 cells a metre", False),
        ("torricelli_64", "Torricelli (m/s)", "Torricelli", True)]),
    "volume": ("Volume in 500 frames of violent sloshing", "frame", "volume / volume at the start", (0.8, 1.25), [
        ("volume_kept", "of the particles", "by the particles' density", False),
        ("volume_kept", "by the level set", "inside the level set", False)]),
    "rest": ("A tank at rest", "frame", "top speed (m/s)", (0, 1e-3), [
        ("rest_5", "top speed (m/s)", "with keep_volume", False),
        ("rest_0", "top speed (m/s)", "without", False)]),
}
LIMITS = {"column_front": 3.4, "column_height": 3.4}  # of x


def read(folder, name):
    with open(folder / f"{name}.csv") as file:
        rows = list(csv.reader(file))
    return {head: [float(row[n]) for row in rows[1:]] for n, head in enumerate(rows[0])}


def ticks(low, high):
    step = 10.0 ** len(str(int(high - low))) if high - low >= 1 else 1.0
    while (high - low) / step < 4:
        step /= 2 if (high - low) / step * 2 >= 4 else 5
    first = int(low / step) - 1
    return [round(n * step, 12) for n in range(first, first + 40) if low - 1e-12 <= n * step <= high + 1e-12]


def draw(folder, name):
    title, label_x, label_y, limits, wanted = PICTURES[name]
    curves = []
    for file, column, label, dashed in wanted:
        data = read(folder, file)
        x = data[next(iter(data))]
        points = [(a, b) for a, b in zip(x, data[column]) if a <= LIMITS.get(name, a)]
        curves.append((points, label, dashed))
    xs = [p[0] for points, _, _ in curves for p in points]
    ys = [p[1] for points, _, _ in curves for p in points]
    low_x, high_x = min(xs), max(xs)
    low_y, high_y = limits or (min(ys + [0]), max(ys) * 1.05)

    def at(x, y):
        return (LEFT + (x - low_x) / (high_x - low_x) * (WIDTH - LEFT - RIGHT),
                HEIGHT - BOTTOM - (y - low_y) / (high_y - low_y) * (HEIGHT - BOTTOM - TOP))

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT}" font-family="sans-serif" '
           f'font-size="12"><rect width="100%" height="100%" fill="white"/>',
           f'<text x="{LEFT}" y="20" font-size="14">{title}</text>']
    for x in ticks(low_x, high_x):
        px, py = at(x, low_y)
        out.append(f'<path d="M{px:.1f} {TOP}V{py:.1f}" stroke="#ddd"/>'
                   f'<text x="{px:.1f}" y="{py + 16:.1f}" text-anchor="middle">{x:g}</text>')
    for y in ticks(low_y, high_y):
        px, py = at(low_x, y)
        out.append(f'<path d="M{px:.1f} {py:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>'
                   f'<text x="{px - 6:.1f}" y="{py + 4:.1f}" text-anchor="end">{y:g}</text>')
    out.append(f'<text x="{(WIDTH + LEFT) / 2}" y="{HEIGHT - 8}" text-anchor="middle">{label_x}</text>'
               f'<text transform="translate(14 {HEIGHT / 2}) rotate(-90)" text-anchor="middle">{label_y}</text>')
    for n, (points, label, dashed) in enumerate(curves):
        path = " ".join("%.1f,%.1f" % at(*p) for p in points[:: max(1, len(points) // 250)])
        dash = ' stroke-dasharray="6 4"' if dashed else ""
        colour = "#333" if dashed else COLOURS[n]
        out.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="1.6"{dash}/>')
        y = TOP + 14 + 16 * n
        out.append(f'<path d="M{WIDTH - 190} {y - 4}h22" stroke="{colour}" stroke-width="1.6"{dash}/>'
                   f'<text x="{WIDTH - 162}" y="{y}">{label}</text>')
    return "\n".join(out) + "\n</svg>\n"


def main():
    folder, target = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    target.mkdir(parents=True, exist_ok=True)
    for name in PICTURES:
        (target / f"{name}.svg").write_text(draw(folder, name))


if __name__ == "__main__":
    main()
