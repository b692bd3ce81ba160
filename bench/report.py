#!/usr/bin/env python3
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Joins the JSON of the benchmark programs to one report, as JSON and as Markdown.

usage: report.py OUT.json OUT.md MACHINE.json ACCURACY.md ACCURACY.json PROGRAM.json...

A benchmark named "work/ours/arguments" stands beside every "work/peer/arguments" of the same run; one with the
counter "ratio" is told in units of the work that its label names. All others are listed with their time.
"""
import json
import pathlib
import sys

MILLISECONDS = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


def shortest(program):
    """The least time of each benchmark over its repetitions, in ms, by name and in order."""
    rows = {}
    for run in program["benchmarks"]:
        if run.get("run_type") == "aggregate":
            continue
        name = run["run_name"]
        measured = name.endswith(("/real_time", "/manual_time"))
        time = run["real_time" if measured else "cpu_time"] * MILLISECONDS[run["time_unit"]]
        row = {"time": time, "ratio": run.get("ratio"), "unit": run.get("label"), "speedup": run.get("speedup")}
        if name not in rows or time < rows[name]["time"]:
            rows[name] = row
    return rows


def comparisons(rows):
    """(work with arguments, our time, {peer: time}) for every benchmark that has peers."""
    ours = {}
    peers = {}
    for name, row in rows.items():
        parts = name.split("/")
        if len(parts) < 2:
            continue
        key = "/".join([parts[0]] + parts[2:])
        if parts[1].startswith("ours"):
            ours.setdefault(key, row["time"])
        else:
            peers.setdefault(key, {})[parts[1]] = row["time"]
    return [(key, time, peers[key]) for key, time in ours.items() if key in peers]


def work_of(key):
    return key.split("/")[0]


def is_alone(name, compared):
    """Whether a benchmark stands in no comparison of its program."""
    return not any(work_of(name) == work_of(key) and ("/ours/" not in name or key == name.replace("/ours", "", 1))
                   for key, _, _ in compared)


def milliseconds(time):
    return f"{time:.0f}" if time >= 1000 else f"{time:.3g}"


def label(key):
    """The name of a benchmark as a reader wants it: "count, scan, 1 000 000 points, n 50"."""
    kinds = {"kind:0": "scan", "kind:1": "random cube", "kind:2": "spherical shell"}
    points = {"side:316": "100 000 points", "side:1000": "1 000 000 points", "side:2236": "5 000 000 points"}
    words = [kinds.get(part, points.get(part, "elapsed" if part == "real_time" else part.replace(":", " ")))
             for part in key.split("/") if part not in ("process_time", "manual_time", "n:0")]
    return ", ".join(words)


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def comparison_rows(compared):
    for key, time, peers in compared:
        yield [label(key), milliseconds(time),
               ", ".join(f"{peer} {milliseconds(other)}" for peer, other in peers.items()),
               f"{min(peers.values()) / time:.2f}"]


def markdown(machine, programs, accuracy):
    compared = {name: comparisons(rows) for name, rows in programs.items()}
    slower = [(key, time, {peer: other for peer, other in peers.items() if other < time})
              for rows in compared.values() for key, time, peers in rows if min(peers.values()) < time]
    text = ["# Benchmarks\n", "Written by `scripts/bench`; do not edit.\n"]
    text.append(table(["", ""], [[name, value] for name, value in machine.items()]))
    text.append("Times are the shortest of the repetitions in milliseconds of processor time, or of elapsed time "
                "where the name says so. A *ratio* is the time of the fastest peer over ours. In the work on clouds, *n* is how "
                "many neighbours are asked for: on average within the radius, or the nearest ones.\n")
    text.append("## Slower than a peer\n")
    text.append(table(["work", "ours, ms", "peers, ms", "ratio"], comparison_rows(slower)) if slower
                else "Nothing in this run.\n")
    measured_beside_peers = {work_of(key) for rows in compared.values() for key, _, _ in rows}
    for name, rows in programs.items():
        measured = [[label(key), milliseconds(row["time"]), f"{row['ratio']:.2f} x {row['unit']}",
                     f"{row['speedup']:.2f}" if row["speedup"] else ""]
                    for key, row in rows.items() if row["ratio"]]
        alone = [key for key, row in rows.items() if not row["ratio"] and is_alone(key, compared[name])]
        if not compared[name] and not measured and {work_of(key) for key in alone} <= measured_beside_peers:
            continue
        text.append(f"## {name}\n")
        if compared[name]:
            text.append(table(["work", "ours, ms", "peers, ms", "ratio"], comparison_rows(compared[name])))
        if measured:
            text.append("In units of the loop that a skilled user would write, of one thread.\n")
            text.append(table(["work", "ms", "in units of the loop", "one thread over two"], measured))
        if alone:
            text.append(table(["work", "ms"], [[label(key), milliseconds(rows[key]["time"])] for key in alone]))
    text.append("## Accuracy on the virtual rig\n")
    text.append(accuracy)
    return "\n".join(text)


def main(out_json, out_markdown, machine_path, accuracy_markdown, accuracy_json, *program_paths):
    machine = json.loads(pathlib.Path(machine_path).read_text())
    programs = {pathlib.Path(path).stem: shortest(json.loads(pathlib.Path(path).read_text()))
                for path in program_paths}
    accuracy = json.loads(pathlib.Path(accuracy_json).read_text())
    report = {"Machine": machine, "Benchmarks": programs, "Accuracy": accuracy}
    pathlib.Path(out_json).write_text(json.dumps(report, indent=1) + "\n")
    pathlib.Path(out_markdown).write_text(markdown(machine, programs, pathlib.Path(accuracy_markdown).read_text()))


main(*sys.argv[1:])
