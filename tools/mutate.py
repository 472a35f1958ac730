#!/usr/bin/python3
"""Plants the faults of tools/mutants.txt one at a time and runs the test suites against each.

Works on a copy of the tree in build-mutate/tree with a Ninja build in build-mutate/build, so
each fault rebuilds only the objects it touches. Prints a table (caught by which test, or
missed) and exits 1 when any fault went through every test or could not be planted.

  tools/mutate.py [TEXT...]  only the faults whose line contains one of the TEXTs
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build-mutate"
TREE = WORK / "tree"
BUILD = WORK / "build"
JOBS = os.environ.get("VELTRO_JOBS", "2")


class Mutant:
    def __init__(self, lineno, file, find, replace, why):
        self.lineno, self.file, self.why = lineno, file, why
        self.find = find.replace("⏎", "\n")
        self.replace = replace.replace("⏎", "\n")

    def folder(self):
        """The library folder: src/editor/window is one of its own; sim/ is one too."""
        parts = pathlib.PurePath(self.file).parts
        if parts[0] != "src":
            return parts[0]
        return "/".join(parts[1:3]) if len(parts) > 3 else parts[1]


def read_mutants(selection=()):
    mutants, errors = [], []
    for n, line in enumerate((ROOT / "tools/mutants.txt").read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if selection and not any(text in line for text in selection):
            continue
        fields = line.split("\t")
        if len(fields) != 4 or not (fields[0].strip() and fields[1] and fields[3].strip()):
            errors.append(f"tools/mutants.txt:{n}: needs four tab-separated fields: file, find, replace (may be empty), why")
            continue
        m = Mutant(n, *fields)
        path = ROOT / m.file
        count = path.read_text(encoding="utf-8").count(m.find) if path.exists() else 0
        if count != 1:
            errors.append(f"tools/mutants.txt:{n}: {m.file} holds the text {count} times, not once: {fields[1]!r}")
            continue
        mutants.append(m)
    return mutants, errors


def sync_tree():
    """Copies the tracked and new files into the work tree; unchanged files keep their times."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=ROOT,
                            check=True, capture_output=True).stdout.decode().split("\0")
    wanted = set()
    for name in filter(None, listed):
        src, dst = ROOT / name, TREE / name
        if not src.is_file():
            continue
        wanted.add(dst)
        data = src.read_bytes()
        if not dst.exists() or dst.read_bytes() != data:
            dst.parent.mkdir(parents=True, exist_ok=True)
            dst.write_bytes(data)
    for dst in TREE.rglob("*"):
        if dst.is_file() and dst not in wanted:
            dst.unlink()


def build():
    if not (BUILD / "build.ninja").exists():
        subprocess.run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                        "-DCMAKE_CXX_FLAGS_RELEASE=-O1",
                        # a planted fault that makes a test hang is caught when the test times out
                        "-DVELTRO_TEST_TIMEOUT=120"], check=True, capture_output=True)
    # Twice: after a changed form, the first run may regenerate its header without rebuilding
    # the sources that include it; the second finds them out of date (a no-op otherwise).
    for _ in range(2):
        r = subprocess.run(["ninja", "-C", BUILD, f"-j{JOBS}"], capture_output=True, text=True)
        if r.returncode != 0:
            break
    return r.returncode == 0, r.stdout[-3000:]


def ctest(*selection):
    """Runs the chosen tests; returns the names of the failed ones."""
    r = subprocess.run(["ctest", "-j", JOBS, "--stop-on-failure", *selection],
                       cwd=BUILD, capture_output=True, text=True)
    return re.findall(r"^\s*\d+ - (\S+) \(", r.stdout, re.M), r.returncode, r.stdout


def run_suites(m):
    """The suites of the fault's own folder first (and the fuzz replays), then all the others."""
    near = f"^({m.folder().split('/')[0]}_|fuzz_)"
    failed, _, _ = ctest("-R", near)
    if failed:
        return failed
    failed, _, _ = ctest("-E", near)
    return failed


def main():
    mutants, errors = read_mutants(sys.argv[1:])
    for e in errors:
        print(e)
    if not mutants:
        return 1
    WORK.mkdir(exist_ok=True)
    sync_tree()
    ok, log = build()
    if not ok:
        print(log + "\nThe tree does not build without any planted fault.")
        return 1
    failed, _, out = ctest()
    if failed:
        print(out[-3000:] + "\nThe suites fail without any planted fault: " + ", ".join(failed))
        return 1

    rows = []
    for i, m in enumerate(mutants, 1):
        path = TREE / m.file
        original = path.read_text(encoding="utf-8")
        started = time.monotonic()
        path.write_text(original.replace(m.find, m.replace, 1), encoding="utf-8")
        try:
            ok, log = build()
            outcome = ("caught by " + ", ".join(run_suites(m))) if ok else "does not build"
            if ok and outcome == "caught by ":
                outcome = "MISSED"
        finally:
            path.write_text(original, encoding="utf-8")
        rows.append((m, outcome))
        print(f"[{i}/{len(mutants)}] {m.file}:{m.lineno} {outcome} ({time.monotonic() - started:.0f} s)", flush=True)
        if outcome == "does not build":
            print(log)
    build()

    print()
    width = max(len(f"{m.file} (line {m.lineno})") for m, _ in rows)
    for m, outcome in rows:
        print(f"{m.file + f' (line {m.lineno})':<{width}}  {outcome}")
        if not outcome.startswith("caught"):
            print(f"{'':<{width}}  {m.why}")
    by_folder = {}
    for m, outcome in rows:
        caught, total = by_folder.get(m.folder(), (0, 0))
        by_folder[m.folder()] = (caught + outcome.startswith("caught"), total + 1)
    print("\n" + "  ".join(f"{f} {c}/{t}" for f, (c, t) in sorted(by_folder.items())))
    missed = sum(1 for _, o in rows if not o.startswith("caught"))
    print(f"{len(rows) - missed} of {len(rows)} planted faults caught")
    return 1 if missed or errors else 0


if __name__ == "__main__":
    sys.exit(main())
