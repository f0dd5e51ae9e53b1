"""Runs the command, built with sanitizers, over small models with seeded damage.

    damage.py COMMAND MODELS RUNS [--seed N] [--jobs N] [--keep FOLDER]

COMMAND is expected to end with 0, 1 or 2 on each of them, within half a minute, and to say why where that
is not 0; a report of a sanitizer is a fault. The import library may crash, hang or lose memory: that
is one line of the command's, and counted here. Inputs with a fault are kept in FOLDER.
"""

import argparse
import collections
import concurrent.futures
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile

KINDS = (".glb", ".gltf", ".ply", ".obj", ".stl", ".dae")
LARGEST = 60_000  # bytes of a model that is damaged
SECONDS = 30
NUMBERS = (b"0", b"-1", b"1", b"3", b"255", b"65536", b"4294967295", b"999999999", b"1e38", b"nan")
SANITIZERS = {
    "ASAN_OPTIONS": "allocator_may_return_null=1:max_allocation_size_mb=2048",
    "UBSAN_OPTIONS": "print_stacktrace=1",
}
COMMANDS = (
    ("info",),
    ("optimize", "-o", "o.glb", "-p", "maxtris(50),cacheopt(true)"),
    ("optimize", "-o", "o.osb", "-p", ""),
)


def models_of(folder):
    """All models small enough, by kind, in an order that every machine has."""
    found = collections.defaultdict(list)
    for path in sorted(pathlib.Path(folder).rglob("*")):
        if path.suffix.lower() in KINDS and 0 < path.stat().st_size <= LARGEST:
            found[path.suffix.lower()].append(path)
    return found


def damaged(rng, data, other):
    """One to six changes: bits, bytes, numbers, pieces moved, doubled, lost or of another model."""
    data = bytearray(data)
    for _ in range(rng.randint(1, 6)):
        if not data:
            break
        at = rng.randrange(len(data))
        length = rng.randint(1, 40)
        kind = rng.randrange(8)
        if kind == 0:
            data[at] ^= 1 << rng.randrange(8)
        elif kind == 1:
            data[at] = rng.choice((0, 1, 0x7F, 0x80, 0xFF))
        elif kind == 2:
            numbers = list(re.finditer(rb"-?[0-9][0-9.e+-]*", bytes(data[at:at + 4000])))
            if numbers:
                hit = rng.choice(numbers)
                data[at + hit.start():at + hit.end()] = rng.choice(NUMBERS)
        elif kind == 3:
            word = rng.choice((0, 1, 0x7FFFFFFF, 0xFFFFFFFF, 1 << rng.randrange(32)))
            data[at:at + 4] = word.to_bytes(4, "little")
        elif kind == 4:
            del data[at:at + length]
        elif kind == 5:
            data[at:at] = data[at:at + length] * rng.randint(1, 4)
        elif kind == 6:
            begin = rng.randrange(len(other))
            data[at:at + length] = other[begin:begin + length]
        elif rng.randrange(4) == 0:
            del data[at:]
    return bytes(data)


def fault_of(code, errors):
    """What is wrong with a run; empty if nothing is."""
    if "Sanitizer" in errors or "runtime error" in errors:
        return "a sanitizer reports"
    if code not in (0, 1, 2):
        return f"exit code {code}"
    if code != 0 and not errors.startswith("morva: "):
        return "no reason is given"
    return ""


class Trial:
    """One damaged model through one command; everything follows from the seed and the number."""

    def __init__(self, arguments, models, number):
        rng = random.Random(f"{arguments.seed} {number}")
        kind = KINDS[number % len(KINDS)]
        self.model = rng.choice(models[kind])
        other = rng.choice(models[kind]).read_bytes()
        self.bytes = damaged(rng, self.model.read_bytes(), other)
        self.line = rng.choice(COMMANDS)
        self.command = str(pathlib.Path(arguments.command).resolve())
        self.name = f"{number}{kind}"

    def run(self):
        """Exit code and what was said; after too long None, and a word if the command is busy."""
        with tempfile.TemporaryDirectory(prefix="morva-damage-") as folder:
            name = "damaged" + pathlib.Path(self.name).suffix
            pathlib.Path(folder, name).write_bytes(self.bytes)
            for beside in self.model.parent.iterdir():  # buffers, materials, images
                os.symlink(beside, pathlib.Path(folder, beside.name))
            line = [self.command, self.line[0], name, "-q"]
            process = subprocess.Popen(
                line + list(self.line[1:]), cwd=folder, stdout=subprocess.DEVNULL,
                stderr=subprocess.PIPE, env={**os.environ, **SANITIZERS})
            try:
                errors = process.communicate(timeout=SECONDS)[1]
                return process.returncode, errors.decode(errors="replace")
            except subprocess.TimeoutExpired:
                busy = pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text()
                process.kill()  # and with it the import library
                process.communicate()
                return None, "" if busy else "no end"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("command")
    parser.add_argument("models")
    parser.add_argument("runs", type=int)
    parser.add_argument("--seed", type=int, default=20260101)
    parser.add_argument("--first", type=int, default=0, help="number of the first one")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--keep", default="damage")
    arguments = parser.parse_args()
    models = models_of(arguments.models)
    missing = [kind for kind in KINDS if not models[kind]]
    if missing:
        sys.exit(f"no models of the kinds {', '.join(missing)} in {arguments.models}")

    counts = collections.Counter()
    faults = 0

    def carry_out(number):
        trial = Trial(arguments, models, number)
        return trial, *trial.run()

    numbers = range(arguments.first, arguments.first + arguments.runs)
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for trial, code, errors in pool.map(carry_out, numbers):
            if code is None and not errors:
                counts["the import library found no end"] += 1
                print(f"{trial.name} of {trial.model}: no end of the import library", flush=True)
                continue
            counts[f"exit code {code}"] += 1
            counts["the import library crashed"] += "the import library " in errors
            fault = fault_of(code, errors)
            if fault:
                faults += 1
                os.makedirs(arguments.keep, exist_ok=True)
                pathlib.Path(arguments.keep, trial.name).write_bytes(trial.bytes)
                print(f"{trial.name} of {trial.model}, {' '.join(trial.line)}: {fault}\n{errors}",
                      flush=True)
    print(f"{arguments.runs} damaged models: " +
          ", ".join(f"{what} {count}" for what, count in sorted(counts.items())))
    sys.exit(1 if faults else 0)


main()
