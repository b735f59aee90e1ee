#!/usr/bin/env python3
"""Puts faults into the sources, one at a time, and tells which of them the tests see.

    scripts/mutate.py [scripts/faults/*.txt] [--only GLOB...] [--all] [--also NAME=COMMAND] [--report FILE]
    scripts/mutate.py --check

A fault is a place in one file and what stands there instead (scripts/faults/README.md tells the format). The sources
are copied to build/mutate and built there incrementally, so that a fault costs the compilation of what it touches; the
sweeps over the functions that it can reach run first, then the tests of its room, and the first failure ends it.
Faults of the copy for vectors of 32 bytes have a build of their own, whose tests meet that copy.
--also names a further program to be tried on every fault, whatever the others say: {build} and {room} stand for
the build folder and the room of the fault.

--check only looks whether every fault still has its single place; the tests do so, since sources move on.

The last line counts: faults that can be seen from outside (--all tries the others too), those killed, the rate. Exits
with 0 from 95 percent on.
"""
import argparse
import fnmatch
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
SOURCE, BUILDS = WORK, WORK / "build"  # as the presets have them, for the compiler's cache
COPIES = {"base": ("default", []), "wide": ("wide", ["-DZORI_TEST_WIDE=ON"])}
FOLDERS = ["api", "check", "cmake", "docs", "examples", "fuzz", "include", "programs", "python", "scripts", "src", "tests",
           "tools"]
SECONDS = 300  # of processor time that a program may take, however busy the machine is; a fault that makes it go on
#                and on is seen, and so is one that makes it wait:
STANDSTILL = 120  # seconds without any processor time


def expanded(pattern):
    """The alternatives of a pattern with braces."""
    head, brace, rest = pattern.partition("{")
    if not brace:
        return [pattern]
    inner, _, tail = rest.partition("}")
    return [head + word + end for word in inner.split(",") for end in expanded(tail)]


class Fault:
    """One block of a file of faults."""

    def __init__(self, name, where):
        self.name, self.where = name, where
        self.file, self.old, self.new, self.functions, self.tests, self.unseen = None, [], [], "*", "*", None
        self.rooms, self.sources, self.copy = None, None, "base"

    def add(self, key, value):
        if key in ("old", "new"):
            getattr(self, key).append(value)
        else:
            setattr(self, key, value)

    @property
    def room(self):
        return self.file.split("/")[1]

    @property
    def build(self):
        return BUILDS / COPIES[self.copy][0]

    def tested(self):
        """The rooms whose tests are tried: its own, or those named, since a floor is seen through what stands on it."""
        return self.rooms.split() if self.rooms else [self.room]

    def globs(self):
        """The functions that the fault can reach, without braces."""
        return ":".join(expanded(self.functions))

    def misplaced(self):
        """What is wrong with the place in the project's own file: it must be a single one."""
        path, old = ROOT / self.file, "\n".join(self.old)
        places = path.read_text().count(old) if path.exists() else 0
        return "" if places == 1 else f"{self.where}: {self.name}: {places} places in {self.file} read {old!r}"

    def apply(self):
        """The text of the copied file with the fault in it."""
        return (SOURCE / self.file).read_text().replace("\n".join(self.old), "\n".join(self.new))

    def objects(self):
        """What is built of the sources that alone shall have the fault; [] where all that include its file do."""
        return sorted(str(o.relative_to(self.build)) for source in (self.sources or "").split()
                      for o in self.build.glob(f"src/CMakeFiles/zori*.dir/{source}.o"))


KEYS = ("fault", "file", "old", "new", "functions", "tests", "rooms", "sources", "copy", "unseen")


def read(path):
    faults, block = [], None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        key, _, value = line.partition(" ")
        if not line.strip():
            block = None
        elif key == "fault":
            faults.append(Fault(value, f"{path.name}:{number}"))
        elif key in KEYS:
            block = key
            faults[-1].add(key, value)
        elif block in ("old", "new"):
            faults[-1].add(block, line)
        elif not line.startswith("#"):
            sys.exit(f"{path.name}:{number}: unknown key {key}")
    return faults


def copy_sources():
    """Brings the copy up to date; what has not changed keeps its time, so that it is not built again."""
    wanted = {p.relative_to(ROOT) for folder in FOLDERS for p in (ROOT / folder).rglob("*")
              if p.is_file() and "__pycache__" not in p.parts}
    wanted |= {pathlib.Path(name) for name in ("CMakeLists.txt", "CMakePresets.json", ".clang-format", "LICENSE",
                                               "README.md", "CHANGELOG.md")}
    for path in wanted:
        target = SOURCE / path
        if not target.exists() or target.read_bytes() != (ROOT / path).read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(ROOT / path, target)
    for path in (p for folder in FOLDERS for p in (SOURCE / folder).rglob("*")):
        if path.is_file() and path.relative_to(SOURCE) not in wanted:
            path.unlink()


