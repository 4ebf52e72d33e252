#!/usr/bin/env python3
"""Puts faults into the code, one at a time, and tells which of them the fast suite doesn't notice.

    tests/mutate.py                 all of tests/mutations.txt
    tests/mutate.py pressure gauss  those whose name or file holds one of the words
    tests/mutate.py --own pressure  asks the families' own test programs alone
    tests/mutate.py --joined gauss  of joined sources: sooner begun, and slower a fault; for a few dozen
    tests/mutate.py --switched      puts all of them into one build, where a variable of the environment chooses one: a few
                                    seconds a fault. Those that can't be chosen so are tried one by one after that
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
TIMEOUT = "120"  # s: a fault may make a loop endless


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
    return run(*command, *(["--target", *targets] if targets else []), "--", "-k", "0")


def test(*selection):
    return run("ctest", "--test-dir", str(BUILD), "-L", "fast", "-j", str(os.cpu_count()), "--timeout", TIMEOUT,
               "--stop-on-failure", "--output-on-failure", *selection)


def failed_test(output):
    program = re.search(r"Test +#\d+: (\S+) \.+ *\**(?:Failed|Exception|Timeout|Subprocess)", output)
    case = re.search(r"\[  FAILED  \] ([\w/.]+)", output)
    return f"{program.group(1) if program else '?'} {case.group(1) if case else '(ended or hung)'}"


# --- faults that are chosen when a program starts -----------------------------------------------------------------------

NOTHING = re.compile(r'//[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'')
DECLARATION = re.compile(r"((?:(?:inline|static|constexpr|const)\s+)*)(?!return\b|else\b|throw\b)"
                         r"[A-Za-z_][\w:]*(?:<[^;=]*?>)?[\s*&]+(?=\w+\s*=[^=])")
HEADER = re.compile(r"(?:else\b|(?:if|for|while)(?:\s+constexpr)?\s*\(|default\s*:|case\s+\w+(?:::\w+)*\s*:(?!:))\s*")
HEAD = """extern int OrlixFault;
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
"""
SWITCH = """// Written by tests/mutate.py: which fault acts.
#include <cstdlib>
int OrlixFault = 0;
[[gnu::constructor(101)]] static void ReadFault() {
  const char* number = std::getenv("ORLIX_FAULT");
  OrlixFault = number ? std::atoi(number) : 0;
}
"""


def closing(text, at):
    """Where the bracket that opens at this place is closed."""
    depth = 0
    for n in range(at, len(text)):
        depth += (text[n] in "([{") - (text[n] in ")]}")
        if depth == 0:
            return n
    raise ValueError


def split_commas(text):
    """The parts between commas outside of brackets, where '<' is a comparison."""
    parts, depth, begin = [], 0, 0
    for n, c in enumerate(text):
        depth += (c in "([{") - (c in ")]}")
        if c == "," and depth == 0:
            parts.append(text[begin:n])
            begin = n + 1
    return parts + [text[begin:]]


def statement_around(plain, begin, end):
    """Begin and end of the statement that holds the code between begin and end."""
    left, depth = begin, 0
    while left > 0:
        c = plain[left - 1]
        if c in ")]" or (c == "}" and (depth > 0 or re.match(r"\s*[-+*/?:.,)<=&|]", plain[left:]))):
            depth += 1
        elif c in "([" and depth > 0:
            depth -= 1
        elif c == "{":
            before = plain[:left - 1].rstrip()
            if depth == 0 and (before[-1:] in ")" or re.search(r"\b(?:else|do|const|noexcept|mutable)$", before)):
                break
            depth -= depth > 0
        elif c in ";}" and depth == 0:
            break
        left -= 1
    right = closing(plain, end - 1) if plain[end - 1] == "{" else plain.index(";", end - 1)
    while right < len(plain) and sum((c in "([{") - (c in ")]}") for c in plain[left:right + 1]) > 0:
        right = plain.index(";", right + 1)
    left += len(plain[left:]) - len(plain[left:].lstrip())
    while header := HEADER.match(plain, left, begin):  # an 'if' or a loop around it
        inner = header.end()
        if header.group().rstrip().endswith("("):
            inner = closing(plain, header.start() + header.group().index("(")) + 1
        if inner > begin:
            break
        left = inner + len(plain[inner:]) - len(plain[inner:].lstrip())
    return left, right + 1


def switched(text, begin, end, replacement, number):
    """Begin, end and new code of the statement around a fault, with both ways; None where that has no simple form."""
    plain = NOTHING.sub(lambda m: " " * len(m.group()), text)
    chosen = f"OrlixFault == {number}"
    left, right = statement_around(plain, begin, end)
    old, new = text[left:right], text[left:begin] + replacement + text[end:right]
    header = HEADER.match(plain, left, begin)
    if header and plain.startswith("if", left):
        opens = left + plain[left:].index("(")
        closes = closing(plain, opens)
        if ";" not in plain[opens:closes] and (end <= closes or plain[end - 1] == "{"):
            was = text[opens + 1:closes]
            now = (text[opens + 1:begin] + replacement + text[end:closes] if end <= closes
                   else re.search(r"\((.*)\)\s*\{$", replacement, re.S)[1])
            return opens + 1, closes, f"{chosen} ? bool({now}) : bool({was})"
        if re.match(r"\s*else\b", plain[right:]):
            return None
    elif (header and plain[end - 1] != "{") or re.search(r"\)\s*:\s*\w+\(", plain[left:right]):
        return None
    declared = DECLARATION.match(plain, left, right)
    if declared:
        parts, others = split_commas(old[declared.end() - left:-1]), split_commas(new[declared.end() - left:-1])
        if len(parts) != len(others):
            return None
        for n, (was, now) in enumerate(zip(parts, others)):
            if was != now:
                name, value = was.split("=", 1)
                parts[n] = f"{name}= {chosen} ? ({now.split('=', 1)[1]}) : ({value})"
        return left, right, old[:declared.end() - left].replace("constexpr", "const") + ",".join(parts) + ";"
    return left, right, f"{{ if ({chosen}) {{ {new} }} else {{ {old} }} }}"


def put_switches(mutations):
    """Writes all faults that can be chosen at run time into the copy; gives them by their lines."""
    done, files = {}, {}
    for m in mutations:
        files.setdefault(m.place[0], []).append(m)
    for file, own in files.items():
        whole = text = (ROOT / file).read_text()
        above = len(text)
        for m in sorted(own, key=lambda m: -len(m.place[1])):
            try:
                found = switched(whole, len(m.place[1]), len(whole) - len(m.place[2]), m.replacement, m.line)
            except (ValueError, IndexError, TypeError):
                continue
            if found and found[1] <= above:
                above, (begin, end, code) = found[0], found
                text = text[:begin] + code + text[end:]
                done[m.line] = m
        at = max([hit.end() for hit in re.finditer(r"^#include .*\n(?:\s*#endif.*\n)?", text, re.M)], default=0)
        text = text[:at] + HEAD + text[at:]
        if (TREE / file).read_text() != text:
            (TREE / file).write_text(text)
    (TREE / "globals" / "FaultSwitch.cpp").write_text(SWITCH)
    return done


def drop_unbuilt(output, chosen):
    """The faults whose code with both ways the compiler didn't take."""
    bad = set()
    for file, line in re.findall(r"^(\S+?):(\d+):(?:\d+:)? (?:fatal )?error:", output, re.M):
        own = {number: m for number, m in chosen.items() if file.endswith(m.place[0])}
        if own:
            lines = (TREE / next(iter(own.values())).place[0]).read_text().splitlines()
            near = "\n".join(lines[max(0, int(line) - 6):int(line) + 6])
            bad.update({m for number, m in own.items() if re.search(rf"OrlixFault == {number}\b", near)} or own.values())
    for file in {m.place[0] for m in bad}:
        shutil.copy(ROOT / file, TREE / file)
    return bad


