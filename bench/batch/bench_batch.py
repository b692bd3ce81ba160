#!/usr/bin/python3
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""bench_batch.py [--jobs N] [--second-jobs N] [--scans N] [--tool VORN_MV]: what vorn-mv-batch takes beyond the jobs
themselves, beside the loops that a user would write in a shell, in one run. Prints a table in Markdown; the processor
time is that of all processes together, which a busy machine changes little.

- jobs of nothing: the time of a job beyond that of its process, the client's largest memory, and a second run that finds
  all done;
- jobs of a second: two workers and one;
- scans: rendered once, scanned by one and two workers and by the loops (only with --tool).
"""

import argparse
import contextlib
import ctypes
import os
import pathlib
import resource
import shutil
import subprocess
import tempfile
import time

BATCH = pathlib.Path(__file__).resolve().parents[2] / "batch" / "vorn-mv-batch"
NOTHING = """#!/bin/sh
case $1$2 in
  --version) echo 1 ;;
  --help) printf 'Subcommands:\\n  scan  x\\n' ;;
  scan--help) ;;
  scan*) {work} ;;
esac
"""
PR_SET_CHILD_SUBREAPER = 36
LOOP = 'mkdir -p "$0/${1##*/}" && cd "$0/${1##*/}" && exec "$2" scan "$1"'


def processor_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def run(words, folder):
    """Seconds, seconds of processors with all that was started, and the largest memory in MB of the process itself."""
    began, before, memory = time.monotonic(), processor_seconds(), 0
    process = subprocess.Popen([str(word) for word in words], cwd=folder, stdout=subprocess.DEVNULL)
    while process.poll() is None:
        with contextlib.suppress(OSError):
            for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
                if line.startswith("VmHWM"):
                    memory = max(memory, int(line.split()[1]) / 1024)
        time.sleep(0.05)
    seconds = time.monotonic() - began
    if process.returncode != 0:
        raise SystemExit(f"{words} failed with status {process.returncode}")
    with contextlib.suppress(ChildProcessError):  # what it left behind comes to this process
        while True:
            os.waitpid(-1, 0)
    return seconds, processor_seconds() - before, memory


class Bench:
    def __init__(self, folder):
        self.folder = folder
        print("| what | jobs | seconds | ms a job | processor ms a job | client's memory |\n|---|---|---|---|---|---|")

    def show(self, what, jobs, seconds, processor, memory=None):
        shown = f"{memory:.0f} MB" if memory else ""
        print(f"| {what} | {jobs} | {seconds:.1f} | {1000 * seconds / jobs:.1f} | {1000 * processor / jobs:.1f} | {shown} |",
              flush=True)
        return seconds

    def script(self, name, work):
        path = self.folder / name
        path.write_text(NOTHING.format(work=work))
        path.chmod(0o755)
        return path

    def inputs(self, count):
        folder = self.folder / f"in{count}"
        if not folder.exists():
            for i in range(count):
                part = folder / f"part_{i:05}"
                part.mkdir(parents=True)
                (part / "image").write_text(str(i))
                os.utime(part / "image", (1e9, 1e9))
        return folder

    def batch(self, what, plan, pattern, tool, jobs, workers, keep=False):
        out = self.folder / f"out{workers}"
        if not keep:
            shutil.rmtree(out, ignore_errors=True)
        measured = run([BATCH, plan, pattern, "--out", out, "--tool", tool, "--workers", workers, "--quiet"],
                       self.folder)
        return self.show(what, jobs, *measured)

    def loop(self, what, folder, tool, jobs, processes, words=LOOP):
        out = self.folder / "loop"
        shutil.rmtree(out, ignore_errors=True)
        script = f"find {folder} -mindepth 1 -maxdepth 1 -name 'part_*' -print0 | " \
                 f"xargs -0 -P {processes} -I '{{}}' sh -c '{words}' {out} '{{}}' {tool}"
        return self.show(what, jobs, *run(["sh", "-c", script], self.folder)[:2])

    def plan(self, document):
        path = self.folder / "plan.json"
        path.write_text(document)
        return path

    def jobs_of_nothing(self, count):
        tool = self.script("nothing", ":")
        plan = self.plan('{"steps": [{"run": "scan {input}", "report": false}]}')
        for jobs in (max(1, count // 10), count):
            folder = self.inputs(jobs)
            self.loop("nothing, shell loop", folder, tool, jobs, 1)
            self.loop("nothing, xargs -P 2", folder, tool, jobs, 2)
            self.batch("nothing, 1 worker", plan, folder / "part_*", tool, jobs, 1)
            self.batch("nothing, 2 workers", plan, folder / "part_*", tool, jobs, 2)
            self.batch("nothing, all done before", plan, folder / "part_*", tool, jobs, 2, keep=True)

    def jobs_of_a_second(self, count):
        plan = self.plan('{"steps": [{"run": "scan {input}", "report": false}]}')
        folder = self.inputs(count)
        for kind, work in (("computing", "i=0; while [ $i -lt 700000 ]; do i=$((i + 1)); done"), ("waiting", "sleep 1")):
            tool = self.script(kind, work)
            self.loop(f"{kind} for a second, shell loop", folder, tool, count, 1)
            one = self.batch(f"{kind} for a second, 1 worker", plan, folder / "part_*", tool, count, 1)
            self.loop(f"{kind} for a second, xargs -P 2", folder, tool, count, 2)
            two = self.batch(f"{kind} for a second, 2 workers", plan, folder / "part_*", tool, count, 2)
            print(f"| {kind}: 2 workers are | | {one / two:.2f} times 1 | | | |")

    def scans(self, count, tool):
        line = self.folder / "line"
        subprocess.run([tool, "simulate", line, "--line", str(count), "--divisor", "8", "--no-calib", "--quiet"], check=True)
        plan = self.plan('{"files": {"calib": "line/scanner_truth.json"}, "steps": ['
                         '{"run": "scan {input} --calib {calib} --xyz grid.tiff"}, {"run": "filter grid.tiff part.ply --dz 4"}]}')
        words = ('export OPENCV_FOR_THREADS_NUM=1; mkdir -p "$0/${1##*/}" && cd "$0/${1##*/}" && '
                 f'"$2" scan "$1" --calib {line}/scanner_truth.json --xyz grid.tiff --report scan.json > scan.out && '
                 '"$2" filter grid.tiff part.ply --dz 4 --report filter.json > filter.out')
        self.loop("scan and filter, shell loop", line, tool, count, 1, words)
        self.batch("scan and filter, 1 worker", plan, line / "part_*", tool, count, 1)
        self.loop("scan and filter, xargs -P 2", line, tool, count, 2, words)
        self.batch("scan and filter, 2 workers", plan, line / "part_*", tool, count, 2)


def main():
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)
    parser = argparse.ArgumentParser()
    parser.add_argument("--jobs", type=int, default=10000)
    parser.add_argument("--second-jobs", type=int, default=40)
    parser.add_argument("--scans", type=int, default=1000)
    parser.add_argument("--tool")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="bench_batch.") as folder:
        bench = Bench(pathlib.Path(folder))
        if options.jobs:
            bench.jobs_of_nothing(options.jobs)
        if options.second_jobs:
            bench.jobs_of_a_second(options.second_jobs)
        if options.tool and options.scans:
            bench.scans(options.scans, os.path.abspath(options.tool))


if __name__ == "__main__":
    main()
