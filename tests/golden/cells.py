#!/usr/bin/env python3
"""What `morva divide` writes, read by other means: cells.py MORVA.

Manifests must keep to their schema. Of .glb cells every triangle of the input is in one cell alone,
bit by bit in the space of its part; boxes, counts and neighbours are those of the files.
"""
import array
import json
import math
import os
import subprocess
import sys
import tempfile
from collections import Counter
from pathlib import Path

import jsonschema

HERE = Path(__file__).resolve().parent
SCHEMA = jsonschema.Draft202012Validator(
    json.loads((HERE.parent.parent / "docs/manifest.schema.json").read_text()))
DEBIAN = Path("/usr/share/assimp/models")
ENGINE = DEBIAN / "glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb"
HOUSE = DEBIAN / "IFC/AC14-FZK-Haus.ifc"
RUNS = [(ENGINE, "--triangles 5000"), (ENGINE, "--indices 3000 --normals recalc"),
        (ENGINE, "--size 80 --straddle cut"), (HOUSE, "--triangles 2000"),
        (HOUSE, "--size 3 --straddle cut --normals recalc")]


class Glb:
    """The parts of a .glb: name, world matrix by columns, and triangles of three local places."""

    def __init__(self, path):
        data = path.read_bytes()
        end = 20 + int.from_bytes(data[12:16], "little")
        self.json, self.bytes = json.loads(data[20:end]), data[end + 8:]
        self.parts = []
        for node in self.json["scenes"][0]["nodes"]:
            self.walk(self.json["nodes"][node], [float(i % 5 == 0) for i in range(16)])

    def rows(self, number):
        accessor = self.json["accessors"][number]
        view = self.json["bufferViews"][accessor["bufferView"]]
        kind = {5121: "B", 5123: "H", 5125: "I", 5126: "f"}[accessor["componentType"]]
        width = {"SCALAR": 1, "VEC3": 3}[accessor["type"]]
        values = array.array(kind)
        start = view.get("byteOffset", 0) + accessor.get("byteOffset", 0)
        size = values.itemsize * width
        assert view.get("byteStride", size) == size
        values.frombytes(self.bytes[start:start + accessor["count"] * size])
        return [tuple(values[i:i + width]) for i in range(0, len(values), width)]

    def walk(self, node, above):
        m = node.get("matrix", [float(i % 5 == 0) for i in range(16)])
        assert not {"rotation", "scale", "translation"} & node.keys()
        world = [sum(above[4 * k + r] * m[4 * c + k] for k in range(4))
                 for c in range(4) for r in range(4)]
        for primitive in self.json["meshes"][node["mesh"]]["primitives"] if "mesh" in node else []:
            places = self.rows(primitive["attributes"]["POSITION"])
            order = ([i for i, in self.rows(primitive["indices"])] if "indices" in primitive
                     else range(len(places)))
            corners = [places[i] for i in order]
            self.parts.append((node.get("name", ""), world, list(zip(*[iter(corners)] * 3))))
        for child in node.get("children", []):
            self.walk(self.json["nodes"][child], world)


def moved(m, p):
    return [m[r] * p[0] + m[4 + r] * p[1] + m[8 + r] * p[2] + m[12 + r] for r in range(3)]


def area(a, b, c):
    u, v = [y - x for x, y in zip(a, b)], [y - x for x, y in zip(a, c)]
    return math.hypot(u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]) / 2


def touch(a, b):
    return all(a["min"][k] <= b["max"][k] and b["min"][k] <= a["max"][k] for k in range(3))


def faults_of(manifest, folder, whole):
    """Yields what is wrong with cells; `whole` holds the model in one."""
    seen, sums = Counter(), Counter()
    for number, cell in enumerate(manifest["cells"]):
        glb = Glb(folder / cell["file"])
        counts = Counter()
        low, high = [math.inf] * 3, [-math.inf] * 3
        for name, matrix, triangles in glb.parts:
            counts[name] += len(triangles)
            seen.update((name, t) for t in triangles)
            for triangle in triangles:
                world = [moved(matrix, p) for p in triangle]
                sums[name] += area(*world)
                low, high = [[f(a) for a in zip(*world, side)] for f, side in ((min, low), (max, high))]
        if counts != {p["name"]: p["triangles"] for p in cell["parts"]}:
            yield f"{cell['file']}: other parts than the manifest's"
        near = [abs(x - y) <= 1e-6 * (1 + abs(x)) * 64
                for x, y in zip(low + high, cell["box"]["min"] + cell["box"]["max"])]
        if not all(near):
            yield f"{cell['file']}: box {low} {high}"
        touching = [i for i, c in enumerate(manifest["cells"])
                    if i != number and touch(c["box"], cell["box"])]
        if touching != cell["neighbours"]:
            yield f"{cell['file']}: neighbours {touching}"
        value = manifest["limit"]["value"]
        if manifest["limit"]["by"] == "size":
            least = max(b - a for a, b in zip(cell["space"]["min"], cell["space"]["max"]))
        else:
            least = cell["triangles"] * (3 if manifest["limit"]["by"] == "indices" else 1)
        if least > value:
            yield f"{cell['file']}: above the limit"
    if manifest["straddle"] == "cut":
        before = Counter()
        for name, matrix, triangles in whole:
            before[name] += sum(area(*[moved(matrix, p) for p in t]) for t in triangles)
        for name, value in before.items():
            if abs(value - sums[name]) > 1e-4 * value + 1e-9:
                yield f"{name}: area {value} in, {sums[name]} out"
    elif seen != Counter((name, t) for name, _, triangles in whole for t in triangles):
        yield "other triangles than went in"


def run(morva, model, words, folder):
    subprocess.run([morva, "divide", str(model), "--cells", str(folder), *words.split(), "-q"],
                   check=True, timeout=100)
    manifest = json.loads((folder / "manifest.json").read_text())
    for fault in SCHEMA.iter_errors(manifest):
        raise ValueError(f"{model} {words}: {fault.json_path}: {fault.message}")
    files = sorted(p.name for p in folder.iterdir() if p.name != "manifest.json")
    assert files == [c["file"] for c in manifest["cells"]], files
    return manifest


def main():
    morva, faults = os.path.abspath(sys.argv[1]), []
    for number, (model, words) in enumerate(RUNS):
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            manifest = run(morva, model, words, folder / "cells")
            run(morva, model, "--triangles 100000000", folder / "one")
            whole = Glb(folder / "one/cell_0000.glb").parts
            if number == 0:  # the input itself, whose names are others
                local = [Counter(t for *_, triangles in parts for t in triangles)
                         for parts in (whole, Glb(model).parts)]
                if local[0] != local[1]:
                    faults.append("one cell holds other triangles than the file")
            faults += [f"{model.name} {words}: {fault}"
                       for fault in faults_of(manifest, folder / "cells", whole)]
    print("\n".join(faults))
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main())