def build(folder, targets):
    return subprocess.run(["cmake", "--build", folder, "-j", str(len(os.sched_getaffinity(0))), "--target", *targets],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


class InPlace:
    """A fault in the copied sources, for as long as a `with` lasts, and built into the objects that it names."""

    def __init__(self, fault):
        self.path, self.fault = SOURCE / fault.file, fault

    def __enter__(self):
        self.original, times = self.path.read_text(), self.path.stat()
        self.objects = self.fault.objects()
        self.path.write_text(self.fault.apply())
        self.compiles = True
        if self.objects:  # the others never see that the file has changed
            self.compiles = build(self.fault.build, self.objects)
            os.utime(self.path, ns=(times.st_atime_ns, times.st_mtime_ns))
        self.compiles = self.compiles and build(self.fault.build, ["sweep_tests"])
        return self

    def __exit__(self, *_):
        times = self.path.stat()
        self.path.write_text(self.original)
        if self.objects:
            os.utime(self.path, ns=(times.st_atime_ns, times.st_mtime_ns))
            for o in self.objects:
                (self.fault.build / o).unlink(missing_ok=True)


def processor_time(group):
    """What the processes of a group have used so far, in ticks, their children included."""
    ticks = 0
    for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = stat.read_text().rpartition(")")[2].split()
        except OSError:  # it has ended
            continue
        if int(fields[2]) == group:
            ticks += sum(map(int, fields[11:15]))
    return ticks


def output(run):
    """All that a process prints; None, and the process is ended, when it stands still."""
    used, since = 0, time.monotonic()
    while True:
        try:
            return run.communicate(timeout=5)[0]
        except subprocess.TimeoutExpired:
            now = processor_time(run.pid)
            if now != used:
                used, since = now, time.monotonic()
            elif time.monotonic() - since > STANDSTILL:
                os.killpg(run.pid, signal.SIGKILL)
                run.communicate()
                return None


def fails(command, environment=None):
    """What the program says when it fails, in one line; else ''."""
    run = subprocess.Popen(command, env={**os.environ, "OMP_WAIT_POLICY": "passive", **(environment or {})}, text=True,
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="replace",
                           shell=isinstance(command, str), start_new_session=True,
                           preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (SECONDS, SECONDS + 5)))
    said = output(run)
    if said is None:
        return "stands still"
    if run.returncode == 0:
        return ""
    if run.returncode in (-signal.SIGXCPU, 128 + signal.SIGXCPU):  # by itself, in a shell
        return "does not end"
    lines = said.splitlines()
    for start in ("[  FAILED  ]", "while calling"):
        for line in lines:
            if line.startswith(start):
                return line.removeprefix("[  FAILED  ]").strip()[:110]
    return f"ends with {run.returncode}"


def programs(fault):
    """Name, command and environment of the programs that may see the fault, the quickest first."""
    rooms = [fault.build / "tests" / f"{room}_tests" for room in fault.tested()]
    quick = ["--gtest_brief=1", "--gtest_fail_fast"]
    for suites in ("-*LargeSweep*", fault.tests, "*LargeSweep*"):
        if suites != fault.tests:
            yield ("sweep_tests", [str(fault.build / "tests/sweep/sweep_tests"), *quick, f"--gtest_filter={suites}"],
                   {"ZORI_SWEEP": fault.globs()})
            continue
        for room in rooms:
            if room.exists() and build(fault.build, [room.name]):
                yield room.name, [str(room), *quick, f"--gtest_filter={suites}"], {}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", type=pathlib.Path)
    parser.add_argument("--only", default=["*"], nargs="+", metavar="GLOB")
    parser.add_argument("--all", action="store_true", help="those that cannot be seen, too")
    parser.add_argument("--also", action="append", default=[], metavar="NAME=COMMAND")
    parser.add_argument("--report", type=pathlib.Path)
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_args()
    files = arguments.files or sorted((ROOT / "scripts/faults").glob("*.txt"))
    faults = [f for path in files for f in read(path)
              if any(fnmatch.fnmatch(f.name, glob) for glob in arguments.only) and (arguments.all or arguments.check or not f.unseen)]
    also = dict(item.split("=", 1) for item in arguments.also)

    misplaced = [said for said in (fault.misplaced() for fault in faults) if said]
    if misplaced:
        sys.exit("\n".join(misplaced))
    if arguments.check:
        print(f"{len(faults)} faults have their places")
        return 0
    copy_sources()
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    for copy, (folder, options) in COPIES.items():
        of_copy = [f for f in faults if f.copy == copy]
        if not of_copy:
            continue
        subprocess.run(["cmake", "-S", SOURCE, "-B", BUILDS / folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                        "-DZORI_BUILD_EXAMPLES=OFF", *options, *launcher], check=True, stdout=subprocess.DEVNULL)
        targets = sorted({f"{room}_tests" for f in of_copy for room in f.tested()
                          if list((SOURCE / "tests" / room).glob("*_test.cpp"))})
        if not build(BUILDS / folder, [*targets, "sweep_tests"]):
            sys.exit("the sources do not build without a fault")

    killed = visible = 0
    for fault in faults:
        start, seen, others = time.time(), "", []
        with InPlace(fault) as placed:
            compiles = placed.compiles
            if compiles:
                for name, command, environment in programs(fault):
                    said = fails(command, environment)
                    if said:
                        seen = f"{name}: {said}"
                        break
                others = [f"{name}: {fails(command.format(build=fault.build, room=fault.room), {'ZORI_SWEEP': fault.globs()}) or 'no'}"
                          for name, command in also.items()]
        counts = compiles and not fault.unseen
        visible += counts
        killed += counts and bool(seen)
        verdict = ("no fault: does not compile" if not compiles else "killed" if seen else
                   "cannot be seen" if fault.unseen else "SURVIVED")
        line = f"{verdict:9} {fault.name} ({time.time() - start:.0f} s) {'; '.join([seen or fault.unseen or '', *others])}"
        print(line, flush=True)
        if arguments.report:
            with arguments.report.open("a") as report:
                report.write(line + "\n")
    rate = 100 * killed / visible if visible else 0
    print(f"{visible} faults that can be seen, {killed} killed: {rate:.1f}%")
    return 0 if rate >= 95 else 1


if __name__ == "__main__":
    sys.exit(main())