def prepare(mutations, joined, switches=False):
    """The programs that are asked first pass without a fault. With switches it gives the faults that are in them."""
    programs = sorted({own_program(m.place[0]) for m in mutations} - {None})
    targets = sorted({t for p in programs for t in own_targets(p, switches)})
    chosen = put_switches(mutations) if switches else {}
    configured = run("cmake", "-S", str(TREE), "-B", str(BUILD), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                     f"-DORLIX_JOIN={'ALL' if switches else 'ON' if joined else 'OFF'}")
    built = build(*targets) if configured.returncode == 0 else configured
    while built.returncode != 0 and (bad := drop_unbuilt(built.stdout, chosen)):
        chosen = put_switches([m for m in chosen.values() if m not in bad])
        built = build(*targets)
    tested = test("-R", f"^({'|'.join(programs)})$") if built.returncode == 0 else built
    if tested.returncode != 0:
        print(tested.stdout[-4000:])
        sys.exit("the code without faults must build and pass first")
    return chosen


def own_program(file):
    folder = pathlib.PurePath(file).parent
    while str(folder) != ".":
        if any((TREE / "tests" / folder).glob("*.cpp")):
            return str(folder).replace("/", "_")
        folder = folder.parent
    return None


def own_targets(program, whole):
    """What a family's tests need; of all folders' sources joined, all tests are one program."""
    if whole:
        return ["orlix_tests", "orlix"]
    return [f"test_{program}"] + ["orlix"] * program.startswith(("run", "apps"))


