#!/usr/bin/env python3
"""Compares what the command writes with stored hashes: golden.py MORVA [--rewrite].

Each line of golden.txt is HASH MODEL PARAMETERS OUTPUT: the files that a run leaves, what it prints
(text), or the ID map. They must be the same with 1, 2 and 8 threads. Left out: the folder of the ID
map on its way, times and peaks. Reports must keep to their schema, and real models must read back
with the counts of the report.
"""
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import jsonschema

HERE = Path(__file__).resolve().parent
SCHEMA = jsonschema.Draft202012Validator(
    json.loads((HERE.parent.parent / "docs/report.schema.json").read_text()))
DEBIAN = Path("/usr/share/assimp/models")
OWN = HERE.parent / "data"
MODELS = [DEBIAN / "glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb", DEBIAN / "OBJ/spider.obj",
          DEBIAN / "IFC/AC14-FZK-Haus.ifc", *sorted((OWN / "geometry").glob("*.osb")),
          *(OWN / f"osb/{name}.osb" for name in ("foreign", "integers", "materials", "primitives"))]
PARAMETERS = {  # and the formats that are written beside .osb
    "opt(0),maxtris(300),deleteunusedtc(false),prefix(g),idmap(map)": "glb",
    "opt(1),maxtris(10),cacheopt(true),alphageometry(true),idmapinroot(true),idmap(map)": "glb",
    "opt(2),maxtris(5000),vertexcolor(900),toworld(false),mergesamename(true),calcnormals(true),"
    "idmap(map)": "glb obj",
    "opt(3),maxtris(0),cacheopt(true),keeprenderfalse(true),removelod(true),removeswitch(true)": "glb",
    "opt(2),onegeometry(true),cacheopt(true),optimizetc(1),idmap(map)": "glb gltf",
    "opt(3),maxtris(700),mostusedmaterial(true),ignorematerial(true),alphageometry(true)": "glb",
    "opt(1),maxtris(500),flat(false),mergehierarchy(true),keeprenderfalse(true),idmap(map)": "glb",
    "flat(false)": "glb",
}

SPIDER = DEBIAN / "OBJ/spider.obj"
ATLASES = {  # of its four images
    "maxtexturesize(2048),maxtris(300),optimizetc(1),idmap(map)": "glb gltf",
    "maxtexturesize(2000),exactatlas(false),atlaspadding(5),flat(false)": "glb",
}

SIMPLIFIED = {  # in place of parameters, the options of simplify
    "--lods 0.7,0.2 --max-error 3": "glb",
    "--triangles 900 --weld corner --lock-borders": "",
}


def report_of(folder, command):
    """The command's process and its report, which is gone from the folder then."""
    if "optimize" in command:  # the spider's images repeat, and optimizetc(1) cuts at each border
        command = [*command, "--max-growth", "100"]
    done = subprocess.run([*command, "--report", "r.json"], cwd=folder, capture_output=True,
                          timeout=100)
    report = json.loads((folder / "r.json").read_text())
    (folder / "r.json").unlink()
    for fault in SCHEMA.iter_errors(report):
        raise ValueError(f"{command}: {fault.json_path}: {fault.message}")
    return done, report


def outputs_of(morva, model, parameters, suffix, threads):
    """(output, bytes) pairs of one run."""
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        if OWN in model.parents:  # by a name that is the same everywhere
            model = Path(shutil.copy(model, folder)).relative_to(folder)
        command = (["simplify", str(model), *parameters.split()] if parameters.startswith("--") else
                   ["optimize", str(model), "-v", "-p", f"{parameters},numthreads({threads})"])
        done, report = report_of(folder, [morva, *command, "-o", f"out.{suffix}"])
        text = re.sub(rb'"\./\.morva-[^/]*/', b'"', done.stdout + done.stderr)
        text = re.sub(rb"\nstage .*?\nall [^\n]*\n", b"", text, flags=re.DOTALL)
        text = text.replace(b"numthreads(%d)" % threads, b"numthreads")  # notes quote it
        yield f"text.{suffix}", text + b"exit %d" % done.returncode
        del report["stages"]
        report.pop("parameters", None)
        told = json.dumps(report).replace(f"numthreads({threads})", "numthreads")
        yield f"files.{suffix}", told.encode()
        for path in sorted(folder.iterdir()):
            if path != folder / model:
                yield ("map" if path.name == "map.json" else f"files.{suffix}",
                       path.name.encode() + path.read_bytes())
        if threads == 1 and "after" in report and suffix != "obj" and DEBIAN in model.parents:
            read = report_of(folder, [morva, "info", f"out.{suffix}"])[1]["before"]
            for count in ("triangles", "lines", "draw_calls", "vertices"):
                if read[count] != report["after"][count]:
                    raise ValueError(f"{model} {parameters} {suffix}: reads back other {count}")


def lines_of(morva, model, parameters, suffix):
    """Lines of golden.txt; says so if the number of threads shows."""
    seen = set()
    for threads in (1, 2, 8):
        sums = {}
        for output, data in outputs_of(morva, model, parameters, suffix, threads):
            sums.setdefault(output, hashlib.sha256()).update(data)
        seen.add(tuple(f"{s.hexdigest()} {model.name} {parameters} {output}"
                       for output, s in sums.items() if output != "map" or suffix == "osb"))
    return seen.pop() if len(seen) == 1 else [f"several {model.name} {parameters} {suffix}"]


def main():
    morva = os.path.abspath(sys.argv[1])
    jobs = [(morva, model, parameters, suffix) for model in MODELS
            for parameters, formats in PARAMETERS.items() for suffix in ["osb"] + formats.split()]
    jobs += [(morva, SPIDER, parameters, suffix)
             for parameters, formats in ATLASES.items() for suffix in ["osb"] + formats.split()]
    jobs += [(morva, model, parameters, suffix) for model in MODELS
             for parameters, formats in SIMPLIFIED.items() for suffix in ["osb"] + formats.split()]
    with ThreadPoolExecutor() as pool:
        lines = [line for part in pool.map(lambda job: lines_of(*job), jobs) for line in part]
    stored = HERE / "golden.txt"
    if "--rewrite" in sys.argv:
        stored.write_text("\n".join(lines) + "\n")
    expected = stored.read_text().splitlines()
    for line in sorted(set(lines) ^ set(expected)):
        print("now:" if line in lines else "expected:", line)
    return lines != expected


if __name__ == "__main__":
    sys.exit(main())
