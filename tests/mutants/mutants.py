#!/usr/bin/env python3
"""Tries the tests of a folder on mutants: one small fault each, put into the folder's code.

    mutants.py FOLDER [--tests REGEX] [--only ID,...] [--all] [--jobs N] [--build DIR]

FOLDER is one under tests/. FOLDER.json beside this script lists its mutants (see source_tree.py). All are
built at once, in a copy of the sources under build/mutants/FOLDER, and MORVA_MUTANT picks one. First
all tests must pass without a mutant; then each mutant is tried by the tests of the folder and, if they
don't see it, by those of whole roads. A test sees a mutant by failing, crashing, or taking more than
four times its time. With --all each test is tried on each mutant, and those that see none are told.

Tests changed since the last call are built anew, the library only if it or the mutants changed.
Ends with 1 if a mutant is not seen for which the table gives no reason (`why`).
"""

import argparse
import collections
import concurrent.futures
import os
import pathlib
import sys

import source_tree
import test_programs

ROADS = "roads"


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("folder")
    parser.add_argument("--tests", default="", metavar="REGEX", help="only tests with such names")
    parser.add_argument("--only", default="", metavar="ID,...", help="only these mutants")
    parser.add_argument("--all", action="store_true", help="each test on each mutant")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--build", type=pathlib.Path, metavar="DIR")
    return parser.parse_args()


def try_mutant(number, own, roads, every):
    """Names of the tests that see a mutant: the first one found, or all."""
    seen = []
    for run in own:
        seen += run.failing(number, every)
        if seen and not every:
            return seen
    for run in roads if not seen else ():
        seen += run.failing(number, False)
        if seen:
            break
    return seen


def tell(mutant, seen):
    text = f"seen by {' '.join(seen)}" if seen else "NOT SEEN"
    if not seen and mutant.get("why"):
        text = "not seen: " + mutant["why"]
    print(f"{mutant['id']:6} {mutant['kind']:9} {text}", flush=True)


def summary(chosen, results, own, every):
    """Prints the totals; true if no mutant is missed without a reason."""
    missed = [mutant for mutant in chosen if not results[mutant["id"]]]
    unexplained = [mutant["id"] for mutant in missed if not mutant.get("why")]
    kinds = collections.Counter(mutant["kind"] for mutant in chosen)
    print(f"made {len(chosen)} ({', '.join(f'{n} {kind}' for kind, n in sorted(kinds.items()))}), "
          f"seen {len(chosen) - len(missed)}, not seen {len(missed)}"
          + (f": {' '.join(mutant['id'] for mutant in missed)}" if missed else ""))
    if every:
        seeing = {name for names in results.values() for name in names}
        blind = [name for run in own for name in run.tests if name not in seeing]
        print(f"tests that see none: {len(blind)}", *blind, sep="\n    ")
    return not unexplained


def main():
    options = arguments()
    os.nice(10)
    table = source_tree.read_table(options.folder)
    build = options.build or source_tree.ROOT / "build" / "mutants" / options.folder
    tree = source_tree.write(build, table)
    wanted = set(filter(None, options.only.split(",")))
    chosen = [mutant for mutant in table if not wanted or mutant["id"] in wanted]
    if wanted - {mutant["id"] for mutant in table}:
        sys.exit(f"no such mutant: {options.only}")

    test_programs.build(tree, [options.folder, ROADS])
    own = test_programs.runs_of(tree, options.folder, options.tests)
    roads = [] if options.folder == ROADS else test_programs.runs_of(tree, ROADS, options.tests)
    if not own:
        sys.exit("no test has such a name")
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for problem in filter(None, pool.map(lambda run: run.measure(), own + roads)):
            sys.exit(problem)
        own.sort(key=lambda run: run.seconds)
        numbers = {mutant["id"]: index for index, mutant in enumerate(table, 1)}
        tried = {mutant["id"]: pool.submit(try_mutant, numbers[mutant["id"]], own, roads, options.all)
                 for mutant in chosen}
        results = {}
        for mutant in chosen:
            results[mutant["id"]] = tried[mutant["id"]].result()
            tell(mutant, results[mutant["id"]])
    return 0 if summary(chosen, results, own, options.all) else 1


if __name__ == "__main__":
    sys.exit(main())
