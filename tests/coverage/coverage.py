#!/usr/bin/env python3
"""Line coverage of the tests, per folder of code.

    coverage.py [--build DIR] [--tests REGEX] [--lines FOLDER]

Builds everything with the counters of the compiler in build/coverage, runs all tests there (or those
with such names) and prints, per folder, the lines with code, how many of them ran, and the share. A
line of a header counts once, and as run if it ran in any program. --lines lists what never ran in a folder.

Of the tests that start the command with one allocation failing, only a few are run: each such start
writes all counters.
"""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
# A function that has no part in what the tests test has no counters either.
FLAGS = "-Og --coverage -fprofile-update=prefer-atomic '-fprofile-exclude-files=/usr/.*;.*/tests/.*'"


def run(*command, **more):
    done = subprocess.run(command, text=True, errors="replace", stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **more)
    return done.returncode, done.stdout


def build(folder):
    jobs = str(os.cpu_count())
    for command in (("cmake", "-S", str(ROOT), "-B", str(folder), "-G", "Ninja", "-DMORVA_VALIDATE=ON",
                     "-DCMAKE_BUILD_TYPE=Coverage", f"-DCMAKE_CXX_FLAGS_COVERAGE={FLAGS}"),
                    ("cmake", "--build", str(folder), "-j", jobs)):
        status, output = run(*command)
        if status != 0:
            sys.exit(f"{' '.join(command)} failed:\n{output[-3000:]}")


def run_tests(folder, pattern):
    for counters in folder.rglob("*.gcda"):
        counters.unlink()
    # Counters take time.
    environment = dict(os.environ, MORVA_ALLOCATION_STEP="1000")
    status, output = run("ctest", "--test-dir", str(folder), "-j", str(os.cpu_count()), "-R", pattern,
                         "--no-tests=error", "--output-on-failure", env=environment)
    print("\n".join(output.splitlines()[-12:]) if status != 0 else "all tests passed")


def lines_of(notes):
    """(file, line, whether it ran) for each line with code of a translation unit."""
    output = subprocess.run(["gcov", "--json-format", "--stdout", str(notes)], cwd=notes.parent,
                            capture_output=True, text=True, errors="replace").stdout
    found = []
    for text in filter(None, output.splitlines()):
        unit = json.loads(text)
        for file in unit["files"]:
            path = pathlib.Path(unit["current_working_directory"], file["file"])
            name = os.path.relpath(os.path.normpath(path), ROOT)
            if name.startswith(("morva/", "opensg/", "host/")):
                found += [(name, line["line_number"], line["count"] > 0) for line in file["lines"]]
    return found


def folder_of(name):
    parts = name.split("/")
    return "/".join(parts[:2]) if parts[0] == "morva" and len(parts) > 2 else parts[0]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build" / "coverage", metavar="DIR")
    parser.add_argument("--tests", default=".", metavar="REGEX")
    parser.add_argument("--lines", default="", metavar="FOLDER")
    options = parser.parse_args()
    build(options.build)
    run_tests(options.build, options.tests)

    ran = {}  # by file and line
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for unit in pool.map(lines_of, sorted(options.build.rglob("*.gcno"))):
            for name, line, here in unit:
                ran[name, line] = ran.get((name, line), False) or here
    totals = collections.Counter(folder_of(name) for name, _ in ran)
    seen = collections.Counter(folder_of(name) for (name, _), here in ran.items() if here)
    print(f"{'folder':20} {'lines':>7} {'ran':>7}")
    for folder in sorted(totals) + ["in all"]:
        all_lines = totals.get(folder, totals.total())
        all_ran = seen.get(folder, 0) if folder in totals else seen.total()
        print(f"{folder:20} {all_lines:7} {all_ran:7} {100 * all_ran / all_lines:7.2f} %")
    for (name, line), here in sorted(ran.items()):
        if options.lines and folder_of(name) == options.lines and not here:
            print(f"{name}:{line}: never ran")


if __name__ == "__main__":
    main()
