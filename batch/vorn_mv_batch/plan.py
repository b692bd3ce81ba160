# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Reading a plan: the steps, the files and values that they name, and what is shown of the results."""

import hashlib
import json
import math
import os
import re
import shlex
from dataclasses import dataclass, field

from . import UsageError

PLACEHOLDER = re.compile(r"\{\{|\}\}|\{([^{}]*)\}|[{}]")
WORD = re.compile(r"[A-Za-z][A-Za-z0-9_]*\Z")
STEP_NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9_-]*\Z")
RESERVED = {"input": "the input's path", "out": "the job's folder", "name": "the job's name"}

PLAN_MEMBERS = {"name", "files", "values", "steps", "jobName", "figures", "preview", "page", "threads", "tries",
                "timeLimit"}
STEP_MEMBERS = {"name", "run", "accept", "timeLimit", "report"}
FIGURE_MEMBERS = {"from", "unit", "low", "high"}


@dataclass(frozen=True)
class Step:
    """One command of the tool. `words` may hold placeholders; the first one is the command."""

    name: str
    words: tuple
    accept: tuple = (0,)
    time_limit: float = None
    wants_report: bool = True


@dataclass(frozen=True)
class Figure:
    """A figure that the summary shows: `source` is STEP.MEMBER of a report; limits are those of a tolerance."""

    name: str
    source: str
    unit: str = ""
    low: float = None
    high: float = None


@dataclass(frozen=True)
class Plan:
    path: str
    name: str
    steps: tuple
    files: dict = field(default_factory=dict)
    values: dict = field(default_factory=dict)
    job_name: str = "{folder}"
    figures: tuple = ()
    preview: str = None
    page: str = None
    threads: int = 1
    tries: int = 2
    time_limit: float = 600.0

    def digest(self):
        """The hash of all that decides what a job's commands are, but for the content of files."""
        steps = [[step.name, step.words, step.accept, step.wants_report] for step in self.steps]
        return hash_of([steps, sorted(self.files), sorted(self.values.items())])

    def commands(self, job_input, job_name):
        """The words of each step's command for one job. They are run in the job's folder, so {out} is "."."""
        known = {**self.files, **self.values, "input": job_input, "out": ".", "name": job_name}
        return [[substituted(word, known) for word in step.words] for step in self.steps]


def hash_of(document):
    text = json.dumps(document, sort_keys=True, separators=(",", ":"))
    return hashlib.sha256(text.encode()).hexdigest()


def substituted(word, known):
    def value(match):
        if match.group(1) is None:
            return match.group(0)[0]
        return known[match.group(1)]

    return PLACEHOLDER.sub(value, word)


class Reader:
    """Reads members of one object of the plan; every fault is said with the place where it is."""

    def __init__(self, place, document, members):
        self.place = place
        if not isinstance(document, dict):
            raise UsageError(f"{place}: this must be an object with members, not {shown(document)}")
        self.document = document
        for member in document:
            if member not in members:
                raise UsageError(f'{place}: there is no member "{member}"; there are {", ".join(sorted(members))}')

    def fail(self, member, text):
        raise UsageError(f'{self.place}: "{member}": {text}')

    def text(self, member, default=None):
        value = self.document.get(member, default)
        if value is not None and (not isinstance(value, str) or not value):
            self.fail(member, f"this must be a text, not {shown(value)}")
        return value

    def number(self, member, default, least=None, whole=False):
        value = self.document.get(member, default)
        if value is None:
            return None
        if isinstance(value, bool) or not isinstance(value, int if whole else (int, float)) or not math.isfinite(value):
            self.fail(member, f"this must be a {'whole ' if whole else ''}number, not {shown(value)}")
        if least is not None and value < least:
            self.fail(member, f"{value} is less than {least}")
        return value

    def member(self, name, kind, default):
        value = self.document.get(name, default)
        if not isinstance(value, kind):
            word = "a list" if kind is list else "an object"
            self.fail(name, f"this must be {word}, not {shown(value)}")
        return value


def shown(value):
    text = json.dumps(value)
    return text if len(text) <= 60 else text[:57] + "..."


def unique_members(pairs):
    members = dict(pairs)
    if len(members) < len(pairs):
        names = [name for name, _ in pairs]
        twice = next(name for name in names if names.count(name) > 1)
        raise ValueError(f'the member "{twice}" stands twice')
    return members


def read_plan(path):
    try:
        with open(path, encoding="utf-8") as file:
            document = json.load(file, object_pairs_hook=unique_members)
    except OSError as error:
        raise UsageError(f"{path}: {error.strerror}") from error
    except ValueError as error:
        raise UsageError(f"{path}: this is no plan: {error}") from error
    reader = Reader(path, document, PLAN_MEMBERS)
    files = read_files(reader, os.path.dirname(os.path.abspath(path)))
    values = read_values(reader, files)
    steps = read_steps(reader, {**RESERVED, **files, **values})
    plan = Plan(
        path=os.path.abspath(path),
        name=reader.text("name", os.path.splitext(os.path.basename(path))[0]),
        steps=steps,
        files=files,
        values=values,
        job_name=reader.text("jobName", "{folder}"),
        figures=read_figures(reader, steps),
        preview=read_output(reader, "preview") or option_of(steps, "--preview"),
        page=read_output(reader, "page") or option_of(steps, "--html"),
        threads=reader.number("threads", 1, least=1, whole=True),
        tries=reader.number("tries", 2, least=1, whole=True),
        time_limit=reader.number("timeLimit", 600, least=0.01),
    )
    unused = set(files) | set(values)
    for step in steps:
        unused -= {match.group(1) for word in step.words for match in PLACEHOLDER.finditer(word)}
    if unused:
        raise UsageError(f"{path}: no step uses {{{sorted(unused)[0]}}}")
    return plan


