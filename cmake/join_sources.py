#!/usr/bin/env python3
"""join_sources.py OUT SOURCE...: one source of many, for builds whose time goes into reading headers. All #includes come
first. What an unnamed namespace names as another source or a header does gets a prefix, and macros of a source end
with it: names need to be unique in a file only, as everywhere else."""
import pathlib
import re
import sys

UNNAMED = re.compile(r"^namespace \{$(.*?)^\}  // namespace$", re.M | re.S)


def leading_includes(lines):
    """How many lines the comments, blanks and #includes at the start take."""
    count = 0
    for n, line in enumerate(lines, 1):
        if line.startswith("#include"):
            count = n
        elif line.strip() and not line.startswith("//"):
            break
    return count


def names_of(text):
    """What the unnamed namespaces declare; the layout begins each declaration in the first column."""
    names = set()
    for block in UNNAMED.findall(text):
        for statement in re.split(r"\n(?=[^\s})])", re.sub(r"//.*|^#.*", "", block, flags=re.M)):
            statement = re.sub(r"^template <.*>\s*", "", statement)
            if re.match(r"[A-Z_]+\(", statement):  # a macro's own, such as TEST
                continue
            if type_name := re.match(r"(?:struct|class|enum class|enum) (\w+)|using (\w+) =", statement):
                names.add(type_name[1] or type_name[2])
            elif function := re.match(r"[^(={;]*?(?<![:\w])(\w*[a-z]\w*)\(", statement):
                names.add(function[1])
            else:
                variable = r"(?<![:\w])(k[A-Z]\w*|(?<=constexpr double )\w+)(?= =|\[\w*\] =|\{|;)"
                names.update(re.findall(variable, statement.split("= {")[0] + "= {"))
    return names


def renamed(text, names, prefix):
    """Text with a prefix to these names, where they aren't a member's, a text's, a test suite's or of another namespace."""
    names = names - set(re.findall(r"^TEST_[FP]\((\w+)", text, re.M))  # a fixture
    if not names:
        return text
    skipped = r'\b[A-Z_]*TEST[A-Z_]*\([^)]*\)|R"(?P<end>\w*)\(.*?\)(?P=end)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\\])\'|//[^\n]*'
    pattern = re.compile(skipped + r"|(?<![\w.:>])(?P<name>" + "|".join(sorted(names)) + r")\b", re.S)
    return pattern.sub(lambda found: (prefix if found["name"] else "") + found[0], text)


def main():
    out, paths = pathlib.Path(sys.argv[1]), sys.argv[2:]
    root = pathlib.Path(__file__).resolve().parent.parent
    declared = set()  # in headers
    for header in (path for top in root.glob("[a-z]*/") if top.name not in ("build", "out") for path in top.rglob("*.h")):
        text = header.read_text()
        declared.update(re.findall(r"^(?:struct|class|enum class|using) (\w+)", text, re.M))
        declared.update(re.findall(r"^\w[^(={;\n]* (\w+)\(", text, re.M))
    includes, bodies, names = [], [], []
    for path in paths:
        text = pathlib.Path(path).read_text()
        lines = text.splitlines()
        first = leading_includes(lines)
        includes += [line for line in lines[:first] if line.startswith("#include")]
        bodies.append((pathlib.Path(path).relative_to(root), first + 1, "\n".join(lines[first:])))
        names.append(names_of(text))
    joined = list(dict.fromkeys(includes))
    for n, (path, line, body) in enumerate(bodies):
        others = set().union(declared, *names[:n], *names[n + 1:])
        joined += [f'#line {line} "{path}"', renamed(body, names[n] & others, f"Joined{n}_")]
        joined += [f"#undef {name}" for name in re.findall(r"^#define (\w+)", body, re.M)]
    out.parent.mkdir(parents=True, exist_ok=True)
    out.write_text("\n".join(joined) + "\n")


main()
