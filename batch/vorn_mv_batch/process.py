# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Runs the tool as a process, so that its crash costs one job and no worker."""

import contextlib
import ctypes
import os
import resource
import select
import shutil
import signal
import subprocess
import time
from dataclasses import dataclass

PR_SET_PDEATHSIG = 1
POLL_SECONDS = 0.3
# What a killed process may take to be gone; one that waits for a dead disk never is.
GRACE_SECONDS = 10

SETPRIV = shutil.which("setpriv")

_libc = ctypes.CDLL(None)


@dataclass
class Ended:
    """How a process ended: `cause` is "" by itself, "time" at the limit, "stop" at the end of the run."""

    status: int
    seconds: float
    cause: str = ""


def _prepare_child(parent):
    """In the new process: ends with the worker."""
    _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    if os.getppid() != parent:
        os._exit(127)


def start(words, **streams):
    """A process in a group of its own that ends with the worker and leaves no core file among the results."""
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if SETPRIV is not None:
        # Some milliseconds less than code of Python's between fork and exec.
        return subprocess.Popen([SETPRIV, "--pdeathsig", "KILL", *words], start_new_session=True, **streams)
    parent = os.getpid()
    return subprocess.Popen(words, start_new_session=True, preexec_fn=lambda: _prepare_child(parent), **streams)


def run_process(words, folder, out, errors, limit, should_stop, threads):
    """Runs a command in a folder with its streams in files, for `limit` seconds at most."""
    environment = {**os.environ, "OPENCV_FOR_THREADS_NUM": str(threads)}
    started = time.monotonic()
    with open(out, "wb") as out_file, open(errors, "wb") as errors_file:
        child = start(words, cwd=folder, stdin=subprocess.DEVNULL, stdout=out_file, stderr=errors_file,
                      env=environment)
    cause = ""
    try:
        while not _has_ended(child, min(POLL_SECONDS, limit - (time.monotonic() - started))):
            if should_stop():
                cause = "stop"
                break
            if time.monotonic() - started >= limit:
                cause = "time"
                break
    finally:
        # Also what the tool itself may have left running.
        if child.returncode is None:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(child.pid, signal.SIGKILL)
    with contextlib.suppress(subprocess.TimeoutExpired):
        child.wait(GRACE_SECONDS)
    return Ended(child.returncode if child.returncode is not None else -signal.SIGKILL,
                 time.monotonic() - started, cause)


def _has_ended(child, seconds):
    """Waits for the end of a process without looking again and again, where the system can."""
    try:
        handle = os.pidfd_open(child.pid)
    except (AttributeError, OSError):
        try:
            child.wait(max(seconds, 0.001))
        except subprocess.TimeoutExpired:
            return False
        return True
    try:
        poll = select.poll()
        poll.register(handle, select.POLLIN)
        return bool(poll.poll(max(0, seconds) * 1000))
    finally:
        os.close(handle)


def described(status):
    """An exit status in words."""
    if status >= 0:
        return f"exit status {status}"
    try:
        return f"killed by {signal.Signals(-status).name}"
    except ValueError:
        return f"killed by signal {-status}"
