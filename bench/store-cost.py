#!/usr/bin/env python3
"""The state store's share of an agent run (docs/RELIABILITY.md, "What the store costs").

Runs `l3decap run` through a cold start, an unchanged restart and a restart with a tenth of the
tunnels changed, a tenth removed and a tenth added, at each size asked for, and prints for each
phase the run's time (the whole process, and the agent's part that `run --json` reports as
`seconds`), the time spent in the state store (`storeSeconds`: opening and checking it, its
commits, its last checkpoint) and the store's share of each. The median of REPEATS runs is shown.

usage: bench/store-cost.py [--bin PATH] [--repeats N] [TUNNELS ...]   (default 65536 1048576)
"""
import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

PROFILES = (10, 20, 30, 40)
FIRST_KEY = 0x100000


def tunnel_line(key, i, vrf_offset=0):
    words = f"tunnel {key} profile {PROFILES[i % 4]} vrf {100 + i % 4000 + vrf_offset}"
    return words + (" ipv4" if i % 2 == 0 else "") + (" ipv6" if i % 3 == 0 else "")


def write_config(path, tunnels, changed):
    """The configuration of `tunnels` tunnels; `changed`: one in ten changed, removed, added."""
    with open(path, "w") as out:
        out.writelines(f"profile {p}\n" for p in PROFILES)
        for i in range(tunnels):
            if changed and i % 10 == 5:
                continue  # removed
            offset = 5000 if changed and i % 10 == 0 else 0
            out.write(tunnel_line(FIRST_KEY + i, i, offset) + "\n")
        if changed:
            for i in range(tunnels // 10):
                out.write(tunnel_line(FIRST_KEY + tunnels + i, i) + "\n")


def run_agent(binary, workdir, rows):
    start = time.monotonic()
    done = subprocess.run([binary, "run", "--config", "agent.conf", "--chip", "chip.state",
                           "--rows", str(rows), "--json"],
                          cwd=workdir, capture_output=True, text=True, check=False)
    wall = time.monotonic() - start
    if done.returncode != 0:
        sys.exit(f"l3decap run failed ({done.returncode}): {done.stderr}")
    report = json.loads(done.stdout)
    return wall, report["seconds"], report["storeSeconds"]


def measure(binary, tunnels, repeats):
    rows = tunnels + tunnels // 8  # room for the added tenth before the purge
    phases = {"cold start": [], "unchanged restart": [], "changed restart": []}
    with tempfile.TemporaryDirectory(prefix="l3decap-store-cost-") as workdir:
        config = os.path.join(workdir, "agent.conf")
        for _ in range(repeats):
            for name in ("chip.state", "chip.state.db"):
                if os.path.exists(os.path.join(workdir, name)):
                    os.remove(os.path.join(workdir, name))
            write_config(config, tunnels, changed=False)
            phases["cold start"].append(run_agent(binary, workdir, rows))
            phases["unchanged restart"].append(run_agent(binary, workdir, rows))
            write_config(config, tunnels, changed=True)
            phases["changed restart"].append(run_agent(binary, workdir, rows))
    return phases


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default="build/release/tools/l3decap/l3decap")
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("tunnels", nargs="*", type=int, default=[65536, 1048576])
    args = parser.parse_args()
    args.bin = os.path.abspath(args.bin)
    print(f"{'tunnels':>9}  {'phase':<18} {'process':>9} {'agent':>9} {'store':>8}"
          f" {'of process':>10} {'of agent':>9}")
    for tunnels in args.tunnels:
        for phase, samples in measure(args.bin, tunnels, args.repeats).items():
            wall, agent, store = (statistics.median(s[k] for s in samples) for k in range(3))
            of_wall = statistics.median(s[2] / s[0] for s in samples)
            of_agent = statistics.median(s[2] / s[1] for s in samples)
            print(f"{tunnels:>9}  {phase:<18} {wall:>8.3f}s {agent:>8.3f}s {store:>7.3f}s"
                  f" {100 * of_wall:>9.1f}% {100 * of_agent:>8.1f}%")


if __name__ == "__main__":
    main()