def read_files(reader, folder):
    files = {}
    for name, value in reader.member("files", dict, {}).items():
        place = f"files.{name}"
        check_name(reader, place, name)
        if not isinstance(value, str) or not value:
            reader.fail(place, f"this must be a path, not {shown(value)}")
        path = os.path.normpath(os.path.join(folder, os.path.expanduser(value)))
        if not os.path.exists(path):
            reader.fail(place, f"{path}: there is no such file")
        files[name] = path
    return files


def read_values(reader, files):
    values = {}
    for name, value in reader.member("values", dict, {}).items():
        place = f"values.{name}"
        check_name(reader, place, name)
        if name in files:
            reader.fail(place, f'"{name}" is also one of the files')
        values[name] = word_of(reader, place, value)
    return values


def check_name(reader, place, name):
    if name in RESERVED:
        reader.fail(place, f"{{{name}}} stands for {RESERVED[name]} already")
    if not WORD.match(name):
        reader.fail(place, "a name is made of letters, digits and _, and begins with a letter")


def word_of(reader, place, value):
    """A word of a command line: a text, or a number as JSON writes it."""
    if isinstance(value, str):
        if "\0" in value:
            reader.fail(place, "a text of a command line holds no zero byte")
        return value
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not math.isfinite(value):
        reader.fail(place, f"this must be a text or a number, not {shown(value)}")
    return json.dumps(value)


def read_steps(reader, known):
    documents = reader.member("steps", list, [])
    if not documents:
        reader.fail("steps", "a plan has at least one step")
    steps = []
    for number, document in enumerate(documents, 1):
        step = read_step(reader.place, number, document, known)
        for other in steps:
            if other.name == step.name:
                raise UsageError(f'{reader.place}: steps {steps.index(other) + 1} and {number} are both named '
                                 f'"{step.name}": give one of them a "name" of its own')
        steps.append(step)
    return tuple(steps)


def read_step(path, number, document, known):
    step = Reader(f"{path}: step {number}", document, STEP_MEMBERS)
    run = document.get("run")
    if isinstance(run, str):
        try:
            run = shlex.split(run)
        except ValueError as error:
            step.fail("run", f"{shown(run)}: {error}")
    if not isinstance(run, list) or not run:
        step.fail("run", f"this must be a command with its words, not {shown(run)}")
    words = tuple(word_of(step, "run", word) for word in run)
    name = step.text("name", words[0])
    if not STEP_NAME.match(name):
        step.fail("name", f"{shown(name)}: a step's name is made of letters, digits, _ and -: files bear it")
    if name == "job":
        step.fail("name", "job.json is the record of the job itself: name the step otherwise")
    step.place = f'{path}: step {number} ("{name}")'
    if "{" in words[0]:
        step.fail("run", "the command itself can be no placeholder")
    for word in words:
        check_placeholders(step.place, word, known)
    accept = step.member("accept", list, [0])
    if not accept or any(isinstance(status, bool) or not isinstance(status, int) for status in accept):
        step.fail("accept", "this must be a list of exit statuses")
    wants_report = document.get("report", True)
    if not isinstance(wants_report, bool):
        step.fail("report", f"this must be true or false, not {shown(wants_report)}")
    return Step(name, words, tuple(accept), step.number("timeLimit", None, least=0.01), wants_report)


def check_placeholders(place, word, known):
    for match in PLACEHOLDER.finditer(word):
        name = match.group(1)
        if match.group(0) in ("{", "}"):
            raise UsageError(f"{place}: a single {match.group(0)} in {shown(word)}; for the letter itself write it twice")
        if name is not None and name not in known:
            listed = ", ".join(f"{{{other}}}" for other in sorted(known))
            raise UsageError(f"{place}: unknown placeholder {{{name}}} in {shown(word)}; there are {listed}")


def read_output(reader, member):
    path = reader.text(member)
    if path is not None and (os.path.isabs(path) or ".." in path.split("/")):
        reader.fail(member, "this must be a path in the job's folder")
    return path


def option_of(steps, option):
    """What the last step that has an option gives it, where that is a plain path in the job's folder."""
    found = None
    for step in steps:
        for word, following in zip(step.words, [*step.words[1:], ""]):
            path = following if word == option else word[len(option) + 1:] if word.startswith(option + "=") else ""
            if path and not PLACEHOLDER.search(path) and not os.path.isabs(path) and ".." not in path.split("/"):
                found = path
    return found


def read_figures(reader, steps):
    figures = []
    for name, document in reader.member("figures", dict, {}).items():
        if isinstance(document, str):
            document = {"from": document}
        figure = Reader(f"{reader.place}: figures.{name}", document, FIGURE_MEMBERS)
        source = figure.text("from")
        if source is None:
            figure.fail("from", 'this is missing: the figure\'s place in a report, such as "scan.points"')
        if source.split(".")[0] not in [step.name for step in steps]:
            figure.fail("from", f'"{source}": there is no step "{source.split(".")[0]}"; '
                                f'there are {", ".join(step.name for step in steps)}')
        low, high = figure.number("low", None), figure.number("high", None)
        if low is not None and high is not None and low > high:
            figure.fail("low", f"{low} is above {high}, which is \"high\"")
        figures.append(Figure(name, source, figure.text("unit", None) or "", low, high))
    return tuple(figures)
