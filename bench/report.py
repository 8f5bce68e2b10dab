#!/usr/bin/env python3
"""Prints one table from the Google Benchmark JSON outputs of the bench binaries.

    bench/report.py build/bench/results/bench.json build/bench/results/traceout.json

Per measurement and size: our cost per entry, the hand-written baseline's from the same run, the
ratio, allocations (and frees) per entry, heap bytes per entry, and the target with whether it is
met. Where a benchmark ran several repetitions the fastest one counts (the least disturbed by the
other work of a shared machine); ratios are computed from those minima.
"""

import json
import sys
from collections import defaultdict

SIZES = (4096, 65536, 1048576)


def load(paths):
    """{(measurement, variant, n, percent): [run, ...]} of every iteration run."""
    runs = defaultdict(list)
    context = None
    for path in paths:
        with open(path, encoding="utf-8") as f:
            doc = json.load(f)
        context = context or doc.get("context", {})
        for b in doc.get("benchmarks", []):
            if b.get("run_type") == "aggregate":
                continue
            parts = []
            for p in b["name"].split("/"):
                if ":" in p:
                    break
                parts.append(p)
            measurement, variant, n = parts[0], parts[1], int(parts[2])
            percent = int(parts[3]) if len(parts) > 3 else None
            runs[(measurement, variant, n, percent)].append(b)
    return runs, context


def best(runs, key):
    """The repetition with the lowest ns_per_entry (or the only one), or None."""
    candidates = [r for r in runs.get(key, []) if not r.get("error_occurred")]
    if not candidates:
        return "error" if runs.get(key) else None
    return min(candidates, key=lambda r: r.get("ns_per_entry", 0.0))


def num(value, digits=0):
    if value is None:
        return "-"
    if isinstance(value, str):
        return value
    return f"{value:,.{digits}f}"


def per_entry_ns(run):
    return None if run in (None, "error") else run.get("ns_per_entry")


