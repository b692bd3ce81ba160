# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Which build of the tool a machine has: programs of one version may still be compiled from different sources."""

import functools
import hashlib
import os
import re
import subprocess

from . import content

LIBRARY = re.compile(r"^\s*libvorn\S* => (/.*) \(0x[0-9a-f]+\)$", re.MULTILINE)
DIGITS = 12


@functools.lru_cache(maxsize=None)
def build_of(tool):
    """What `vorn-mv --version` says, and a hash of the program and of our libraries that it loads.

    Raises OSError or subprocess.SubprocessError when the tool cannot be run."""
    version = subprocess.run([tool, "--version"], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60,
                             check=True).stdout.strip()
    digest = hashlib.sha256()
    for path in [os.path.realpath(tool), *libraries_of(tool)]:
        digest.update(content.describe(path)["sha256"].encode())
    return version, digest.hexdigest()[:DIGITS]


def libraries_of(tool):
    """None for scripts and for programs that hold our libraries within themselves."""
    try:
        listed = subprocess.run(["ldd", tool], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    except OSError:
        return []
    return sorted(os.path.realpath(path) for path in LIBRARY.findall(listed.stdout))
