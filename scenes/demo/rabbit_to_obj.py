#!/usr/bin/env python3
"""Turns the rabbit of the npm package `bunny` (exports.positions and exports.cells, as JSON) into an OBJ file."""
import json
import re
import sys


def array(text, name):
    start = re.search(r"exports\." + name + r"\s*=\s*", text).end()
    return json.JSONDecoder().raw_decode(text[start:])[0]


def main(source, target):
    text = open(source).read()
    with open(target, "w") as out:
        for x, y, z in array(text, "positions"):
            out.write(f"v {x} {y} {z}\n")
        for a, b, c in array(text, "cells"):
            out.write(f"f {a + 1} {b + 1} {c + 1}\n")


main(*sys.argv[1:])
