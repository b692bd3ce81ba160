# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""One job, where it runs: the steps of the plan for one input, in a folder of their own that appears when all is done."""

import contextlib
import datetime
import os
import shutil
import socket
import subprocess
import time

from . import VERSION, content, store
from .build import build_of
from .process import described, run_process
from .record import (expectation, figures_of, is_within, key_of, line_of, read_report, stands_by_content)

LONGEST_LINE = 500
PAUSE_SECONDS = 0.2


class JobFailure(Exception):
    """Why a job has no result: `cause` is one of tool, crash, time, changed, lost, system, worker."""

    def __init__(self, cause, text, step=None, status=None):
        super().__init__(text)
        self.error = {"cause": cause, "text": text, "step": step, "status": status}


class JobStopped(Exception):
    """The run ended while the job was worked on."""


_file_cache = {}


def described_file(path):
    """The description of a file or folder of the plan, read anew only when it has changed."""
    _file_cache[path] = content.describe_input(path, _file_cache.get(path, ()))
    return _file_cache[path]


def run_job(order):
    """Does one job and says how it went: {"name", "status", "line", "worker"}. Status is done, kept, failed, stopped."""
    job = Job(order)
    began = time.monotonic()
    try:
        status, record = job.run()
    except (JobStopped, InterruptedError):
        status, record = "stopped", None
    except JobFailure as failure:
        status, record = "failed", job.fail(failure.error, time.monotonic() - began)
    except Exception as error:  # whatever it is, it must not take the worker along
        text = f"{error.filename}: {error.strerror}" if isinstance(error, OSError) and error.filename else str(error)
        status = "failed"
        record = job.fail({"cause": "system", "text": text or repr(error), "step": None, "status": None},
                          time.monotonic() - began)
    finally:
        job.clean()
    return {"name": order["name"], "status": status, "line": line_of(record) if record else None,
            "worker": job.worker}


