#!/usr/bin/env python3
"""Mutation testing: does the test suite find small faults put into the library?

Applies each mutation of a fixed list (mutants.toml beside this script) to a copy of the sources,
rebuilds the release build incrementally, runs the test suite (ctest) and reports whether some test
failed ("killed") or none did ("SURVIVED"). The score is killed / total.

The working tree is never written: the tracked files are copied into a scratch directory
(build/mutation/ by default), which is brought back in line with the tree at every start, so a run
killed at any moment leaves nothing to clean. See docs/TESTING.md.

Exit status: 0 when every mutant is killed or the score reaches --min-score; 1 when it does not;
2 when the list is wrong (a snippet not found exactly once, a mutant that does not compile) or the
unmutated suite fails.
"""

import argparse
import ctypes
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

try:
    import tomllib
except ModuleNotFoundError:  # Python before 3.11
    sys.exit("mutate.py needs Python 3.11 or later (tomllib)")

HERE = Path(__file__).resolve().parent
REPO = HERE.parent.parent


class ListError(Exception):
    """A mistake in the mutation list, as opposed to a result."""


# --- the list ---------------------------------------------------------------------------------


def load_mutants(path):
    with open(path, "rb") as f:
        data = tomllib.load(f)
    mutants, seen = [], set()
    for n, m in enumerate(data.get("mutant", []), 1):
        mid = m.get("id") or f"#{n}"
        for field in ("id", "file", "kind", "description"):
            if not isinstance(m.get(field), str) or not m[field]:
                raise ListError(f"{mid}: missing '{field}'")
        if mid in seen:
            raise ListError(f"{mid}: id used twice")
        seen.add(mid)
        # One edit (find/replace) or several ([[mutant.edit]]), e.g. to swap two calls.
        edits = m.get("edit") or [{"find": m.get("find"), "replace": m.get("replace")}]
        for e in edits:
            if not isinstance(e.get("find"), str) or not isinstance(e.get("replace"), str):
                raise ListError(f"{mid}: every edit needs 'find' and 'replace'")
            if e["find"] == e["replace"]:
                raise ListError(f"{mid}: an edit replaces a snippet by itself")
        mutants.append({**m, "edits": edits})
    return mutants


def mutated_text(mutant, text):
    """The file's text with the mutant's edits applied; each snippet must occur exactly once."""
    spans = []
    for e in mutant["edits"]:
        count = text.count(e["find"])
        if count != 1:
            first = e["find"].strip().splitlines()[0] if e["find"].strip() else e["find"]
            raise ListError(f"{mutant['id']}: {mutant['file']}: snippet found {count} times "
                            f"(must be exactly once): {first!r}")
        start = text.index(e["find"])
        spans.append((start, start + len(e["find"]), e["replace"]))
    spans.sort()
    for (_, end, _), (start, _, _) in zip(spans, spans[1:]):
        if start < end:
            raise ListError(f"{mutant['id']}: {mutant['file']}: two edits overlap")
    for start, end, replace in reversed(spans):
        text = text[:start] + replace + text[end:]
    return text


def check_list(mutants, tree):
    errors = []
    for m in mutants:
        path = tree / m["file"]
        if not path.is_file():
            errors.append(f"{m['id']}: {m['file']}: no such file")
            continue
        try:
            mutated_text(m, path.read_text())
        except ListError as e:
            errors.append(str(e))
    return errors


# --- the scratch copy -------------------------------------------------------------------------


def work_dir(path):
    """Creates the scratch directory; refuses a symlink on its way below the repository."""
    path = Path(os.path.abspath(path))
    inside = path.is_relative_to(REPO)
    base = REPO if inside else path.parent
    for part in path.relative_to(base).parts:
        base = base / part
        if base.is_symlink():
            raise ListError(f"{base} is a symlink; refusing to work through it (use --work)")
        base.mkdir(exist_ok=True)
    return path


