# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""The folder of results:

    jobs/NAME/          what a job made, with job.json; appears whole or not at all
    failed/NAME/        messages and reports of a job that failed, with job.json
    results.jsonl       a line a job
    summary.html
    .work/              what is being made; swept when a run begins and ends
    .lock               held by the run that writes here
"""

import contextlib
import ctypes
import errno
import fcntl
import json
import os
import shutil
import socket
import tempfile

from . import BatchError

RECORD = "job.json"
EXCHANGE = 2  # RENAME_EXCHANGE
AT_FDCWD = -100

_libc = ctypes.CDLL(None, use_errno=True)


class Store:
    def __init__(self, root):
        self.root = os.path.abspath(root)
        self.jobs = os.path.join(self.root, "jobs")
        self.failed = os.path.join(self.root, "failed")
        self.work = os.path.join(self.root, ".work")
        self.results = os.path.join(self.root, "results.jsonl")
        self.summary = os.path.join(self.root, "summary.html")
        self.lock = os.path.join(self.root, ".lock")
        self._lock = None

    def is_held(self):
        """Whether a run holds the folder, as this machine sees it."""
        return is_locked(self.lock)

    def job(self, name):
        return os.path.join(self.jobs, name)

    def failure(self, name):
        return os.path.join(self.failed, name)

    def stop_file(self, run):
        return os.path.join(self.work, f"stop.{run}")

    def open(self):
        """Makes the folder ready for one run. A second one is refused until the first has ended, however it does."""
        try:
            for folder in (self.root, self.jobs, self.failed, self.work):
                os.makedirs(folder, exist_ok=True)
            self._lock = open(self.lock, "a+", encoding="utf-8")
        except OSError as error:
            raise BatchError(f"cannot write results: {error.filename}: {error.strerror}") from error
        try:
            fcntl.flock(self._lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError as error:
            self._lock.seek(0)
            holder = self._lock.read().strip() or "another run"
            raise BatchError(f"{self.root}: {holder} is writing results here; two runs into one folder are refused"
                             ) from error
        except OSError as error:
            raise BatchError(f"{self.lock}: {error.strerror}: results need a file system that has locks") from error
        self._lock.seek(0)
        self._lock.truncate()
        self._lock.write(f"process {os.getpid()} on {socket.gethostname()}")
        self._lock.flush()
        self.sweep()

    def sweep(self):
        """Removes what broken-off jobs left, but for that of jobs that still run for a run that was killed."""
        with contextlib.suppress(OSError):
            for entry in os.scandir(self.work):
                name = entry.name.rsplit(".", 2)[0] if entry.is_dir(follow_symlinks=False) else None
                if name is None:
                    with contextlib.suppress(OSError):
                        if not entry.name.endswith(".lock") or not is_locked(entry.path):
                            os.unlink(entry.path)
                elif not is_locked(os.path.join(self.work, f"{name}.lock")):
                    shutil.rmtree(entry.path, ignore_errors=True)

    def close(self):
        self.sweep()
        self._lock.close()

    def record(self, name):
        """What was found out about a job last, or None: a failure counts more than an older result."""
        return read_record(self.failure(name)) or read_record(self.job(name))


def read_record(folder):
    try:
        with open(os.path.join(folder, RECORD), encoding="utf-8") as file:
            return json.load(file)
    except (OSError, ValueError):
        return None


def write_whole(path, text):
    """Replaces a file by a complete one."""
    handle, temporary = tempfile.mkstemp(dir=os.path.dirname(path), prefix=".new.")
    try:
        with open(handle, "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), 0o666 & ~_MASK)
            file.write(text)
            file.flush()
            os.fsync(file.fileno())
        os.replace(temporary, path)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(temporary)
        raise


def _umask():
    mask = os.umask(0)
    os.umask(mask)
    return mask


# Asked once, while there is one thread: asking sets it for a moment.
_MASK = _umask()


def place_folder(folder, place):
    """Gives a complete folder its name. What stood there goes in the same moment, where the file system can."""
    try:
        os.rename(folder, place)
        return
    except OSError:
        # That something stands there is told by other errors on other file systems.
        if not os.path.lexists(place):
            raise
    if not os.path.isfile(os.path.join(place, RECORD)):
        raise FileExistsError(errno.EEXIST, "this was not made by a batch", place)
    if _libc.renameat2(AT_FDCWD, os.fsencode(folder), AT_FDCWD, os.fsencode(place), EXCHANGE) != 0:
        aside = folder + ".old"
        os.rename(place, aside)
        try:
            os.rename(folder, place)
        except OSError:
            os.rename(aside, place)
            raise
        folder = aside
    shutil.rmtree(folder, ignore_errors=True)


def sync_folder(folder):
    """Brings files to the disk before their folder gets its name, so that a power failure leaves none half empty."""
    for path, _, names in os.walk(folder):
        for name in names:
            sync(os.path.join(path, name))
        sync(path)


def sync(path):
    handle = os.open(path, os.O_RDONLY)
    try:
        os.fsync(handle)
    finally:
        os.close(handle)


def outputs(folder):
    """Paths and sizes of a job's files, but for its record."""
    found = []
    for path, folders, names in os.walk(folder):
        folders.sort()
        for name in sorted(names):
            full = os.path.join(path, name)
            relative = os.path.relpath(full, folder)
            if relative != RECORD:
                found.append({"path": relative, "size": os.lstat(full).st_size})
    return found


def has_outputs(folder, entries):
    """Whether a job's files are there as its record has them."""
    try:
        return all(os.lstat(os.path.join(folder, entry["path"])).st_size == entry["size"] for entry in entries)
    except OSError:
        return False


def is_locked(path):
    try:
        with open(path, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_SH | fcntl.LOCK_NB)
    except FileNotFoundError:
        return False
    except OSError:
        return True
    return False


@contextlib.contextmanager
def job_lock(path, should_stop, pause):
    """Held while a job is worked on: a scheduler that lost sight of a worker may start a job that still runs."""
    while True:
        file = open(path, "ab")
        try:
            while True:
                try:
                    fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                    break
                except BlockingIOError:
                    if should_stop():
                        raise InterruptedError("stopped while another worker held the job") from None
                    pause()
            # The holder before may have removed the file: then others lock a new one.
            with contextlib.suppress(FileNotFoundError):
                if os.path.samestat(os.stat(path), os.fstat(file.fileno())):
                    try:
                        yield
                    finally:
                        with contextlib.suppress(OSError):
                            os.unlink(path)
                    return
        finally:
            file.close()


def record_text(record):
    return json.dumps(record, sort_keys=True) + "\n"


def write_record(folder, record):
    with open(os.path.join(folder, RECORD), "w", encoding="utf-8") as file:
        file.write(record_text(record))
