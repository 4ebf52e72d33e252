#!/usr/bin/env python3
"""A parameter's number is written once. A row of a table has it bare, or by a constant that ends in the row's key and
Id (voxel_size: kVoxelSizeId), so that a search for the key, without underscores and case aside, finds the row and all
that read or set it. Nothing else passes a bare number."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("apps", "benchmarks", "exchange", "fluids", "host", "main", "run", "tests")
# Here the host's containers and tables themselves are tried, with numbers of no type.
FREE = ("tests/host/", "tests/scene_file/", "tests/apps/")
ROW = re.compile(r"\b(?:Bool|Int|Choice|Float|Vector|String|File|Script|Link|List|Spline|Gradient)Parameter\(\s*"
                 r"([\w:]+),\s*\"(\w+)\"")
USE = re.compile(r"(?:(?:\.|->)(?:Set|Get(?:Bool|Int|Choice|Float|Double|Vec\w*|String|Link|ObjectLink|Spline\w*|"
                 r"Gradient|InExclude)(?:<[\w:]+>)?)|\bShownWhen)\((\d+)[,)]")


def camel(key):
    return "".join(word[:1].upper() + word[1:] for word in key.split("_"))


def main():
    bad, rows, uses = [], 0, 0
    for folder in FOLDERS:
        for file in sorted((ROOT / folder).rglob("*")):
            path = file.relative_to(ROOT).as_posix()
            if file.suffix not in (".h", ".cpp") or path.startswith(FREE):
                continue
            text = re.sub(r"//[^\n]*", "", file.read_text(errors="replace"))
            for match in ROW.finditer(text):
                rows += 1
                name = match[1].split("::")[-1]
                if name not in ("id",) and not name.isdigit() and not name.endswith(camel(match[2]) + "Id"):
                    line = text.count("\n", 0, match.start()) + 1
                    bad.append(f"{path}:{line}: {match[1]} is the number of \"{match[2]}\": call it k...{camel(match[2])}Id")
            for match in re.finditer(r"(?:\.|->)(?:Set|Get\w+)\([\w:]+|\bShownWhen\([\w:]+", text):
                uses += 1
            for match in USE.finditer(text):
                line = text.count("\n", 0, match.start()) + 1
                bad.append(f"{path}:{line}: the bare number {match[1]}: give it a name beside its row's class")
    for line in bad:
        print(line)
    print(f"parameters: {rows} rows and {uses} uses checked, {len(bad)} wrong")
    return 1 if bad or rows == 0 or uses == 0 else 0


sys.exit(main())
