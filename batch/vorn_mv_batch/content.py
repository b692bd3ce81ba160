# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""What files hold, by SHA-256, and whether they are still what they were.

A file's stamp (size, times, inode) spares reading it again: the same stamp means the same content, unless the file
was changed so shortly before it was read that the clock of its times may not tell. Such a file has no stamp.
"""

import hashlib
import os
import stat
import time

# A coarser clock than any file system's times have.
CLOCK_SECONDS = 2.5
BLOCK = 1 << 20


def stamp_of(status):
    return [status.st_size, status.st_mtime_ns, status.st_ctime_ns, status.st_ino]


def is_stamp_of(stamp, status):
    """Whether a stamp, perhaps by another machine, is that of a file: some network file systems make up inodes for each
    machine that mounts them."""
    return stamp[:3] == stamp_of(status)[:3]


def relative_files(path):
    """The regular files of a folder by their paths in it, in order; "" for an input that is a file itself."""
    if not os.path.isdir(path):
        return [""]
    found = []

    def refuse(error):
        raise error

    for folder, folders, names in os.walk(path, onerror=refuse):
        folders.sort()
        prefix = os.path.relpath(folder, path)
        for name in sorted(names):
            relative = name if prefix == "." else os.path.join(prefix, name)
            if stat.S_ISREG(os.stat(os.path.join(path, relative)).st_mode):
                found.append(relative)
    return sorted(found)


def describe(path, known=None, should_stop=lambda: False):
    """Size, hash and stamp of one file. `known` is an earlier description, which saves reading."""
    with open(path, "rb") as file:
        before = os.fstat(file.fileno())
        if known and known.get("stamp") == stamp_of(before):
            return known
        digest = hashlib.sha256()
        while block := file.read(BLOCK):
            digest.update(block)
            if should_stop():
                raise InterruptedError(f"{path}: stopped while reading")
        after = os.fstat(file.fileno())
    latest = max(before.st_mtime, before.st_ctime)
    settled = stamp_of(before) == stamp_of(after) and time.time() - latest > CLOCK_SECONDS
    return {"size": after.st_size, "sha256": digest.hexdigest(), "stamp": stamp_of(after) if settled else None}


def describe_input(path, known=(), should_stop=lambda: False):
    """The description of every file of an input, each with its path in it."""
    earlier = {entry["path"]: {key: entry[key] for key in ("size", "sha256", "stamp")} for entry in known}
    return [{"path": name, **describe(os.path.join(path, name) if name else path, earlier.get(name), should_stop)}
            for name in relative_files(path)]


def signature(entries):
    return [[entry["path"], entry["sha256"]] for entry in entries]


def changed_since(path, entries):
    """The first file of an input whose stamp is no longer the described one, or None. Files that have no stamp are
    compared by size alone."""
    try:
        names = relative_files(path)
        described = {entry["path"]: entry for entry in entries}
        for name in sorted(set(names) ^ set(described)):
            return name or path
        for name in names:
            status = os.stat(os.path.join(path, name) if name else path)
            entry = described[name]
            if entry["size"] != status.st_size or (entry["stamp"] and not is_stamp_of(entry["stamp"], status)):
                return name or path
    except OSError as error:
        return error.filename or path
    return None


def is_settled(path, entries):
    """Whether stamps alone show that an input is what it was."""
    return all(entry["stamp"] for entry in entries) and changed_since(path, entries) is None
