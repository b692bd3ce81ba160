# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""A whole run: what is there already, what is to be done, the jobs, and what is said at the end."""

import dataclasses
import json
import os
import secrets
import time

from . import VERSION, BatchError, content
from .record import difference, expectation, key_of, line_of, stands_by_content, stands_by_stamps
from .store import read_record, write_whole
from .summary import Collector, Summary


# How long all of a run's results are waited for at its end: a network file system may show for so long what was there
# before another machine wrote (a minute by NFS).
PATIENCE_SECONDS = 90
PAUSE_SECONDS = 0.25


class Run:
    """The jobs of one command. States: open, done, failed, changed; `fresh` are the jobs done by this run, with the time
    when each began."""

    def __init__(self, plan, names, store, tool, version, build, options):
        self.plan = plan
        self.names = names
        self.store = store
        self.tool = tool
        self.version = version
        self.build = build
        self.options = options
        self.id = secrets.token_hex(4)
        self.digest = plan.digest()
        self.files = {}
        for name, path in plan.files.items():
            try:
                self.files[name] = content.describe_input(path)
            except OSError as error:
                raise BatchError(f"{error.filename}: {error.strerror}") from error
        self.states = dict.fromkeys(names, "open")
        self.fresh = {}
        self.patience = PATIENCE_SECONDS
        self.unwritten = {}
        self.tries = {}
        self.reasons = {}
        self.trouble = None

    def expected(self, name):
        return expectation(self.digest, self.files, self.version, self.build, name)

    def survey(self, by_content):
        """Finds the results that still stand. With `by_content` what stamps leave open is read here; without, a
        worker does so, and the job is one that may turn out to be done."""
        for name, path in self.names.items():
            failure = read_record(self.store.failure(name))
            record = read_record(self.store.job(name))
            reason = None
            if self.options.again:
                reason = "all are done again"
            elif failure is not None:
                reason = f"failed before: {failure.get('error', {}).get('text', 'no reason told')}"
            else:
                reason = difference(record, self.expected(name))
            if reason is None:
                reason = self.look(name, path, record, by_content)
            if self.options.only_failed and failure is None:
                if reason is None:
                    self.states[name] = "done"
                continue
            if reason is None:
                self.states[name] = "done"
            else:
                self.reasons[name] = reason

    def look(self, name, path, record, by_content):
        """Why a result does not stand for what its input now holds, or None."""
        folder = self.store.job(name)
        if not self.options.rehash and stands_by_stamps(record, folder, path):
            return None
        if by_content:
            try:
                entries = content.describe_input(path, () if self.options.rehash else record["inputs"])
                if stands_by_content(record, folder, key_of(self.expected(name), entries), self.options.rehash):
                    return None
            except OSError as error:
                return f"{error.filename}: {error.strerror}"
        changed = content.changed_since(path, record["inputs"])
        return f"its input has changed: {changed}" if changed else "its files are to be read again"

    def common(self):
        """What the orders of all jobs share."""
        return {"out": self.store.root, "run": self.id, "steps": [dataclasses.asdict(step) for step in self.plan.steps],
                "digest": self.digest, "files": self.files, "paths": self.plan.files, "tool": self.tool,
                "version": self.version, "build": self.build, "program": VERSION, "tries": self.options.tries,
                "threads": self.options.threads, "time_limit": self.options.time_limit, "again": self.options.again,
                "rehash": self.options.rehash, "sync": self.options.sync}

    def orders(self):
        for name in self.reasons:
            path = self.names[name]
            yield {"name": name, "input": path, "commands": self.plan.commands(path, name), "failures": 0}

    def limit(self, count):
        self.reasons = dict(list(self.reasons.items())[:count])

    def take(self, outcome):
        """What became of one job; a line of results.jsonl at once, so that a run that is killed has its lines."""
        name = outcome["name"]
        failed = outcome["status"] == "failed"
        self.states[name] = "failed" if failed else "done"
        if outcome["status"] == "done":
            self.fresh[name] = outcome["line"]["started"]
        line = outcome["line"] or self.line_without_record(name, outcome)
        line["tries"] = outcome["tries"]
        if failed:
            self.tries[name] = outcome["tries"]
            if read_record(self.store.failure(name)) is None:
                self.unwritten[name] = line
        try:
            with open(self.store.results, "a", encoding="utf-8") as file:
                file.write(json.dumps(line, sort_keys=True) + "\n")
        except OSError as error:  # the jobs' own records stay, and the lines are made from them at the end
            self.trouble = f"cannot write results: {error.filename}: {error.strerror}"

    def line_without_record(self, name, outcome):
        return {"job": name, "input": self.names[name], "status": "failed", "seconds": 0, "worker": outcome["worker"],
                "error": {"cause": "lost", "text": outcome["text"], "step": None, "status": None}, "figures": {},
                "warnings": [], "inputs": [], "files": {}, "settings": {}, "steps": []}

    def record_of(self, name):
        """A job's record; that of this run where it did the job, though this machine may see it late."""
        while True:
            record = read_record(self.store.job(name))
            is_due = name in self.fresh and (record is None or record["started"] != self.fresh[name])
            if not is_due or self.patience <= 0:
                return record
            os.listdir(self.store.jobs)  # looks anew
            time.sleep(PAUSE_SECONDS)
            self.patience -= PAUSE_SECONDS

    def lines(self):
        """Each job with its state and its line, in the run's order; what changed since it was done is found here."""
        for name, path in self.names.items():
            state = self.states[name]
            line = None
            if state == "failed":
                record = read_record(self.store.failure(name))
                line = line_of(record) if record else self.unwritten.get(name)
                if line and name in self.tries:
                    line["tries"] = self.tries[name]
            elif state == "done":
                record = self.record_of(name)
                if record is None:
                    state = self.states[name] = "open"
                else:
                    line = line_of(record)
                    if changed := content.changed_since(path, record["inputs"]):
                        state = self.states[name] = "changed"
                        line["changedSince"] = changed
            yield name, state, line

    def finish(self):
        """Writes results.jsonl and summary.html; what was said about each job is in both."""
        collector = Collector(self.plan)
        whole = self.store.results + ".new"
        try:
            with open(whole, "w", encoding="utf-8") as file:
                for name, state, line in self.lines():
                    collector.add(name, state, line)
                    if line is not None:
                        file.write(json.dumps(line, sort_keys=True) + "\n")
            os.replace(whole, self.store.results)
            write_whole(self.store.summary, Summary(collector, self.store).page())
            self.trouble = None
        except OSError as error:
            self.trouble = f"cannot write results: {error.filename or whole}: {error.strerror}"
            collector = Collector(self.plan)
            for name, state, line in self.lines():
                collector.add(name, state, line)
        return collector