def safe_dir(root, rel):
    """Creates root/rel, replacing any symlink on the way (never follows one we did not make)."""
    path = root
    for part in Path(rel).parts:
        path = path / part
        if path.is_symlink() or (path.exists() and not path.is_dir()):
            path.unlink()
        if not path.exists():
            path.mkdir()
    return path


def write_file(path, data, mode=0o644):
    """Writes through a new file renamed into place: a symlink at `path` is replaced, not followed."""
    tmp = path.with_name(path.name + ".mutation-tmp")
    if tmp.is_symlink() or tmp.exists():
        tmp.unlink()
    fd = os.open(tmp, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW, mode)
    with os.fdopen(fd, "wb") as f:
        f.write(data)
    os.replace(tmp, path)


def tracked_files(tree):
    out = subprocess.run(["git", "-C", str(tree), "ls-files", "-z"], check=True,
                         capture_output=True).stdout
    return [Path(p) for p in out.decode().split("\0") if p]


def sync_sources(tree, src):
    """Makes `src` an exact copy of the tracked files of `tree` (their working-tree content),
    rewriting only what differs, so that the build there stays incremental."""
    src = safe_dir(src.parent, src.name)
    wanted = set()
    for rel in tracked_files(tree):
        origin = tree / rel
        if origin.is_symlink() or not origin.is_file():
            continue  # a tracked symlink or a deleted file: nothing of ours to build
        wanted.add(rel)
        dest = safe_dir(src, rel.parent) / rel.name
        data = origin.read_bytes()
        mode = 0o755 if os.access(origin, os.X_OK) else 0o644
        if dest.is_symlink() or not dest.is_file() or dest.read_bytes() != data:
            write_file(dest, data, mode)
    # Files gone from the tree (moved, split) must go from the copy too: CMake globs sources.
    for dirpath, dirnames, filenames in os.walk(src, topdown=False, followlinks=False):
        d = Path(dirpath)
        for name in filenames:
            if (d / name).relative_to(src) not in wanted:
                (d / name).unlink()
        for name in dirnames:
            p = d / name
            if p.is_symlink():
                p.unlink()
            elif not any(p.iterdir()):
                p.rmdir()
    return src


# --- processes --------------------------------------------------------------------------------


def become_subreaper():
    """Orphans of our tests (a forked child left running by a timed-out test) become our children,
    so that we can end them by their id."""
    try:
        ctypes.CDLL(None, use_errno=True).prctl(36, 1, 0, 0, 0)  # PR_SET_CHILD_SUBREAPER
    except (OSError, AttributeError):
        pass


def children():
    me, pids = str(os.getpid()), []
    for proc in Path("/proc").iterdir():
        try:
            stat = (proc / "stat").read_text() if proc.name.isdigit() else ""
        except OSError:
            continue
        if stat and stat[stat.rindex(")") + 2:].split()[1] == me:
            pids.append(int(proc.name))
    return pids


def end_leftover_children():
    """Ends, by their id, the processes left over from a finished command (all our children then:
    we run one command at a time), and reaps them."""
    for _ in range(100):
        pids = children()
        if not pids:
            return
        for pid in pids:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        time.sleep(0.1)
        while True:
            try:
                if os.waitpid(-1, os.WNOHANG)[0] == 0:
                    break
            except ChildProcessError:
                break


def die_with_parent():
    """Run in the child before exec: the command ends when this script is killed (PR_SET_PDEATHSIG)."""
    try:
        ctypes.CDLL(None, use_errno=True).prctl(1, signal.SIGKILL, 0, 0, 0)
    except (OSError, AttributeError):
        pass


def run(cmd, log, timeout=None):
    with open(log, "w") as out:
        try:
            p = subprocess.run(cmd, stdout=out, stderr=subprocess.STDOUT, timeout=timeout,
                               preexec_fn=die_with_parent)
            code = p.returncode
        except subprocess.TimeoutExpired:
            code = None
    end_leftover_children()
    return code, Path(log).read_text(errors="replace")


# --- build and test ---------------------------------------------------------------------------

RESULT_LINE = re.compile(r"Test\s+#\d+: (\S+) \.*\**\s*(.*?)\s+[\d.]+ sec")


