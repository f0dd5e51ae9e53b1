#!/usr/bin/env python3
"""Installs a build into a folder of its own and uses it as a stranger would:
install_test.py BUILD_FOLDER [--rewrite].

Each installed header compiles alone; README's program builds with the CMake package and with
pkg-config, and optimises a scene; the library exports the names of exports.txt; the manual page tells
of the options that the command has.
"""
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
FAULTS = []


def run(*command, **options):
    """What a command prints; a fault is noted if it fails."""
    done = subprocess.run([str(word) for word in command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        FAULTS.append(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def compile_headers(prefix, folder):
    headers = sorted((prefix / "include/morva").rglob("*.h"))
    if prefix / "include/morva/morva.h" not in headers:
        FAULTS.append("morva.h is not installed")

    def compile_alone(header):
        source = folder / (header.stem + ".cpp")
        source.write_text(f"#include <{header.relative_to(prefix / 'include')}>\n")
        run("c++", "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Werror",
            "-isystem", prefix / "include", source)
    with ThreadPoolExecutor() as pool:
        list(pool.map(compile_alone, headers))


def use_viewers(prefix, folder):
    """README's program, built in two ways."""
    readme = (ROOT / "README.md").read_text()
    (folder / "viewer.cpp").write_text(re.search(r"```cpp\n(.*?)```", readme, re.DOTALL)[1])
    lines = re.findall(r"`((?:find_package|target_link_libraries)\([^`]*\))`", readme)
    (folder / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.22)\nproject(viewer CXX)\nadd_executable(viewer viewer.cpp)\n"
        + "\n".join(lines))
    run("cmake", "-S", folder, "-B", folder / "build", f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", folder / "build")
    flags = run("pkg-config", "--cflags", "--libs", "morva",
                env={**os.environ, "PKG_CONFIG_PATH": str(prefix / "lib/pkgconfig")})
    run("c++", folder / "viewer.cpp", "-o", folder / "viewer", *flags.split())
    for viewer in (folder / "build/viewer", folder / "viewer"):
        out = folder / "out.osb"
        out.unlink(missing_ok=True)
        run(viewer, ROOT / "tests/data/osb/integers.osb", out,
            env={**os.environ, "LD_LIBRARY_PATH": str(prefix / "lib")})
        if not re.search(r"triangles +3\n", run(prefix / "bin/morva", "info", out)):
            FAULTS.append(f"{viewer}: three triangles should come out")


def compare_exports(prefix):
    text = run("nm", "-DC", "--defined-only", prefix / "lib/libmorva.so")
    text = re.sub(r"std::__cxx11::basic_string<char.*?> >", "std::string", text)
    while text != (shorter := re.sub(r"osg::FCPtr<[\w:]+, osg::(\w+)(<[\w:]+>)?>", r"osg::\1Ptr",
                                     text)):
        text = shorter
    names = sorted(set(re.findall(r"^\w+ [A-Z] ((?:[\w:]+ )?morva::.*)$", text, re.MULTILINE)))
    stored = HERE / "exports.txt"
    if "--rewrite" in sys.argv:
        stored.write_text("\n".join(names) + "\n")
    expected = stored.read_text().splitlines()
    FAULTS.extend(f"exported {'now' if name in names else 'no more'}: {name}"
                  for name in sorted(set(names) ^ set(expected)))


def compare_manual(prefix):
    """Both ways: what the verbs' help names is in the page, and what is there is in some help."""
    page = prefix / "share/man/man1/morva.1"
    if warnings := run("sh", "-c", f"man --warnings -l '{page}' 2>&1 >/dev/null"):
        FAULTS.append(f"{page}: {warnings}")
    told = set(re.findall(r"--[a-z-]+", page.read_text().replace("\\-", "-")))
    overview = run(prefix / "bin/morva", "--help")
    verbs = re.findall(r"^  ([a-z]+) ", overview.split("Subcommands:")[1], re.MULTILINE)
    helps = [overview] + [run(prefix / "bin/morva", "help", verb) for verb in verbs]
    has = {name for text in helps for name in re.findall(r"^  (?:-\w,)?(--[a-z-]+)", text, re.MULTILINE)}
    FAULTS.extend(f"manual page and help differ: {name}" for name in sorted(told ^ has))


def main():
    with tempfile.TemporaryDirectory() as name, tempfile.TemporaryDirectory() as work:
        prefix, folder = Path(name), Path(work)
        run("cmake", "--install", sys.argv[1], "--prefix", prefix)
        compile_headers(prefix, folder)
        use_viewers(prefix, folder)
        compare_exports(prefix)
        compare_manual(prefix)
    print("\n".join(FAULTS))
    return len(FAULTS) != 0


if __name__ == "__main__":
    sys.exit(main())
