# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""What is known about a job, and whether its result still stands.

A result stands for a key: the hash of the input's files, the plan, the files that the plan names, and the tool's
version and build.
"""

import json
import math
import os

from . import content, store
from .plan import hash_of

LONGEST_LIST = 16
NOT_FIGURES = {"inputs", "settings", "schema", "tool", "warnings"}


def expectation(plan_digest, files, version, build, name):
    """All that decides a result besides the input. `files` are descriptions of the plan's files."""
    return {"plan": plan_digest, "version": version, "build": build, "job": name,
            "files": {key: content.signature(entries) for key, entries in sorted(files.items())}}


def key_of(expected, entries):
    return hash_of([expected, content.signature(entries)])


def difference(record, expected):
    """Why a record's result no longer stands, whatever its input holds; None if it does."""
    if record is None:
        return "new"
    had = record["expected"]
    if had["version"] != expected["version"]:
        return f'vorn-mv {had["version"]} is now {expected["version"]}'
    if had.get("build") != expected["build"]:
        return f'vorn-mv {expected["version"]} is another build now'
    if had["plan"] != expected["plan"]:
        return "the plan has changed"
    for name in expected["files"]:
        if had["files"].get(name) != expected["files"][name]:
            return f"{{{name}}} has changed"
    return None if had == expected else "the job's name has changed"


def stands_by_stamps(record, folder, job_input):
    """Whether nothing that a result rests on needs to be read again: all is as it was to the file system."""
    return (record["input"] == job_input and content.is_settled(job_input, record["inputs"])
            and store.has_outputs(folder, record["outputs"])
            and all(content.is_settled(other["path"], [{**other, "path": ""}]) for other in record["others"]))


def stands_by_content(record, folder, key, refresh=False):
    """Whether a result was made from just this content and is whole."""
    if record is None or record["key"] != key or not store.has_outputs(folder, record["outputs"]):
        return False
    try:
        return all(content.describe(other["path"], None if refresh else other)["sha256"] == other["sha256"]
                   for other in record["others"])
    except OSError:
        return False


def line_of(record):
    """A record as one line of results.jsonl: all but what serves looking for changes."""
    line = {key: value for key, value in record.items() if key not in ("outputs", "others", "expected", "key")}
    line["inputs"] = [{name: entry[name] for name in ("path", "size", "sha256")} for entry in record["inputs"]]
    line["files"] = {name: [{key: entry[key] for key in ("path", "size", "sha256")} for entry in entries]
                     for name, entries in record["files"].items()}
    return line


def figures_of(report, prefix):
    """Every number of a report by its place: {"scan.points": 44192, "scan.box.size.2": 108.3}."""
    found = {}

    def walk(value, place, depth):
        if isinstance(value, dict):
            for name, member in value.items():
                if depth or name not in NOT_FIGURES:
                    walk(member, f"{place}.{name}", depth + 1)
        elif isinstance(value, list):
            if len(value) <= LONGEST_LIST:
                for index, member in enumerate(value):
                    walk(member, f"{place}.{index}", depth + 1)
        elif isinstance(value, (int, float)) and not isinstance(value, bool) and math.isfinite(value):
            found[place] = value

    walk(report, prefix, 0)
    return found


def read_report(path):
    """A report that a command wrote, or None where there is none."""
    try:
        with open(path, encoding="utf-8") as file:
            report = json.load(file)
    except (OSError, ValueError):
        return None
    return report if isinstance(report, dict) and "schema" in report else None


def is_within(path, folder):
    return path == folder or path.startswith(folder.rstrip("/") + os.sep)