def configure(src, build, log):
    # With ccache, compiling a reverted file again is a cache hit (its cache stays in the scratch
    # directory: CCACHE_DIR is set in main).
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    code, text = run(["cmake", "-S", str(src), "-B", str(build), "-G", "Ninja",
                      "-DCMAKE_BUILD_TYPE=Release", *launcher,
                      # Tests are listed when ctest runs, not as a build step: a mutant that
                      # crashes a test binary at start-up is then a failed test, not a build error.
                      "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"], log)
    if code != 0:
        raise ListError(f"configuring the scratch build failed (see {log}):\n{tail(text)}")


def build_tree(build, jobs, log):
    # ninja itself rather than `cmake --build`, so that it ends with this script (die_with_parent).
    code, text = run(["ninja", "-C", str(build), "-j", str(jobs)], log)
    return code == 0, text


def run_tests(build, jobs, timeout, log, stop_on_failure):
    """Returns [(test, reason)] of the failed tests; an empty list when all passed."""
    failed_log = build / "Testing" / "Temporary" / "LastTestsFailed.log"
    if failed_log.exists():
        failed_log.unlink()
    cmd = ["ctest", "--test-dir", str(build), "-j", str(jobs), "--timeout", str(timeout),
           "--no-tests=error"]
    if stop_on_failure:
        cmd.append("--stop-on-failure")
    code, text = run(cmd, log)
    if code == 0:
        return []
    reasons = {name: status for name, status in RESULT_LINE.findall(text)
               if status != "Passed"}
    failed = []
    if failed_log.exists():
        for line in failed_log.read_text().splitlines():
            name = line.split(":", 1)[-1]
            failed.append((name, reasons.get(name, "Failed").strip("*") or "Failed"))
    # ctest failing without a failed test: a test binary that cannot even list its tests.
    return failed or [("(ctest)", tail(text, 1).strip() or f"exit status {code}")]


def tail(text, lines=15):
    return "\n".join(text.rstrip().splitlines()[-lines:])


