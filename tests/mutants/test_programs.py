"""The test programs of a folder: building them, and running them on a mutant within limits."""

import collections
import json
import os
import re
import resource
import signal
import subprocess
import sys
import time

STARTED = re.compile(r"^\[ RUN      \] (\S+)", re.M)
FAILED = re.compile(r"^\[  FAILED  \] ([^\s,]+)(?:, where .*)? \(\d+ ms\)", re.M)
ENDED = re.compile(r"^\[ (?: FAILED |      OK| SKIPPED) \] ([^\s,]+).* \(\d+ ms\)", re.M)


def build(tree, folder):
    """Configures the copy and builds the folder's programs, with a compiler cache if there is one."""
    environment = dict(os.environ)
    if not environment.get("CMAKE_CXX_COMPILER_LAUNCHER") and \
            subprocess.run(["which", "ccache"], capture_output=True).returncode == 0:
        environment["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
    for command in (["cmake", "--preset", "dev"],
                    ["cmake", "--build", "build/dev", "-j", str(os.cpu_count()), "--target",
                     f"tests/{folder}/all"]):
        done = subprocess.run(command, cwd=tree, env=environment, text=True, errors="replace",
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != 0:
            lines = [line for line in done.stdout.splitlines()
                     if "error" in line.lower() or line.startswith("FAILED")]
            sys.exit("the mutants don't build:\n" + "\n".join(lines[:40] or [done.stdout[-3000:]]))


class Run:
    """One start of a test program, with the tests that it is to run."""

    def __init__(self, command, environment, folder, tests, name=None):
        self.command = command
        self.environment = environment
        self.folder = folder
        self.tests = tests
        self.name = name  # of a test with arguments of its own
        self.seconds = 0.0

    def start(self, mutant, tests, seconds, fail_fast):
        """Output and exit status (negative: a signal) of a run, which gets so many seconds of processor
        time, since the machine may be busy with others."""
        environment = dict(os.environ, **self.environment, MORVA_MUTANT=str(mutant))
        command = self.command + ["--gtest_color=no"] + ["--gtest_fail_fast"] * fail_fast
        if self.name is None:
            command.append("--gtest_filter=" + ":".join(tests))

        def limits():
            resource.setrlimit(resource.RLIMIT_CPU, (int(seconds) + 1, int(seconds) + 2))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        process = subprocess.Popen(command, cwd=self.folder, env=environment, preexec_fn=limits,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, start_new_session=True)
        try:
            output, _ = process.communicate(timeout=3 * seconds)
        except subprocess.TimeoutExpired:  # it waits for something
            os.killpg(process.pid, signal.SIGKILL)
            output, _ = process.communicate()
        return output.decode(errors="replace"), process.returncode

    def measure(self):
        """Runs without a mutant and keeps the time taken; returns what is wrong, if anything."""
        start = time.monotonic()
        output, status = self.start(0, self.tests, 1200, False)
        self.seconds = time.monotonic() - start
        if status != 0:
            return f"{self.command[0]} fails without a mutant:\n{output[-3000:]}"
        return None

    def failing(self, mutant, every):
        """Names of the tests that see a mutant: the first, or every one."""
        seen, left = [], list(self.tests)
        while left:
            output, status = self.start(mutant, left, 4 * self.seconds + 10, not every)
            if status == 0:
                break
            if self.name is not None:
                return [self.name]
            ended = set(ENDED.findall(output))
            started = [name for name in STARTED.findall(output) if name not in ended]
            seen += FAILED.findall(output) + started[-1:]
            if not seen:
                seen.append(os.path.basename(self.command[0]))  # ends before or after its tests
            if not every or not started:
                break
            left = [name for name in left if name not in ended and name != started[-1]]
        return list(dict.fromkeys(seen))


def runs_of(tree, folder, pattern):
    """How the tests of a folder with such names are run: each program once, and alone those tests that
    have arguments or an environment of their own."""
    listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=tree / "build/dev/tests" / folder,
                            check=True, capture_output=True, text=True).stdout
    programs = collections.defaultdict(list)
    alone = []
    for test in json.loads(listed)["tests"]:
        if not re.search(pattern, test["name"]):
            continue
        properties = {entry["name"]: entry["value"] for entry in test.get("properties", ())}
        where = properties.get("WORKING_DIRECTORY", str(tree))
        environment = properties.get("ENVIRONMENT")
        if environment:
            alone.append(Run(test["command"], dict(entry.split("=", 1) for entry in environment), where,
                             [test["name"]], test["name"]))
        else:
            filters = [word[len("--gtest_filter="):] for word in test["command"]
                       if word.startswith("--gtest_filter=")]
            programs[test["command"][0], where] += filters or [test["name"]]
    return [Run([program], {}, where, tests) for (program, where), tests in programs.items()] + alone
