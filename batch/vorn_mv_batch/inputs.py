# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Which inputs a run has, and what their jobs are named."""

import glob
import os
import re
import sys

from . import UsageError
from .plan import check_placeholders, substituted

NAME = re.compile(r"[^/\0]{1,200}\Z")


def natural(path):
    """Orders part_9 before part_10."""
    return [(int(piece), piece) if piece.isdigit() else (-1, piece) for piece in re.split(r"([0-9]+)", path)]


def find_inputs(words):
    """Absolute paths in the order given: folders or files, patterns, and @FILE for a file of names."""
    paths = []
    for word in words:
        if word.startswith("@"):
            paths += listed(word[1:])
        else:
            paths += matches(word, word)
    if not paths:
        raise UsageError("there is no input")
    inputs = [os.path.abspath(path) for path in paths]
    seen = set()
    for path in inputs:
        if path in seen:
            raise UsageError(f"{path}: this input is named twice")
        seen.add(path)
    return inputs


def matches(pattern, place):
    if os.path.lexists(pattern):
        return [pattern]
    if glob.has_magic(pattern):
        found = sorted(glob.glob(pattern, recursive=True), key=natural)
        if not found:
            raise UsageError(f"{place}: nothing matches")
        return found
    raise UsageError(f"{place}: there is no such folder or file")


def listed(name):
    """The paths of a file of names, one a line, relative to the file's folder; # begins a remark."""
    try:
        if name == "-":
            lines, folder = sys.stdin.read().splitlines(), "."
        else:
            with open(name, encoding="utf-8", errors="surrogateescape") as file:
                lines, folder = file.read().splitlines(), os.path.dirname(name)
    except OSError as error:
        raise UsageError(f"{name}: {error.strerror}") from error
    paths = []
    for number, line in enumerate(lines, 1):
        line = line.strip()
        if line and not line.startswith("#"):
            paths += matches(os.path.join(folder, line), f"{name}, line {number}: {line}")
    return paths


def name_jobs(inputs, template):
    """The job's name of each input, from {folder}, {parent} and {grandparent}: its path's last components."""
    check_placeholders(f'the job\'s name "{template}"', template, ("folder", "parent", "grandparent"))
    names = {}
    for path in inputs:
        parts = ["", "", *path.split("/")]
        name = substituted(template, {"folder": parts[-1], "parent": parts[-2], "grandparent": parts[-3]})
        if not NAME.match(name) or name.startswith(".") or len(os.fsencode(name)) > 200:
            raise UsageError(f'{path}: "{name}" can be no folder\'s name')
        if name in names:
            raise UsageError(f'{names[name]} and {path} would both be the job "{name}": tell them apart with '
                             f'--name "{{parent}}_{{folder}}"')
        names[name] = path
    return names


def check_apart(inputs, out):
    """Results inside of an input would change it; an input inside of the results may vanish."""
    out = os.path.realpath(out)
    for path in inputs:
        real = os.path.realpath(path)
        if out == real or out.startswith(real.rstrip("/") + "/"):
            raise UsageError(f"{out}: the results would lie in the input {path}")
        if real.startswith(out + "/"):
            raise UsageError(f"{path}: this input lies among the results in {out}")