class Job:
    def __init__(self, order):
        self.order = order
        self.name = order["name"]
        self.store = store.Store(order["out"])
        self.worker = order.get("worker") or f"{socket.gethostname()}:{os.getpid()}"
        self.folder = None
        self.started = datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="seconds")
        self.entries = []
        self.key = None
        self.steps = []
        self.figures = {}
        self.settings = {}
        self.warnings = []
        self.others = []

    def should_stop(self):
        return os.path.exists(self.store.stop_file(self.order["run"]))

    def run(self):
        self.check_worker()
        lock = os.path.join(self.store.work, self.name + ".lock")
        with store.job_lock(lock, self.should_stop, lambda: time.sleep(PAUSE_SECONDS)):
            if self.should_stop():
                raise JobStopped()
            self.make_folder()
            earlier = store.read_record(self.store.job(self.name))
            known = earlier["inputs"] if earlier and not self.order["rehash"] else ()
            self.entries = content.describe_input(self.order["input"], known, self.should_stop)
            if not self.entries:
                raise JobFailure("tool", f'{self.order["input"]}: there are no files in this input')
            self.key = key_of(self.expected(), self.entries)
            if not self.order["again"] and stands_by_content(earlier, self.store.job(self.name), self.key,
                                                             self.order["rehash"]):
                return "kept", self.keep(earlier)
            if earlier and earlier["input"] != self.order["input"] and os.path.exists(earlier["input"]):
                raise JobFailure("system", f'{self.store.job(self.name)} holds the result of another input, '
                                           f'{earlier["input"]}: tell the jobs apart with --name')
            self.run_steps()
            self.check_unchanged()
            return "done", self.finish()

    def expected(self):
        return expectation(self.order["digest"], self.order["files"], self.order["version"], self.order["build"],
                           self.name)

    def check_worker(self):
        if self.order["program"] != VERSION:
            raise JobFailure("worker", f'{self.worker} has vorn-mv-batch {VERSION}, the run {self.order["program"]}')
        try:
            version, build = build_of(self.order["tool"])
        except (OSError, subprocess.SubprocessError) as error:
            raise JobFailure("worker", f'{self.worker} cannot run {self.order["tool"]}: {error}') from error
        if version != self.order["version"]:
            raise JobFailure("worker", f'{self.worker} has vorn-mv {version}, the run {self.order["version"]}')
        if build != self.order["build"]:
            raise JobFailure("worker", f'{self.worker} has another build of vorn-mv {version} than the run, '
                                       f'{build} for {self.order["build"]}')
        for name, entries in self.order["files"].items():
            path = self.order["paths"][name]
            if content.signature(described_file(path)) != content.signature(entries):
                raise JobFailure("changed", f"{path} is not on {self.worker} what it was when the run began")

    def make_folder(self):
        """A folder to work in. Those of broken-off attempts of this run tell how often a worker was lost here."""
        prefix = f'{self.name}.{self.order["run"]}.'
        lost = sum(name.startswith(prefix) for name in os.listdir(self.store.work))
        if lost and lost + self.order["failures"] >= self.order["tries"]:
            raise JobFailure("lost", f"given up: {lost} {'workers were' if lost > 1 else 'worker was'} lost "
                                     "while at this job")
        self.folder = os.path.join(self.store.work, f"{prefix}{lost + 1}")
        os.mkdir(self.folder)

    def clean(self):
        if self.folder is not None:
            shutil.rmtree(self.folder, ignore_errors=True)

    def run_steps(self):
        deadline = time.monotonic() + self.order["time_limit"]
        for step, words in zip(self.order["steps"], self.order["commands"]):
            limit = max(0.01, deadline - time.monotonic())
            if step["time_limit"] is not None:
                limit = min(limit, step["time_limit"])
            self.run_step(step, words, limit)

    def run_step(self, step, words, limit):
        name = step["name"]
        report, out, errors = (os.path.join(self.folder, f"{name}.{ending}") for ending in ("json", "out", "err"))
        words = list(words)
        on_output = "--json" in words
        if step["wants_report"] and not on_output and not any(word.split("=")[0] == "--report" for word in words):
            words += ["--report", f"{name}.json"]
        ended = run_process([self.order["tool"], *words], self.folder, report if on_output else out, errors, limit,
                            self.should_stop, self.order["threads"])
        if ended.cause == "stop":
            raise JobStopped()
        self.steps.append({"name": name, "command": ["vorn-mv", *words], "status": ended.status,
                           "seconds": round(ended.seconds, 6)})
        line = last_line(errors)
        for path in (out, errors):
            with contextlib.suppress(FileNotFoundError):
                if os.path.getsize(path) == 0:
                    os.unlink(path)
        self.take_report(name, words)
        if ended.cause == "time":
            raise JobFailure("time", f"step {name}: not done after {limit:.3g} s", name)
        if ended.status not in step["accept"]:
            cause = "crash" if ended.status < 0 else "tool"
            text = described(ended.status)
            raise JobFailure(cause, f"step {name}: {line} ({text})" if line else f"step {name}: {text}", name,
                             ended.status)

    def take_report(self, name, words):
        """What a step's report says, wherever the step wrote it."""
        path = f"{name}.json"
        for word, following in zip(words, [*words[1:], ""]):
            if word == "--report":
                path = following
            elif word.startswith("--report="):
                path = word[len("--report="):]
        report = read_report(os.path.join(self.folder, path))
        if report is None:
            return
        self.figures.update(figures_of(report, name))
        self.settings[name] = report.get("settings")
        self.warnings += [f"{name}: {warning}" for warning in report.get("warnings", [])]
        own = {os.path.join(self.order["input"], entry["path"]).rstrip("/"): entry for entry in self.entries}
        known = {path: entry for key, entries in self.order["files"].items() for entry in entries
                 for path in [os.path.join(self.order["paths"][key], entry["path"]).rstrip("/")]}
        for read in report.get("inputs", []):
            path = os.path.normpath(os.path.join(self.folder, read["path"]))
            described = own.get(path) or known.get(path)
            if read["sha256"] is None or is_within(path, self.folder):
                continue
            if described is None:
                described = described_file(path)[0]
                if all(other["path"] != path for other in self.others):
                    self.others.append({**described, "path": path})
            if described["sha256"] != read["sha256"]:
                raise JobFailure("changed", f"{path} changed while the job ran")

    def check_unchanged(self):
        changed = content.changed_since(self.order["input"], self.entries)
        if changed is None and any(entry["stamp"] is None for entry in self.entries):
            now = content.describe_input(self.order["input"], self.entries, self.should_stop)
            changed = next((new["path"] for old, new in zip(self.entries, now) if old["sha256"] != new["sha256"]), None)
            self.entries = now
        if changed is not None:
            raise JobFailure("changed", f"{os.path.join(self.order['input'], changed)} changed while the job ran")

    def record(self, status, seconds, error=None):
        return {
            "job": self.name, "input": self.order["input"], "status": status, "started": self.started,
            "seconds": round(seconds, 6), "worker": self.worker, "tool": {"version": self.order["version"], "build": self.order["build"]},
            "program": VERSION, "plan": self.order["digest"], "error": error, "steps": self.steps,
            "figures": self.figures, "settings": self.settings, "warnings": self.warnings, "inputs": self.entries,
            "files": self.order["files"], "others": self.others, "outputs": [], "key": self.key,
            "expected": self.expected(),
        }

    def finish(self):
        record = self.record("done", sum(step["seconds"] for step in self.steps))
        record["outputs"] = store.outputs(self.folder)
        store.write_record(self.folder, record)
        if self.order["sync"]:
            store.sync_folder(self.folder)
        store.place_folder(self.folder, self.store.job(self.name))
        shutil.rmtree(self.store.failure(self.name), ignore_errors=True)
        return record

    def keep(self, earlier):
        """The result stands; what tells the next run so without reading is brought up to date."""
        if earlier["inputs"] != self.entries or earlier["input"] != self.order["input"]:
            earlier = {**earlier, "inputs": self.entries, "input": self.order["input"]}
            place = os.path.join(self.store.job(self.name), store.RECORD)
            store.write_whole(place, store.record_text(earlier))
        shutil.rmtree(self.store.failure(self.name), ignore_errors=True)
        return earlier

    def fail(self, error, seconds):
        """Keeps messages and reports of the failed job where there is room for them."""
        error["text"] = error["text"][:LONGEST_LINE]
        record = self.record("failed", seconds, error)
        with contextlib.suppress(OSError):
            if self.folder is None:
                folder = os.path.join(self.store.work, f"{self.name}.failure.{os.getpid()}")
                os.mkdir(folder)
                self.folder = folder
            keep_messages(self.folder, [step["name"] for step in self.order["steps"]])
            store.write_record(self.folder, record)
            store.place_folder(self.folder, self.store.failure(self.name))
        return record


def keep_messages(folder, steps):
    """Takes all but reports and messages out of a failed job's folder."""
    kept = {f"{name}.{ending}" for name in steps for ending in ("json", "out", "err")}
    for entry in list(os.scandir(folder)):
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry.path, ignore_errors=True)
        elif entry.name not in kept:
            os.unlink(entry.path)


def last_line(path):
    """What the tool said last; its own line where it said one."""
    try:
        with open(path, "rb") as file:
            file.seek(max(0, os.fstat(file.fileno()).st_size - 8192))
            lines = [line.strip() for line in file.read().decode(errors="replace").splitlines() if line.strip()]
    except OSError:
        return ""
    own = [line for line in lines if line.startswith("vorn-mv: ")]
    return (own or lines or [""])[-1][:LONGEST_LINE]
