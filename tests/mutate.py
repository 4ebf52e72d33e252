#!/usr/bin/env python3
"""Puts faults into the code, one at a time, and tells which of them the fast suite doesn't notice.

    tests/mutate.py                 all of tests/mutations.txt
    tests/mutate.py pressure gauss  those whose name or file holds one of the words
    tests/mutate.py --own pressure  asks the families' own test programs alone
    tests/mutate.py --joined gauss  of joined sources: sooner begun, and slower a fault; for a few dozen
    tests/mutate.py --check         only looks whether each fault still has its place in the code
    tests/mutate.py --check --move  with --check: writes the new file of those whose code has moved

It works on a copy of the tree under build/mutate, built as the release is and at the same place in its tree, so that ccache
has all but the faults. The family's own test program is built and run first; only when that sees nothing, all others are.
Ends with 1 when a fault stays unnoticed, with 2 when one has lost its place. build/mutate/results.txt keeps what was
found."""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "tests" / "mutations.txt"
WORK = ROOT / "build" / "mutate"
TREE = WORK / "tree"
BUILD = TREE / "build" / "release"
TIMEOUT = "180"  # s: a fault may make a loop endless


class Mutation:
    def __init__(self, name, file, line):
        self.name, self.file, self.line = name, file, line
        self.text = self.replacement = None
        self.place = None  # its file of today, with the code before and after the fault

    def pattern(self):
        """The text with any white space between its words and signs: a change of the layout loses nothing."""
        return re.compile(r"\s*".join(re.escape(part) for part in re.findall(r"\w+|[^\w\s]", self.text)))


def read_list():
    mutations = []
    for number, line in enumerate(LIST.read_text().splitlines(), 1):
        if line.startswith("#") or not line.strip():
            continue
        if line.startswith("- "):
            mutations[-1].text = line[2:]
        elif line.startswith("+ "):
            mutations[-1].replacement = line[2:]
        else:
            name, file = line.split()
            mutations.append(Mutation(name, file, number))
    for m in mutations:
        if m.text is None or m.replacement is None:
            sys.exit(f"{LIST}:{m.line}: {m.name} needs a line that begins with '- ' and one that begins with '+ '")
    return mutations


def tracked_files():
    out = subprocess.check_output(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT)
    return [f for f in out.decode().split("\0") if f and (ROOT / f).is_file()]


def find_places(mutations, root):
    """Finds each fault's code: in its file, or else in the one other file that has it. Gives those that have none."""
    sources = {f: (root / f).read_text() for f in tracked_files()
               if f.endswith((".h", ".cpp")) and not f.startswith(("tests/", "benchmarks/", "fuzz/"))}
    lost = []
    for m in mutations:
        pattern = m.pattern()
        hits = {f: list(pattern.finditer(text)) for f, text in sources.items()}
        own = hits.get(m.file, [])
        found_once = [m.file] if own else [f for f, found in hits.items() if len(found) == 1]
        if len(found_once) == 1 and len(hits[found_once[0]]) == 1:
            file, hit = found_once[0], hits[found_once[0]][0]
            m.place = (file, sources[file][:hit.start()], sources[file][hit.end():])
            if file != m.file:
                print(f"{m.name}: moved from {m.file} to {file}")
        else:
            why = f"stands {len(own)} times in {m.file}" if own else f"isn't in {m.file}, nor in one other file alone"
            print(f"tests/mutations.txt:{m.line}: {m.name}: '{m.text}' {why}. Write the same fault for the code of "
                  "today")
            lost.append(m)
    return lost


def write_moves(mutations):
    lines = LIST.read_text().splitlines()
    for m in mutations:
        if m.place and m.place[0] != m.file:
            lines[m.line - 1] = f"{m.name} {m.place[0]}"
    LIST.write_text("\n".join(lines) + "\n")


def synchronise():
    """Makes the copy of the tree equal to the tree; files that are equal keep their times."""
    wanted = set(tracked_files())
    for folder, folders, files in os.walk(TREE):
        if folder == str(TREE) and "build" in folders:
            folders.remove("build")
        for name in files:
            old = pathlib.Path(folder) / name
            if str(old.relative_to(TREE)) not in wanted:
                old.unlink()
    for f in wanted:
        to = TREE / f
        if not to.exists() or to.read_bytes() != (ROOT / f).read_bytes():
            to.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / f, to)


