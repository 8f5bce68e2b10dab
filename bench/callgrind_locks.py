#!/usr/bin/env python3
"""Finds the atomic read-modify-write instructions that a profiled run executed.

    bench/callgrind_locks.py PROFILE.out

PROFILE.out is a callgrind profile taken with --dump-instr=yes --demangle=no (bench/profile.sh
takes them so). Counts are over the whole profile: compare them with the number of entries. Every object in it that is a file on disk is disassembled with objdump; each
lock-prefixed instruction (and xchg with memory, which is locked implicitly) is looked up among
the instructions the profile saw execute. Prints those that executed, with their counts, or says
that none did. Load addresses are recovered per object from the functions' entry points, which
needs a symbol table: stripped system libraries are listed as not checked.
"""

import collections
import os
import re
import subprocess
import sys


def parse_profile(path):
    """{object: {function: {address: count}}} of the executed instructions."""
    executed = collections.defaultdict(lambda: collections.defaultdict(dict))
    names = {"ob": {}, "fn": {}}
    positions = ["line"]
    ob = fn = None
    last = [0, 0]
    call_pending = False
    with open(path, encoding="utf-8", errors="replace") as f:
        for raw in f:
            line = raw.rstrip("\n")
            if not line:
                continue
            if line.startswith("positions:"):
                positions = line.split()[1:]
                last = [0] * len(positions)
                continue
            head = line.split("=", 1)[0]
            if head in ("ob", "fn", "cob", "cfn", "cfi", "cfl", "fl", "fi", "fe"):
                value = line.split("=", 1)[1]
                kind = {"cob": "ob", "cfn": "fn"}.get(head, head)
                m = re.match(r"\((\d+)\)(?: (.*))?", value)
                if m and kind in names:
                    if m.group(2) is not None:
                        names[kind][m.group(1)] = m.group(2)
                    value = names[kind].get(m.group(1), value)
                if head == "ob":
                    ob = value
                elif head == "fn":
                    fn = value
                continue
            if head == "calls":
                call_pending = True
                continue
            if "=" in head or not (line[0].isdigit() or line[0] in "+-*"):
                continue
            tokens = line.split()
            for i, kind in enumerate(positions):
                token = tokens[i]
                if token == "*":
                    continue
                if token[0] in "+-":
                    last[i] += int(token, 0)
                else:
                    last[i] = int(token, 0)
            if "instr" in positions and not call_pending:
                address = last[positions.index("instr")]
                cost = int(tokens[len(positions)]) if len(tokens) > len(positions) else 0
                functions = executed[ob][fn]
                functions[address] = functions.get(address, 0) + cost
            call_pending = False
    return executed


def disassemble(path):
    """({function: start}, [(address, function, text)] of locked instructions)."""
    out = subprocess.run(["objdump", "-d", "--no-show-raw-insn", path], capture_output=True,
                         text=True, check=False).stdout
    starts = {}
    locked = []
    function = None
    for line in out.splitlines():
        m = re.match(r"^([0-9a-f]+) <(.+)>:$", line)
        if m:
            label = m.group(2)
            if label.endswith("@plt"):
                function = None  # a stub, not the function
                continue
            function = label.split("@")[0]  # system libraries label versioned symbols
            starts.setdefault(function, int(m.group(1), 16))
            continue
        m = re.match(r"^\s+([0-9a-f]+):\s+(.*)$", line)
        if not m or function is None:
            continue
        text = m.group(2)
        if re.match(r"lock\b", text) or (re.match(r"xchg\b", text) and "(" in text):
            locked.append((int(m.group(1), 16), function, text.strip()))
    return starts, locked


def main(path):
    executed = parse_profile(path)
    found = 0
    checked = []
    unchecked = []
    for ob, functions in executed.items():
        if not ob or not os.path.isfile(ob):
            continue
        starts, locked = disassemble(ob)
        if not starts:
            continue
        bases = collections.Counter()
        for fn, addresses in functions.items():
            if fn in starts and addresses:
                bases[min(addresses) - starts[fn]] += 1
        # The load address must be agreed on by most functions; a stripped system library names
        # too few of its functions for that and is reported as not checked.
        base, votes = bases.most_common(1)[0] if bases else (0, 0)
        if votes < 3 or votes * 2 <= sum(bases.values()):
            unchecked.append(os.path.basename(ob))
            continue
        checked.append(os.path.basename(ob))
        seen = {}
        for addresses in functions.values():
            seen.update(addresses)
        for address, fn, text in locked:
            count = seen.get(address + base)
            if count:
                found += 1
                demangled = subprocess.run(["c++filt", fn], capture_output=True, text=True,
                                           check=False).stdout.strip()
                print(f"  executed {count}x: {text}  in {demangled} ({os.path.basename(ob)})")
    objects = ", ".join(sorted(checked))
    if found == 0:
        print(f"  no atomic read-modify-write executed (objects checked: {objects})")
    else:
        print(f"  (objects checked: {objects})")
    if unchecked:
        print(f"  not checked (too few symbols to place them): {', '.join(sorted(unchecked))}")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    sys.exit(main(sys.argv[1]))
