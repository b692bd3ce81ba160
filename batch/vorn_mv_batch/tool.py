# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""What the tool on this machine can do, to refuse a plan before its first job."""

import difflib
import os
import re
import shutil
import subprocess

from . import BatchError, UsageError

COMMAND = re.compile(r"^  ([a-z][a-z0-9-]*)\s")
OPTION = re.compile(r"--[a-z][a-z0-9-]*")


def find_tool(name):
    path = shutil.which(os.path.expanduser(name))
    if path is None:
        raise BatchError(f"{name}: there is no such program: install vorn-mv-tools, or name it with --tool")
    return os.path.abspath(path)


def ask(tool, *words):
    try:
        result = subprocess.run([tool, *words], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60,
                                check=True)
    except (OSError, subprocess.SubprocessError) as error:
        raise BatchError(f"{tool} {' '.join(words)}: {error}") from error
    return result.stdout


def check_steps(plan, tool):
    """Refuses commands and options that the tool does not have."""
    lines = ask(tool, "--help").partition("Subcommands:")[2].splitlines()
    commands = {match.group(1) for line in lines if (match := COMMAND.match(line))}
    known = {}
    for number, step in enumerate(plan.steps, 1):
        place = f'{plan.path}: step {number} ("{step.name}")'
        command = step.words[0]
        if command not in commands:
            raise UsageError(f'{place}: vorn-mv has no command "{command}"{nearest(command, commands)}')
        if command not in known:
            listed = ask(tool, command, "--help").splitlines()
            known[command] = {option for line in listed if line.startswith("  ") and line.lstrip().startswith("-")
                              for option in OPTION.findall(line.strip().split(" ")[0])}
        for word in step.words[1:]:
            option = word.split("=")[0]
            if OPTION.fullmatch(option) and option not in known[command]:
                raise UsageError(f'{place}: vorn-mv {command} has no option {option}{nearest(option, known[command])}')


def nearest(word, words):
    close = difflib.get_close_matches(word, sorted(words), 1)
    return f"; did you mean {close[0]}?" if close else ""
