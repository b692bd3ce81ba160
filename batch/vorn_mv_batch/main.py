# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""The command line of vorn-mv-batch."""

import argparse
import multiprocessing
import multiprocessing.forkserver
import os
import shlex
import signal
import subprocess
import sys

from . import VERSION, BatchError
from .build import build_of
from .inputs import check_apart, find_inputs, name_jobs
from .plan import read_plan
from .progress import Progress
from .run import Run
from .store import Store
from .tool import check_steps, find_tool

MOST_LISTED = 20
INTERRUPTED = 130


def positive(kind):
    def parse(text):
        value = kind(text)
        if not value > 0:
            raise ValueError(text)
        return value

    parse.__name__ = "positive number"
    return parse


def parser():
    result = argparse.ArgumentParser(
        prog="vorn-mv-batch", allow_abbrev=False,
        description="Run the steps of a plan, which are commands of vorn-mv, for every input, on this computer or on "
                    "a cluster. The same command again does only what is missing or has changed.")
    add = result.add_argument
    add("plan", metavar="PLAN.json", help="the steps, as JSON")
    add("inputs", metavar="INPUT", nargs="+",
        help='folders or files; patterns in quotes; @FILE for a file with one a line, @- for standard input')
    add("--out", metavar="DIR", required=True, help="folder of results; made if need be")
    add("--name", metavar="TEMPLATE", help='job names from {folder}, {parent}, {grandparent}; default: "{folder}"')
    add("--dry-run", action="store_true", help="say what would be done and why, and do nothing")
    add("--only-failed", action="store_true", help="only jobs that failed before")
    add("--limit", metavar="N", type=positive(int), help="do so many jobs at most")
    add("--again", action="store_true", help="do all jobs, also those whose result stands")
    add("--rehash", action="store_true", help="read every input to see whether it changed, whatever its times say")
    add("--workers", metavar="N", type=positive(int), help="workers on this computer; default: as many as processors")
    add("--scheduler", metavar="ADDRESS", help="a Dask cluster's scheduler in place of workers here: tcp://host:8786")
    add("--wait", metavar="S", type=positive(float), default=300.0,
        help="how long to wait for a scheduler or workers that are gone; default: 300 s")
    add("--threads", metavar="N", type=positive(int), help="OpenCV's threads of each job; default: the plan's, or 1")
    add("--tries", metavar="N", type=positive(int), help="give a job up after so many; default: the plan's, or 2")
    add("--time-limit", metavar="S", type=positive(float), help="seconds a job may take; default: the plan's, or 600")
    add("--no-sync", action="store_true", help="faster, but a power failure may cost what was done last")
    add("--tool", metavar="PATH", default="vorn-mv", help="the tool, here and where jobs run; default: vorn-mv")
    add("--quiet", action="store_true", help="no progress, and nothing on standard output")
    add("--version", action="version", version=VERSION)
    return result