# --- the run ----------------------------------------------------------------------------------


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0],
                                 formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--list", action="store_true", help="list the mutations and exit")
    ap.add_argument("--check", action="store_true",
                    help="only check that every snippet occurs exactly once (no build)")
    ap.add_argument("--only", action="append", default=[], metavar="ID[,ID...]",
                    help="run only these mutations (repeatable)")
    ap.add_argument("--jobs", "-j", type=int, default=os.cpu_count() or 2,
                    help="parallel build and test jobs (default: the number of cores)")
    ap.add_argument("--min-score", type=float, default=100.0, metavar="PERCENT",
                    help="exit 0 when the score reaches this (default 100: every mutant killed)")
    ap.add_argument("--timeout", type=int, default=0, metavar="SECONDS",
                    help="per-test timeout; a test that takes longer kills its mutant "
                         "(default: 5 times the slowest test of the unmutated run, at least 60)")
    ap.add_argument("--all-tests", action="store_true",
                    help="run the whole suite for each mutant and record every test that fails "
                         "(slower; by default ctest stops at the first failure)")
    ap.add_argument("--mutants", type=Path, default=HERE / "mutants.toml",
                    help="the mutation list (default: mutants.toml beside this script)")
    ap.add_argument("--work", type=Path, default=REPO / "build" / "mutation",
                    help="scratch directory (default: build/mutation)")
    args = ap.parse_args()

    try:
        mutants = load_mutants(args.mutants)
    except (ListError, tomllib.TOMLDecodeError) as e:
        sys.exit(f"mutation list {args.mutants}: {e}")
    if args.list:
        for m in mutants:
            print(f"{m['id']:<34} {m['file']:<40} {m['kind']}\n{'':<34} {m['description']}")
        print(f"{len(mutants)} mutations")
        return 0
    wanted = {i for arg in args.only for i in arg.split(",") if i}
    if unknown := wanted - {m["id"] for m in mutants}:
        sys.exit(f"unknown mutation id(s): {', '.join(sorted(unknown))}")
    if wanted:
        mutants = [m for m in mutants if m["id"] in wanted]

    errors = check_list(mutants, REPO)
    if errors:
        print("errors in the mutation list:", *errors, sep="\n  ", file=sys.stderr)
        return 2
    if args.check:
        print(f"{len(mutants)} mutations: every snippet occurs exactly once")
        return 0

    become_subreaper()
    work = work_dir(args.work)
    logs = safe_dir(work, "logs")
    os.environ["CCACHE_DIR"] = str(safe_dir(work, "ccache"))
    src = sync_sources(REPO, work / "src")
    build = work / "build"
    if not (build / "build.ninja").exists():
        print(f"configuring a release build in {build}", flush=True)
        configure(src, build, logs / "configure.log")

    print("building and testing the unmutated sources", flush=True)
    started = time.monotonic()
    ok, text = build_tree(build, args.jobs, logs / "build-baseline.log")
    if not ok:
        print(f"the unmutated sources do not build:\n{tail(text)}", file=sys.stderr)
        return 2
    failed = run_tests(build, args.jobs, args.timeout or 600, logs / "test-baseline.log", False)
    if failed:
        print("the unmutated test suite fails; refusing to go on:", file=sys.stderr)
        for name, reason in failed:
            print(f"  {name}: {reason}", file=sys.stderr)
        return 2
    durations = [float(t) for t in re.findall(r"Passed\s+([\d.]+) sec",
                                               (logs / "test-baseline.log").read_text())]
    timeout = args.timeout or max(60, int(5 * max(durations, default=12)))
    print(f"unmutated suite passes ({len(durations)} tests, {time.monotonic() - started:.0f} s); "
          f"per-test timeout {timeout} s", flush=True)

    results, list_errors = {}, []
    width = max(len(m["id"]) for m in mutants)
    for n, m in enumerate(mutants, 1):
        path = src / m["file"]
        original = path.read_bytes()  # the tracked file's content, as synced above
        began = time.monotonic()
        try:
            write_file(path, mutated_text(m, original.decode()).encode())
            ok, text = build_tree(build, args.jobs, logs / f"{m['id']}.build.log")
            if ok:
                failed = run_tests(build, args.jobs, timeout, logs / f"{m['id']}.test.log",
                                   not args.all_tests)
        finally:
            write_file(path, original)  # the next build compiles the original again
        took = time.monotonic() - began
        if not ok:
            error = re.search(r"^.*error:.*$", text, re.M)
            list_errors.append(f"{m['id']}: {m['file']}: the mutant does not compile: "
                               f"{error.group(0).strip() if error else tail(text, 3)}")
            print(f"[{n:2}/{len(mutants)}] {m['id']:<{width}}  LIST ERROR: does not compile",
                  flush=True)
            continue
        if failed:
            name, reason = failed[0]
            verdict = f"killed by {name}" + ("" if reason == "Failed" else f" ({reason})")
        else:
            verdict = "SURVIVED"
        results[m["id"]] = {"killed": bool(failed), "failed": failed, "seconds": round(took)}
        print(f"[{n:2}/{len(mutants)}] {m['id']:<{width}}  {verdict}  [{took:.0f} s]", flush=True)

    survivors = [m for m in mutants if m["id"] in results and not results[m["id"]]["killed"]]
    total = len(results)
    killed = total - len(survivors)
    score = 100.0 * killed / total if total else 0.0
    (work / "results.json").write_text(json.dumps(results, indent=1) + "\n")
    print(f"\nscore: {killed}/{total} killed = {score:.1f}%  (results in {work / 'results.json'})")
    if survivors:
        print("survivors:")
        for m in survivors:
            print(f"  {m['id']} ({m['file']}): {m['description']}")
    if list_errors:
        print("errors in the mutation list:", *list_errors, sep="\n  ", file=sys.stderr)
        return 2
    return 0 if not survivors or score >= args.min_score else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except ListError as e:
        print(e, file=sys.stderr)
        sys.exit(2)
    except KeyboardInterrupt:
        end_leftover_children()
        sys.exit(130)
