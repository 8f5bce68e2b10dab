#!/usr/bin/env python3
"""The agent's costs next to the library's own for the same work (docs/PERFORMANCE.md).

At each size asked for, runs the library's benchmarks of a commit's whole life and of a restart
(unchanged, and with a tenth of the entries changed), and its memory benchmark; then the
`l3decap` program through a cold start, an unchanged restart and a restart with a tenth of the
tunnels changed, a tenth removed and a tenth added (the configurations of store-cost.py), each
under /usr/bin/time; then reading the configuration alone, `plan` and `dump --json`. Prints the
agent's wall time and peak RSS beside the library's time and heap (plus the chip file's mapping),
and their ratios. Run it on an idle machine: both sides are timed in the same sitting, so a load
shows in both, but not evenly.

usage: bench/agent-scale.py [--bin PATH] [--bench PATH] [TUNNELS ...]   (default 65536 1048576)
"""
import argparse
import importlib.util
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
_spec = importlib.util.spec_from_file_location("store_cost", os.path.join(HERE, "store-cost.py"))
store_cost = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(store_cost)

CHIP_HEADER = 64
PROFILE_ROWS = 256
ROW_BYTES = 8


def library(bench, tunnels):
    """Milliseconds of the library's commit life and restarts, and its heap in bytes."""
    names = f"^(commit_life/ours/{tunnels}/|restart/ours/{tunnels}/(0|10)/|memory/ours/{tunnels}/)"
    done = subprocess.run([bench, f"--benchmark_filter={names}", "--benchmark_format=json"],
                          capture_output=True, text=True, check=True)
    fastest = {}  # the fastest repetition, as bench/report.py takes it
    for b in json.loads(done.stdout)["benchmarks"]:
        if b.get("run_type") == "iteration":
            name = b["name"].split("/iterations")[0]
            if name not in fastest or b["real_time"] < fastest[name]["real_time"]:
                fastest[name] = b
    return {
        "cold start": fastest[f"commit_life/ours/{tunnels}"]["real_time"] / 1000,
        "unchanged restart": fastest[f"restart/ours/{tunnels}/0"]["real_time"] / 1000,
        "changed restart": fastest[f"restart/ours/{tunnels}/10"]["real_time"] / 1000,
        "heap": fastest[f"memory/ours/{tunnels}"]["bytes_per_entry"] * tunnels,
    }


def timed(args, workdir, ok=(0,)):
    """Wall seconds and peak RSS in bytes of one run of the program, and its stdout."""
    done = subprocess.run(["/usr/bin/time", "-f", "@@ %e %M", *args], cwd=workdir,
                          capture_output=True, text=True, check=False)
    if done.returncode not in ok:
        sys.exit(f"{' '.join(args)} failed ({done.returncode}): {done.stderr[-2000:]}")
    wall, rss = done.stderr.rsplit("@@ ", 1)[1].split()
    return float(wall), int(rss) * 1024, done.stdout


def agent(binary, tunnels):
    rows = tunnels + tunnels // 8
    agent_args = [binary, "run", "--config", "agent.conf", "--chip", "chip.state",
                  "--rows", str(rows), "--json"]
    figures = {}
    with tempfile.TemporaryDirectory(prefix="l3decap-agent-scale-") as workdir:
        config = os.path.join(workdir, "agent.conf")
        store_cost.write_config(config, tunnels, changed=False)
        for phase in ("cold start", "unchanged restart"):
            wall, rss, out = timed(agent_args, workdir)
            figures[phase] = (wall, rss, json.loads(out)["seconds"])
        figures["plan"] = timed([binary, "plan", "--config", "agent.conf", "--chip", "chip.state",
                                 "--json"], workdir)[:2]
        with open(os.path.join(workdir, "dump.json"), "w") as sink:
            sink.write(timed([binary, "dump", "--chip", "chip.state", "--json"], workdir)[2])
        figures["dump --json"] = timed([binary, "dump", "--chip", "chip.state", "--json"],
                                       workdir)[:2]
        store_cost.write_config(config, tunnels, changed=True)
        wall, rss, out = timed(agent_args, workdir)
        figures["changed restart"] = (wall, rss, json.loads(out)["seconds"])
        # Reading alone: a configuration whose last line is wrong is read whole, then refused.
        with open(config, "a") as out:
            out.write("bogus\n")
        figures["reading"] = timed([binary, "run", "--config", "agent.conf", "--chip",
                                    "none.state"], workdir, ok=(2,))[:2]
        with open(config) as text:
            figures["lines"] = sum(1 for _ in text)
    return rows, figures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default="build/release/tools/l3decap/l3decap")
    parser.add_argument("--bench", default="build/bench/bench/l3decap_bench")
    parser.add_argument("tunnels", nargs="*", type=int, default=[65536, 1048576])
    args = parser.parse_args()
    mb = 1 << 20
    print(f"{'tunnels':>9}  {'work':<18} {'agent wall':>10} {'agent run':>9} {'library':>8}"
          f" {'wall/lib':>8}  {'peak RSS':>9} {'lib heap+chip':>13} {'RSS/that':>8}")
    for tunnels in args.tunnels:
        lib = library(os.path.abspath(args.bench), tunnels)
        rows, fig = agent(os.path.abspath(args.bin), tunnels)
        needed = lib["heap"] + CHIP_HEADER + (rows + PROFILE_ROWS) * ROW_BYTES
        for phase in ("cold start", "unchanged restart", "changed restart"):
            wall, rss, seconds = fig[phase]
            print(f"{tunnels:>9}  {phase:<18} {wall:>9.2f}s {seconds:>8.2f}s {lib[phase]:>7.2f}s"
                  f" {wall / lib[phase]:>7.2f}x  {rss / mb:>7.0f}MB {needed / mb:>11.0f}MB"
                  f" {rss / needed:>7.2f}x")
        mapping = (rows + PROFILE_ROWS) * ROW_BYTES
        notes = {"plan": f"{fig['plan'][0] / fig['cold start'][0]:.2f}x the cold start's wall",
                 "dump --json": f"{(fig['dump --json'][1] - mapping) / mb:.0f}MB beyond the chip's"
                                " mapping"}
        for work, note in notes.items():
            wall, rss = fig[work]
            print(f"{tunnels:>9}  {work:<18} {wall:>9.2f}s {'':>29}  {rss / mb:>7.0f}MB   ({note})")
        wall, rss = fig["reading"]
        print(f"{tunnels:>9}  {'reading':<18} {wall:>9.2f}s   {fig['lines'] / wall / 1e6:.2f}M lines/s,"
              f" {rss / mb:.0f}MB")


if __name__ == "__main__":
    main()
