#!/usr/bin/env python3
"""embed_recipes.py OUT SCENE...: a C++ source with the scene files that `orlix new` starts from, and the files beside
them that they name."""
import pathlib
import re
import sys


def literal(text):
    return 'R"recipe(' + text + ')recipe"'


def main():
    out, scenes = pathlib.Path(sys.argv[1]), [pathlib.Path(path) for path in sys.argv[2:]]
    files, recipes = [], []
    for n, scene in enumerate(scenes):
        text = scene.read_text()
        code = re.sub(r"//.*", "", text)
        beside = [scene.parent / name for name in re.findall(r'"file": "([^"]+)"', code)]
        beside = [path for path in beside if path.exists()]
        if beside:
            entries = ", ".join('{"%s", %s}' % (path.name, literal(path.read_text())) for path in beside)
            files.append(f"constexpr RecipeFile kFiles{n}[] = {{{entries}}};")
        recipes.append('{"%s", %s, %s},' % (scene.stem, literal(text), f"kFiles{n}" if beside else "{}"))
    out.parent.mkdir(parents=True, exist_ok=True)
    out.write_text("\n".join(['#include "apps/orlix/Recipes.h"', "namespace orlix {", "namespace {", *files,
                              "constexpr Recipe kRecipes[] = {", *recipes, "};", "}  // namespace",
                              "std::span<const Recipe> Recipes() { return kRecipes; }", "}  // namespace orlix", ""]))


main()