def try_switch(m, number, own_alone):
    """As try_mutation, of what is built already."""
    os.environ["ORLIX_FAULT"] = str(number)
    try:
        own = own_program(m.place[0])
        tested = test("-R", f"^{own}$") if own else None
        if not own or (tested.returncode == 0 and not own_alone):
            tested = test(*(["-E", f"^{own}$"] if own else []))
        return failed_test(tested.stdout) if tested.returncode != 0 else None
    finally:
        del os.environ["ORLIX_FAULT"]


def try_mutation(m, own_alone, whole):
    """What noticed the fault: 'program Suite.Test'; None when nothing did."""
    file, before, after = m.place
    text = (TREE / file).read_text()
    (TREE / file).write_text(before + m.replacement + after)
    try:
        own = own_program(file)
        if own:
            built = build(*own_targets(own, whole))
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
        (TREE / file).write_text(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("words", nargs="*")
    parser.add_argument("--own", action="store_true")
    parser.add_argument("--joined", action="store_true")
    parser.add_argument("--switched", action="store_true")
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
    chosen = prepare(mutations, arguments.joined, arguments.switched)
    if chosen and not arguments.own:
        build()
    unnoticed = []
    with open(WORK / "results.txt", "w") as results:
        def tell(m, attempt):
            start = time.monotonic()
            noticed = attempt()
            if not noticed:
                unnoticed.append(m)
            line = f"{m.name:32} {noticed or 'NOT NOTICED'}"
            print(f"{line}  ({time.monotonic() - start:.0f} s)", flush=True)
            print(line, file=results, flush=True)

        for number, m in chosen.items():
            tell(m, lambda: try_switch(m, number, arguments.own))
        if chosen:
            synchronise()
        for m in mutations:
            if m not in chosen.values():
                tell(m, lambda: try_mutation(m, arguments.own, arguments.switched))
    print(f"faults: {len(mutations)}, noticed {len(mutations) - len(unnoticed)}")
    for m in unnoticed:
        print(f"not noticed: {m.name} in {m.place[0]}: '{m.text}' made '{m.replacement}'")
    sys.exit(1 if unnoticed else 0)


main()
