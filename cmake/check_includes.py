#!/usr/bin/env python3
"""Checks who includes whom: each folder sees itself and the folders named for it here, and the
command the public headers, which are morva.h and what it includes."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SCENE = "OpenSG"

# Files that know no scene graph: the standard library and each other alone.
PLAIN = {
    "core/morva_export.h", "core/morva_math.h", "core/morva_span.h", "core/morva_twister.h",
    "core/morva_twister.cpp", "textures/texturatlas.h", "textures/texturatlas.cpp",
    "textures/texturatlas_free_pool.h", "textures/texturatlas_free_pool.cpp",
    "textures/texturatlas_packing.h", "textures/texturatlas_packing.cpp",
    "textures/texturatlas_rows.h",
    "core/morva_osg_limits.h", "core/morva_osg_params.h", "core/morva_osg_params.cpp",
    "core/morva_osg_sink.h", "core/morva_osg_sink.cpp", "core/morva_validate.h",
}

MAY_SEE = {
    "core": {SCENE},
    "idmap": {SCENE, "core"},
    "trees": set(),
    "geosets": {SCENE, "core", "trees", "idmap"},
    "draworder": {SCENE, "core", "idmap"},
    "textures": {SCENE, "core", "trees", "geosets"},
    "merge": {SCENE, "core", "trees", "idmap", "geosets", "draworder", "textures"},
    "picking": {SCENE, "core", "trees"},
    "collision": {SCENE, "core", "trees", "picking"},
    "occlusion": {SCENE, "core", "trees", "idmap", "geosets", "merge"},
}
MAY_SEE["driver"] = {SCENE, *MAY_SEE} - {"tools"}
MAY_SEE["tools"] = {SCENE, *MAY_SEE, "driver"}

# Single files that see more, with the reason beside them.
EXCEPTIONS = {
    # Rebuilds whole cells of scene nodes, and so merges and cleans up.
    "geosets/morva_osg_cell_rebuild.cpp": {"merge", "textures", "driver"},
    # Its record holds that of the atlases, which has images alone in it.
    "geosets/morva_osg_cell_rebuild.h": {"textures/morva_osg_atlas_record.h"},
}

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')


def includes(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        found = INCLUDE.match(line)
        if found:
            yield number, found.group(1)


def allowed_in_library(name, folder, target):
    """Whether morva/NAME, a file of FOLDER, may include TARGET."""
    if target.startswith("OpenSG/"):
        return name not in PLAIN and SCENE in MAY_SEE[folder]
    if not target.startswith("morva/"):
        return True
    seen = target[len("morva/"):]
    if name in PLAIN or folder == "trees":
        return seen in PLAIN or (folder == "trees" and seen.startswith("trees/"))
    seen_folder = seen.split("/")[0]
    may = MAY_SEE[folder] | EXCEPTIONS.get(name, set())
    return seen_folder == folder or seen_folder in may or seen in may or seen in (
        "core/morva_export.h",)


def public_headers():
    """morva.h and what it includes, directly or not, as morva/FOLDER/FILE.h."""
    found = ["morva/morva.h"]
    for header in found:
        found += [target for _, target in includes(ROOT / header)
                  if target.startswith("morva/") and target not in found]
    return set(found)


def wrong_about_public_headers():
    public = public_headers()
    for path in sorted((ROOT / "host").glob("*.*")):
        for number, target in includes(path) if path.suffix in (".h", ".cpp") else ():
            if target.startswith("morva/") and target not in public:
                yield f"host/{path.name}:{number}: {target} is not public: not in morva.h"
    for path in sorted((ROOT / "morva").rglob("*.h")):
        name = path.relative_to(ROOT).as_posix()
        if name not in public and "MORVA_API" in path.read_text():
            yield f"{name}: exports names, but is not in morva.h"


def main():
    wrong = list(wrong_about_public_headers())
    for path in sorted((ROOT / "morva").rglob("*")):
        if path.suffix not in (".h", ".cpp") or path.parent == ROOT / "morva":
            continue
        name = path.relative_to(ROOT / "morva").as_posix()
        folder = name.split("/")[0]
        for number, target in includes(path):
            if not allowed_in_library(name, folder, target):
                wrong.append(f"morva/{name}:{number}: {folder} may not include {target}")
    for path in sorted((ROOT / "opensg").rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        for number, target in includes(path):
            if target.startswith("morva/"):
                wrong.append(f"{path.relative_to(ROOT)}:{number}: the scene layer includes {target}")
    print("\n".join(wrong) if wrong else "includes are in order")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