def main(arguments=None):
    options = parser().parse_args(arguments)
    try:
        return run(options)
    except BatchError as error:
        print(f"vorn-mv-batch: {error}", file=sys.stderr)
        return error.status
    except OSError as error:
        print(f"vorn-mv-batch: {error.filename or 'error'}: {error.strerror or error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("vorn-mv-batch: interrupted", file=sys.stderr)
        return INTERRUPTED


def run(options):
    plan = read_plan(options.plan)
    tool = find_tool(options.tool)
    check_steps(plan, tool)
    try:
        version, build = build_of(tool)
    except (OSError, subprocess.SubprocessError) as error:
        raise BatchError(f"{tool} --version: {error}") from error
    inputs = find_inputs(options.inputs)
    check_apart(inputs, options.out)
    names = name_jobs(inputs, options.name or plan.job_name)
    options.threads = options.threads or plan.threads
    options.tries = options.tries or plan.tries
    options.time_limit = options.time_limit or plan.time_limit
    options.sync = not options.no_sync
    store = Store(options.out)
    batch = Run(plan, names, store, tool, version, build, options)
    if options.dry_run:
        return rehearse(batch, options)
    store.open()
    try:
        return work(batch, options)
    finally:
        store.close()


def rehearse(batch, options):
    batch.survey(by_content=True)
    if options.limit:
        batch.limit(options.limit)
    for name, reason in batch.reasons.items():
        print(f"{name}: {reason}")
    print(f"{len(batch.reasons)} of {len(batch.names)} jobs would be run"
          + (", such as" if batch.reasons else ""))
    for name in list(batch.reasons)[:1]:
        for words in batch.plan.commands(batch.names[name], name):
            print("  vorn-mv " + " ".join(shlex.quote(word) for word in words))
    return 0


class Stop:
    """Ctrl-C ends the run cleanly; the second one at once."""

    def __init__(self, store, run):
        self.status = 0
        self.file = store.stop_file(run)

    def __call__(self, number, _frame):
        if self.status:
            os._exit(128 + number)
        self.status = 128 + number
        try:
            with open(self.file, "w", encoding="utf-8"):
                pass
        except OSError:
            pass  # the jobs then run to their end, or end with their workers

    def is_set(self):
        return self.status != 0


def work(batch, options):
    progress = Progress(0, options.quiet)
    stop = Stop(batch.store, batch.id)
    # Workers inherit that they are not interrupted: it is the client that stops them.
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    batch.survey(by_content=options.limit is not None)
    if options.limit:
        batch.limit(options.limit)
    progress.total = len(batch.reasons)
    trouble = None
    if batch.reasons:
        try:
            run_jobs(batch, options, progress, stop)
        except BatchError as error:
            trouble = error
    progress.end()
    collector = batch.finish()
    trouble = trouble or batch.trouble
    if trouble is not None:
        print(f"vorn-mv-batch: {trouble}", file=sys.stderr)
    return conclude(batch, collector, options, stop, trouble)


def run_jobs(batch, options, progress, stop):
    if options.scheduler is None:
        # The process whose forks the workers are reads Dask's code while this one does.
        multiprocessing.get_context("forkserver").set_forkserver_preload(["distributed"])
        multiprocessing.forkserver.ensure_running()
    # Late, because it takes its time, and a run with nothing to do needs none of it.
    from .engine import Cluster, Engine, quiet_dask

    quiet_dask()
    count = options.workers or len(os.sched_getaffinity(0))
    cluster = Cluster(options.scheduler, min(count, len(batch.reasons)), batch.store.work, options.wait, progress.say)
    try:
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, stop)

        def take(outcome):
            batch.take(outcome)
            progress.count(outcome["status"] == "failed")

        Engine(cluster, batch.common(), batch.orders(), len(batch.reasons), take, progress.tick, stop.is_set).run()
        progress.tick(len(cluster.workers()) if not cluster.is_lost() else 0, force=progress.is_terminal)
    finally:
        cluster.close()


def conclude(batch, collector, options, stop, trouble):
    done, failed = collector.count("done"), collector.count("failed")
    changed, left = collector.count("changed"), collector.count("open")
    text = f"{len(batch.names)} jobs: {done} done ({len(batch.fresh)} by this run), {failed} failed"
    if changed:
        text += f", {changed} changed since"
    if left:
        text += f", {left} not done yet"
    if not options.quiet:
        print(text)
    say_all("failed", collector.failures)
    say_all("changed since its job was done", collector.changed)
    if not options.quiet:
        print(batch.store.summary)
    if stop.is_set():
        print("vorn-mv-batch: interrupted; the same command goes on", file=sys.stderr)
        return stop.status
    return 1 if failed or changed or trouble else 0


def say_all(what, listed):
    for name, text in listed[:MOST_LISTED]:
        print(f"vorn-mv-batch: {name}: {what}: {text}", file=sys.stderr)
    if len(listed) > MOST_LISTED:
        print(f"vorn-mv-batch: and {len(listed) - MOST_LISTED} more; all are in results.jsonl", file=sys.stderr)
