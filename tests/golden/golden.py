#!/usr/bin/env python3
"""Compares what the command writes with stored hashes: golden.py MORVA [--rewrite].

Each line of golden.txt is HASH MODEL PARAMETERS OUTPUT. An output is the bytes of all files that a
run leaves, or (text) what it prints. It must be the same with 1, 2 and 8 threads. Left out of the
text: the folder of the ID map on its way, and the table of times.
"""
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HERE = Path(__file__).resolve().parent
DEBIAN = Path("/usr/share/assimp/models")
OWN = HERE.parent / "data/osb"
MODELS = [DEBIAN / "glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb", DEBIAN / "OBJ/spider.obj",
          DEBIAN / "IFC/AC14-FZK-Haus.ifc", OWN / "foreign.osb", OWN / "materials.osb",
          OWN / "primitives.osb"]
PARAMETERS = {  # and the formats that are written beside .osb
    "opt(0),maxtris(300),deleteunusedtc(false),prefix(g),idmap(map)": "glb",
    "opt(1),maxtris(10),cacheopt(true),alphageometry(true),idmapinroot(true),idmap(map)": "glb",
    "opt(2),maxtris(5000),vertexcolor(900),toworld(false),mergesamename(true),calcnormals(true),idmap(map)": "glb obj",
    "opt(3),maxtris(0),cacheopt(true),keeprenderfalse(true),removelod(true),removeswitch(true)": "glb",
    "opt(2),onegeometry(true),cacheopt(true),optimizetc(1),idmap(map)": "glb gltf",
    "opt(3),maxtris(700),mostusedmaterial(true),ignorematerial(true),alphageometry(true)": "glb",
}


def run(morva, model, parameters, suffix, threads):
    """(output, hash) pairs of one run."""
    with tempfile.TemporaryDirectory() as folder:
        if model.parent == OWN:  # by a name that is the same everywhere
            model = Path(shutil.copy(model, folder)).relative_to(folder)
        done = subprocess.run(
            [morva, "optimize", str(model), "-v", "-o", f"out.{suffix}", "-p",
             f"{parameters},numthreads({threads})"], cwd=folder, capture_output=True, timeout=100)
        text = re.sub(rb'"\./\.morva-[^/]*/', b'"', done.stdout + done.stderr)
        text = re.sub(rb"\nstage .*?\nall [^\n]*\n", b"", text, flags=re.DOTALL)
        yield f"text.{suffix}", text + b"exit %d" % done.returncode
        for path in sorted(Path(folder).iterdir()):
            if path != Path(folder) / model:
                yield ("map" if path.name == "map.json" else f"files.{suffix}",
                       path.name.encode() + path.read_bytes())


def hashes(morva, model, parameters, suffix):
    """Lines of golden.txt; says so if the number of threads shows."""
    seen = set()
    for threads in (1, 2, 8):
        sums = {}
        for output, data in run(morva, model, parameters, suffix, threads):
            sums.setdefault(output, hashlib.sha256()).update(data)
        seen.add(tuple(f"{s.hexdigest()} {model.name} {parameters} {output}"
                       for output, s in sums.items() if output != "map" or suffix == "osb"))
    return seen.pop() if len(seen) == 1 else [f"several {model.name} {parameters} {suffix}"]


def main():
    morva = os.path.abspath(sys.argv[1])
    jobs = [(morva, model, parameters, suffix) for model in MODELS
            for parameters, formats in PARAMETERS.items() for suffix in ["osb"] + formats.split()]
    with ThreadPoolExecutor() as pool:
        lines = [line for part in pool.map(lambda job: hashes(*job), jobs) for line in part]
    stored = HERE / "golden.txt"
    if "--rewrite" in sys.argv:
        stored.write_text("\n".join(lines) + "\n")
    expected = stored.read_text().splitlines()
    for line in lines:
        if line not in expected:
            print("differs:", line.split(" ", 1)[1] if line[:7] != "several" else line)
    for line in expected:
        if line not in lines:
            print("expected:", line)
    return lines != expected


if __name__ == "__main__":
    sys.exit(main())