def main(paths):
    runs, context = load(paths)
    rows = []

    def time_row(label, measurement, variant, n, percent=None, target="", check=None,
                 baseline_variant="baseline", baseline_measurement=None):
        ours = best(runs, (measurement, variant, n, percent))
        base = best(runs, (baseline_measurement or measurement, baseline_variant, n, percent))
        if ours is None:
            return None
        if ours == "error":
            rows.append([label, num(n), "ERROR", "", "", "", "", target, "no"])
            return None
        ns, bns = per_entry_ns(ours), per_entry_ns(base)
        ratio = ns / bns if ns and bns else None
        allocs = ours.get("allocs_per_entry")
        frees = ours.get("frees_per_entry")
        alloc_text = f"{allocs:.2f} ({frees:.2f})" if allocs is not None and frees is not None else "-"
        met = "" if check is None else ("yes" if check(ns, ratio, ours) else "NO")
        rows.append([label, num(n), num(ns), num(bns), num(ratio, 1) + "x" if ratio else "-",
                     alloc_text, "", target, met])
        return ns

    commit = {}
    for n in SIZES:
        if n == 65536:
            target, check = "<= 1,000 ns and <= 8x", lambda ns, r, _: ns <= 1000 and r is not None and r <= 8
        elif n == 1048576:
            target, check = "<= 12x; <= 2x the 4,096 cost", None
        else:
            target, check = "", None
        commit[n] = time_row("commit life", "commit_life", "ours", n, target=target, check=check)
    if commit.get(1048576) and commit.get(4096):
        scale = commit[1048576] / commit[4096]
        last = next(r for r in rows if r[0] == "commit life" and r[1] == num(1048576))
        base = best(runs, ("commit_life", "baseline", 1048576, None))
        r = commit[1048576] / per_entry_ns(base) if per_entry_ns(base) else None
        last[7] = f"<= 12x; <= 2x 4,096 (is {scale:.2f}x)"
        last[8] = "yes" if r is not None and r <= 12 and scale <= 2 else "NO"
    for n in SIZES:
        time_row("re-commit (changed)", "recommit", "ours", n,
                 target="no allocation", check=lambda ns, r, o: o.get("allocs_per_entry", 1) < 0.01)
    for n in SIZES:
        time_row("removal (delete dance)", "remove", "ours", n)
    for percent in (0, 10, 100):
        for n in SIZES:
            run = best(runs, ("restart", "ours", n, percent))
            target, check = "", None
            if percent == 0 and n == 65536:
                target = ">= 2,000,000 entries/s"
                check = lambda ns, r, o: o.get("entries_per_s", 0) >= 2_000_000
            if run not in (None, "error"):
                rate = run.get("entries_per_s", 0)
                target = (target + "; " if target else "") + f"is {rate:,.0f}/s"
            time_row(f"restart, {percent}% changed", "restart", "ours", n, percent, target, check)
    disabled = {}
    compiled_out = {}
    for n in SIZES:
        out = best(runs, ("trace_commit", "compiled_out", n, None))
        compiled_out[n] = per_entry_ns(out)
        time_row("commit, trace compiled out", "trace_commit", "compiled_out", n,
                 baseline_measurement="commit_life")
    for n in SIZES:
        d = best(runs, ("trace_commit", "disabled", n, None))
        disabled[n] = per_entry_ns(d)
        target, check = "", None
        if disabled[n] and compiled_out.get(n):
            rel = disabled[n] / compiled_out[n]
            target = f"<= 1.03x compiled out (is {rel:.3f}x)"
            check = lambda ns, r, o, rel=rel: rel <= 1.03
        time_row("commit, trace disabled", "trace_commit", "disabled", n,
                 baseline_measurement="commit_life", target=target, check=check)
    for n in SIZES:
        m = best(runs, ("trace_commit", "memory_sink", n, None))
        lines = m.get("trace_lines_per_entry") if m not in (None, "error") else None
        time_row("commit, trace to memory sink", "trace_commit", "memory_sink", n,
                 baseline_measurement="commit_life",
                 target=f"{lines:.1f} lines/entry" if lines else "")
    for n in SIZES:
        ours = best(runs, ("memory", "ours", n, None))
        base = best(runs, ("memory", "baseline", n, None))
        if ours in (None, "error"):
            continue
        b = base if base not in (None, "error") else {}
        bytes_ours, bytes_base = ours["bytes_per_entry"], b.get("bytes_per_entry")
        transient = ours["alloc_min_per_commit"]
        rows.append(["heap per committed entry", num(n), "", "", num(bytes_ours / bytes_base, 1) + "x"
                     if bytes_base else "-", f"{transient:.0f} per commit",
                     f"{num(bytes_ours)} (base {num(bytes_base)})", "<= 192 B",
                     "yes" if bytes_ours <= 192 else "NO"])
    for n in SIZES:
        ours = best(runs, ("memory", "ours", n, None))
        base = best(runs, ("memory", "baseline", n, None))
        if ours in (None, "error"):
            continue
        b = base if base not in (None, "error") else {}
        sync, sync_base = ours["sync_bytes_per_row"], b.get("sync_bytes_per_row")
        rows.append(["heap per row read back", num(n), "", "", num(sync / sync_base, 1) + "x"
                     if sync_base else "-", "", f"{num(sync)} (base {num(sync_base)})", "<= 64 B",
                     "yes" if sync <= 64 else "NO"])

    header = ["measurement", "entries", "ns/entry", "baseline ns", "ours/base",
              "allocs (frees)/entry", "heap B/entry", "target", "met"]
    widths = [max(len(str(r[i])) for r in rows + [header]) for i in range(len(header))]
    right = {1, 2, 3, 4, 5, 6}

    def line(cells):
        return "  ".join(str(c).rjust(w) if i in right else str(c).ljust(w)
                         for i, (c, w) in enumerate(zip(cells, widths))).rstrip()

    if context:
        print(f"host {context.get('host_name', '?')}, {context.get('num_cpus', '?')} CPUs at "
              f"{context.get('mhz_per_cpu', '?')} MHz, load average "
              f"{', '.join(f'{x:.2f}' for x in context.get('load_avg', []))}")
    print(line(header))
    print("  ".join("-" * w for w in widths))
    previous = None
    for r in rows:
        if previous is not None and r[0] != previous:
            print()
        previous = r[0]
        print(line(r))
    return 1 if any(r[2] == "ERROR" for r in rows) else 0


if __name__ == "__main__":
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    sys.exit(main(sys.argv[1:]))
