# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Says on standard error how far a run is: on a terminal in one line that changes, elsewhere now and then."""

import collections
import sys
import time

LINE_SECONDS = 0.25
LOG_SECONDS = 30
RATE_SECONDS = 60


class Progress:
    def __init__(self, total, quiet=False):
        self.total = total
        self.quiet = quiet
        self.is_terminal = sys.stderr.isatty()
        self.done = 0
        self.failed = 0
        self.last = time.monotonic()
        self.past = collections.deque([(self.last, 0)])
        self.width = 0

    def count(self, failed):
        self.done += 1
        self.failed += failed

    def tick(self, workers, force=False):
        now = time.monotonic()
        if self.quiet or not force and now - self.last < (LINE_SECONDS if self.is_terminal else LOG_SECONDS):
            return
        self.last = now
        self.past.append((now, self.done))
        while len(self.past) > 2 and self.past[0][0] < now - RATE_SECONDS:
            self.past.popleft()
        self.write(self.text(now, workers))

    def text(self, now, workers):
        then, before = self.past[0]
        rate = (self.done - before) / (now - then) if now > then else 0
        text = f"{self.done} of {self.total}, {self.failed} failed"
        if rate > 0:
            text += f", {rate:.3g} a second" if rate >= 1 else f", {1 / rate:.3g} s each"
            text += f", {duration((self.total - self.done) / rate)} left"
        return text + f", {workers} worker{'' if workers == 1 else 's'}"

    def write(self, text):
        if self.is_terminal:
            sys.stderr.write("\r" + text.ljust(self.width))
            self.width = len(text)
        else:
            sys.stderr.write(text + "\n")
        sys.stderr.flush()

    def say(self, text):
        """A line of its own."""
        if self.is_terminal and self.width:
            sys.stderr.write("\r" + " " * self.width + "\r")
            self.width = 0
        sys.stderr.write(f"vorn-mv-batch: {text}\n")
        sys.stderr.flush()

    def end(self):
        if self.is_terminal and self.width:
            sys.stderr.write("\n")
            self.width = 0


def duration(seconds):
    if seconds < 90:
        return f"{seconds:.0f} s"
    if seconds < 5400:
        return f"{seconds / 60:.0f} min"
    return f"{seconds / 3600:.1f} h"