def run(*command):
    return subprocess.run(command, text=True, errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          env=os.environ | {"GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1"})


def build(*targets):
    command = ["cmake", "--build", str(BUILD), "-j", str(os.cpu_count())]
    return run(*command, *(["--target", *targets] if targets else []))


def test(*selection):
    return run("ctest", "--test-dir", str(BUILD), "-L", "fast", "-j", str(os.cpu_count()), "--timeout", TIMEOUT,
               "--stop-on-failure", "--output-on-failure", *selection)


def failed_test(output):
    program = re.search(r"Test +#\d+: (\S+) \.+ *\**(?:Failed|Exception|Timeout|Subprocess)", output)
    case = re.search(r"\[  FAILED  \] ([\w/.]+)", output)
    return f"{program.group(1) if program else '?'} {case.group(1) if case else '(ended or hung)'}"


def prepare(mutations, joined):
    """The programs that are asked first pass without a fault."""
    programs = sorted({own_program(m.place[0]) for m in mutations} - {None})
    configured = run("cmake", "-S", str(TREE), "-B", str(BUILD), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                     f"-DORLIX_JOIN={'ON' if joined else 'OFF'}")
    built = build(*[f"test_{p}" for p in programs], "orlix") if configured.returncode == 0 else configured
    tested = test("-R", f"^({'|'.join(programs)})$") if built.returncode == 0 else built
    if tested.returncode != 0:
        print(tested.stdout[-4000:])
        sys.exit("the code without faults must build and pass first")


def own_program(file):
    folder = pathlib.PurePath(file).parent
    while str(folder) != ".":
        if any((TREE / "tests" / folder).glob("*.cpp")):
            return str(folder).replace("/", "_")
        folder = folder.parent
    return None


def try_mutation(m, own_alone):
    """What noticed the fault: 'program Suite.Test'; None when nothing did."""
    file, before, after = m.place
    whole = (TREE / file).read_text()
    (TREE / file).write_text(before + m.replacement + after)
    try:
        own = own_program(file)
        if own:
            built = build(f"test_{own}", *(["orlix"] if own.startswith(("run", "apps")) else []))
            tested = test("-R", f"^{own}$") if built.returncode == 0 else built
        if own and own_alone and tested.returncode == 0:
            return None
        if not own or tested.returncode == 0:
            built = build()
            tested = test(*(["-E", f"^{own}$"] if own else [])) if built.returncode == 0 else built
        if built.returncode != 0:
            print(built.stdout[-3000:])
            return "NOT BUILT: write it otherwise"
        return failed_test(tested.stdout) if tested.returncode != 0 else None
    finally:
        (TREE / file).write_text(whole)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("words", nargs="*")
    parser.add_argument("--own", action="store_true")
    parser.add_argument("--joined", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--move", action="store_true")
    arguments = parser.parse_args()
    mutations = [m for m in read_list()
                 if not arguments.words or any(w in m.name or w in m.file for w in arguments.words)]
    if not arguments.check:
        WORK.mkdir(parents=True, exist_ok=True)
        synchronise()
    lost = find_places(mutations, ROOT if arguments.check else TREE)
    if arguments.move:
        write_moves(mutations)
    if arguments.check or lost:
        print(f"faults: {len(mutations)}, {len(lost)} without a place")
        sys.exit(2 if lost else 0)
    prepare(mutations, arguments.joined)
    unnoticed = []
    with open(WORK / "results.txt", "w") as results:
        for m in mutations:
            start = time.monotonic()
            noticed = try_mutation(m, arguments.own)
            if not noticed:
                unnoticed.append(m)
            line = f"{m.name:32} {noticed or 'NOT NOTICED'}"
            print(f"{line}  ({time.monotonic() - start:.0f} s)", flush=True)
            print(line, file=results, flush=True)
    print(f"faults: {len(mutations)}, noticed {len(mutations) - len(unnoticed)}")
    for m in unnoticed:
        print(f"not noticed: {m.name} in {m.place[0]}: '{m.text}' made '{m.replacement}'")
    sys.exit(1 if unnoticed else 0)


main()
