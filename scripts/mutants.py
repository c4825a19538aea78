#!/usr/bin/env python3
"""Plants the faults of tests/mutants/faults.txt in the code one at a time
and reports which the test suite catches.

  scripts/mutants.py BUILD_DIR [--memory] [NAME...]

BUILD_DIR is a configured build (the library and its tests; the tool for
the faults in tools/; benchmarks may be off). For each fault: apply it,
rebuild the programs its tests run, run them through ctest with a timeout,
restore the file. --memory runs only the faults tagged "asan" (meant for a
-DVELL_SANITIZE=ON build). NAMEs pick faults by name.
Prints one line per fault: its name, CAUGHT (with the failing tests) or
MISSED, or BUILD-ERROR when the planted fault does not compile; a program
that outlives its timeout counts as a failure (the fault made it hang). Exits 0;
the source tree is left as it was found, even when interrupted.
"""
import argparse
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FAULTS = ROOT / "tests" / "mutants" / "faults.txt"
# Per test program (a planted fault may make a program loop), and per
# command, which outlasts ctest's own timeout so ctest ends its programs.
TEST_TIMEOUT = 300
TIMEOUT = 1200
# ctest names that are not build targets, with the program they run.
TARGETS = {"vell_lpm": "vell-lpm"}


def parse(text):
    faults, cur = [], None
    for line in text.splitlines():
        if line.startswith("#") or (not line.strip() and cur is None):
            continue
        if line.startswith("== "):
            name, configs, tests = line[3:].split()
            cur = {"name": name, "configs": configs.split("+"),
                   "tests": tests.split("|"), "file": None, "old": [],
                   "new": []}
            faults.append(cur)
        elif cur is None or not line.strip():
            continue
        elif cur["file"] is None:
            cur["file"] = line.strip()
        elif line[0] in "-+":
            cur["old" if line[0] == "-" else "new"].append(line[1:])
        else:
            sys.exit(f"faults.txt: unexpected line: {line!r}")
    return faults


def run(cmd, cwd, timeout=TIMEOUT):
    try:
        return subprocess.run(cmd, cwd=cwd, capture_output=True, text=True,
                              timeout=timeout)
    except subprocess.TimeoutExpired as e:
        out = e.stdout or b""
        out = out.decode(errors="replace") if isinstance(out, bytes) else out
        return subprocess.CompletedProcess(cmd, 124, out, "timeout")


def build(build_dir, tests):
    targets = sorted({TARGETS.get(t, t) for t in tests})
    cmd = ["cmake", "--build", build_dir, "-j2", "--target", *targets]
    return run(cmd, ROOT).returncode == 0


def ctest(build_dir, tests):
    # Unanchored at the end, so a program's other entries run too.
    regex = "^(" + "|".join(tests) + ")"
    return run(["ctest", "-j2", "--timeout", str(TEST_TIMEOUT), "-R", regex],
               build_dir)


def trial(fault, build_dir):
    path = ROOT / fault["file"]
    original = path.read_text()
    old, new = "\n".join(fault["old"]), "\n".join(fault["new"])
    if original.count(old) != 1:
        return f"BAD-FAULT (text found {original.count(old)} times)"
    try:
        path.write_text(original.replace(old, new))
        if not build(build_dir, fault["tests"]):
            return "BUILD-ERROR"
        r = ctest(build_dir, fault["tests"])
        if r.returncode == 0:
            return "MISSED"
        failed = re.findall(r"^\s*\d+ - (\S+) \(", r.stdout, re.M)
        return "CAUGHT " + ",".join(failed or ["(ctest failed)"])
    finally:
        path.write_text(original)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("build_dir")
    ap.add_argument("--memory", action="store_true")
    ap.add_argument("names", nargs="*")
    a = ap.parse_args()
    build_dir = str(pathlib.Path(a.build_dir).resolve())
    faults = parse(FAULTS.read_text())
    if a.memory:
        faults = [f for f in faults if "asan" in f["configs"]]
    if a.names:
        faults = [f for f in faults if f["name"] in a.names]
    tests = sorted({t for f in faults for t in f["tests"]})
    if not build(build_dir, tests):
        sys.exit("the unchanged tree does not build")
    if ctest(build_dir, tests).returncode:
        sys.exit("the unchanged tree fails its tests")
    for f in faults:
        print(f"{f['name']:40} {trial(f, build_dir)}", flush=True)
    build(build_dir, tests)


if __name__ == "__main__":
    main()
