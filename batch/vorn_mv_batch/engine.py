# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Hands jobs to the workers of a Dask cluster, here or elsewhere, and takes back how they went.

Only a few more tasks than there are workers are handed over at a time, so that the client's memory does not grow with
the number of jobs; short jobs share a task, since a task costs the scheduler some milliseconds. A job that failed is tried again, on another worker if there is one. What a lost worker or scheduler was
busy with is handed over again; each job itself counts on how often a worker was lost while at it (see job.py).
"""

import collections
import contextlib
import itertools
import logging
import math
import os
import queue
import socket
import time
from dataclasses import dataclass, field

import dask
from distributed import Client, LocalCluster
from distributed.scheduler import KilledWorker
from distributed.security import Security

from . import BatchError
from .job import run_job
from .store import Store

TICK_SECONDS = 0.25
CONNECT_SECONDS = 5
ASK_SECONDS = 1
STOP_SECONDS = 15
# What made a job fail may pass in this time, where only workers are left that it has failed on.
AGAIN_SECONDS = 2
# More than any poisonous job needs; only against a fault that hides what it does.
MOST_LOSSES = 50
# A worker is left out when so many jobs in a row that failed there were done elsewhere: its disk may be full.
MOST_BLAME = 3
# Jobs share a task when they are shorter than this, or so many workers would ask for more tasks a second than a
# scheduler hands out; but never more jobs than so many.
TASK_SECONDS = 0.4
MOST_TASKS_A_SECOND = 40
MOST_SHARING = 32


@dataclass
class Flight:
    """Jobs on their way in one task: on which workers they failed, and how often they were lost."""

    orders: list
    losses: int = 0
    shunned: set = field(default_factory=set)
    future: object = None
    # When a worker that it failed on may have it again.
    not_before: float = 0.0
    # The only workers that it may go to; empty for any.
    bound: set = field(default_factory=set)


def quiet_dask():
    """Lost workers and schedulers are said by this program, in its own words."""
    for name in ("distributed", "tornado", "asyncio", "bokeh"):
        logging.getLogger(name).setLevel(logging.CRITICAL)
    # Workers are forks of one process that has read Dask's code, which takes each of them a second otherwise.
    dask.config.set({"distributed.worker.multiprocessing-method": "forkserver",
                     "distributed.scheduler.allowed-failures": 0, "distributed.comm.retry.count": 0,
                     # Dask measures itself for its own pages, with processor time that the jobs need.
                     "distributed.worker.profile.enabled": False, "distributed.admin.system-monitor.interval": "10s",
                     "distributed.admin.system-monitor.disk": False, "distributed.admin.tick.interval": "2s",
                     "distributed.worker.daemon": True})


class Cluster:
    """The workers, on this computer or behind a scheduler's address."""

    def __init__(self, address, workers, folder, wait_seconds, say):
        self.address = address
        self.wait_seconds = wait_seconds
        self.say = say
        self.local = None
        self.client = None
        self.known = {}
        self.asked = -math.inf
        if address is None:
            # Encrypted with a key of this run, so that other users of the computer cannot send it work of their own.
            security = Security.temporary()
            self.local = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, memory_limit=0,
                                      host="127.0.0.1", dashboard_address="127.0.0.1:0",
                                      worker_dashboard_address="127.0.0.1:0", security=security,
                                      silence_logs=logging.CRITICAL, local_directory=os.path.join(folder, "dask"))
            self.client = Client(self.local, security=security, set_as_default=False)
        else:
            self.connect()

    def connect(self):
        """Waits for the scheduler, also for one that is started again."""
        until = time.monotonic() + self.wait_seconds
        while True:
            try:
                self.client = Client(self.address, timeout=CONNECT_SECONDS, set_as_default=False)
                return
            except (OSError, TimeoutError, ValueError) as error:
                if time.monotonic() > until or isinstance(error, ValueError):
                    raise BatchError(f"no scheduler answers at {self.address}: {error}") from error
                time.sleep(TICK_SECONDS)

    def is_lost(self):
        return self.client.status != "running"

    def reconnect(self):
        self.say(f"the scheduler at {self.address} is gone; waiting for it up to {self.wait_seconds:.0f} s")
        self.close_client()
        self.asked = -math.inf
        self.connect()
        self.say(f"the scheduler at {self.address} is back")

    def workers(self):
        """{address: threads} of the workers there are, as the scheduler said lately."""
        if time.monotonic() - self.asked > ASK_SECONDS:
            info = self.client.scheduler_info()["workers"]
            self.known = {address: worker["nthreads"] for address, worker in info.items()}
            self.asked = time.monotonic() if self.known else -math.inf
        return self.known

    def close_client(self):
        with contextlib.suppress(Exception):
            self.client.close(timeout=2)

    def close(self):
        self.close_client()
        if self.local is not None:
            with contextlib.suppress(Exception):
                self.local.close(timeout=10)


class Engine:
    """Runs orders to their end. `on_result(outcome)` is called once for each that was not stopped."""

    def __init__(self, cluster, common, orders, count, on_result, on_tick, should_stop):
        self.cluster = cluster
        self.common = common
        self.orders = iter(orders)
        self.left = count
        self.on_result = on_result
        self.on_tick = on_tick
        self.should_stop = should_stop
        self.again = collections.deque()
        self.flying = {}
        self.events = queue.SimpleQueue()
        self.numbers = itertools.count()
        self.last_worker = time.monotonic()
        self.job_seconds = TASK_SECONDS
        self.blame = collections.Counter()
        self.is_lock_told = False

    def run(self):
        is_exhausted = False
        while not self.should_stop():
            workers = self.cluster.workers() if not self.cluster.is_lost() else {}
            self.watch_workers(workers)
            is_exhausted = self.hand_over(workers, is_exhausted)
            if is_exhausted and not self.flying and not self.again:
                return
            self.take_back()
            self.on_tick(len(workers))
        self.stop()

    def watch_workers(self, workers):
        now = time.monotonic()
        if workers:
            self.last_worker = now
        elif now - self.last_worker > self.cluster.wait_seconds:
            raise BatchError(f"there is no worker since {now - self.last_worker:.0f} s")
        for flight in self.flying.values():
            if workers and flight.bound and flight.bound.isdisjoint(workers):
                flight.future.cancel()  # those it may go to are gone: it is handed over anew

    def hand_over(self, workers, is_exhausted):
        threads = sum(workers.values())
        room = 2 * threads + 2 if workers else 0
        while len(self.flying) < room:
            flight = self.next_again(workers)
            if flight is None:
                orders = list(itertools.islice(self.orders, self.share(threads))) if not is_exhausted else []
                if not orders:
                    return True
                self.left -= len(orders)
                flight = Flight(orders)
            self.submit(flight, workers)
        return is_exhausted

    def next_again(self, workers):
        """A flight to try again: at once where there is a worker that it has not failed on, and else after a while."""
        now = time.monotonic()
        for flight in self.again:
            if flight.not_before <= now or not flight.shunned.issuperset(workers):
                self.again.remove(flight)
                return flight
        return None

    def share(self, threads):
        """How many jobs the next task has: fewer towards the end, so that all workers end together."""
        wanted = max(TASK_SECONDS, threads / MOST_TASKS_A_SECOND) / self.job_seconds
        return max(1, int(min(wanted, MOST_SHARING, self.left / (2 * threads))))

    def submit(self, flight, workers):
        left_out = {address for address in workers if self.blame[address] >= MOST_BLAME}
        good = set(workers) - left_out
        wanted = good - flight.shunned or good or set(workers)
        flight.bound = wanted if wanted != set(workers) else set()
        preference = {"workers": list(flight.bound)} if flight.bound else {}
        key = f"{flight.orders[0]['name']}-{self.common['run']}-{next(self.numbers)}"
        flight.future = self.cluster.client.submit(run_task, self.common, flight.orders, key=key, pure=False, retries=0,
                                                   **preference)
        self.flying[key] = flight
        flight.future.add_done_callback(lambda future, key=key: self.events.put(key))

    def take_back(self):
        keys = set()
        with contextlib.suppress(queue.Empty):
            keys.add(self.events.get(timeout=TICK_SECONDS))
            while True:
                keys.add(self.events.get_nowait())
        if self.cluster.is_lost() and self.cluster.local is None:
            self.lose_all()
            return
        flights = [self.flying.pop(key) for key in keys if key in self.flying]
        finished = [flight for flight in flights if flight.future.status == "finished"]
        try:
            results = self.cluster.client.gather([flight.future for flight in finished]) if finished else []
        except Exception:  # a worker went between the end of its task and now: its jobs are handed over again
            self.again.extend(finished)
            results, finished = [], []
        for flight, result in zip(finished, results):
            share = result["seconds"] / len(flight.orders)
            self.job_seconds += 0.2 * (share - self.job_seconds)
            self.watch_lock(result)
            for order, outcome in zip(flight.orders, result["outcomes"]):
                self.put_blame(outcome, result["address"], flight.shunned)
                self.judge(order, outcome, flight.shunned | {result["address"]})
        for flight in flights:
            if flight.future.status in ("error", "lost", "cancelled"):
                self.lose(flight)

    def watch_lock(self, result):
        """The run holds its folder all the time; a worker that sees otherwise could not see another run either."""
        if not result["isHeld"] and not self.is_lock_told:
            self.is_lock_told = True
            self.cluster.say(f'the file system of {self.common["out"]} has no locks between machines: that another one '
                             "writes there too would not be noticed")

    def put_blame(self, outcome, address, shunned):
        if outcome["status"] != "done":
            return
        self.blame[address] = 0
        for other in shunned - {address}:
            self.blame[other] += 1
            if self.blame[other] == MOST_BLAME:
                self.cluster.say(f"the worker at {other} is left out: jobs that failed there were done elsewhere")

    def judge(self, order, outcome, shunned):
        if outcome["status"] == "failed":
            order["failures"] += 1
            if order["failures"] < self.common["tries"] and outcome["line"]["error"]["cause"] != "lost":
                self.cluster.asked = -math.inf  # whether there are others by now
                self.again.append(Flight([order], shunned=shunned, not_before=time.monotonic() + AGAIN_SECONDS))
                return
        if outcome["status"] == "stopped":
            if not self.should_stop():  # by the mark of a run that was killed
                self.again.append(Flight([order]))
            return
        outcome["tries"] = order["failures"] + (outcome["status"] != "failed")
        self.on_result(outcome)

    def lose(self, flight):
        """A worker died, at this job or at another one that it had been given."""
        flight.losses += 1
        error = flight.future.exception() if flight.future.status == "error" else None
        if flight.losses < MOST_LOSSES and (error is None or isinstance(error, KilledWorker)):
            # One by one from now on, so that a job of which workers die takes no others along again.
            self.again.extend(Flight([order], flight.losses, flight.shunned) for order in flight.orders)
            return
        for order in flight.orders:
            self.on_result({"name": order["name"], "status": "failed", "line": None, "worker": None,
                            "tries": flight.losses, "text": f"the cluster could not run it: {error!r}"})

    def lose_all(self):
        self.cluster.reconnect()
        self.again.extend(self.flying.values())
        self.flying.clear()
        self.last_worker = time.monotonic()

    def stop(self):
        """Waits until running jobs have noticed that the run ends; nothing of them is left but finished ones."""
        until = time.monotonic() + STOP_SECONDS
        while self.flying and time.monotonic() < until and not self.cluster.is_lost():
            self.take_back()


def run_task(common, orders):
    """Runs on the worker."""
    from distributed import get_worker

    worker = get_worker()
    began = time.monotonic()
    name = f"{socket.gethostname()} {worker.name}"
    outcomes = [run_job({**common, **order, "worker": name}) for order in orders]
    return {"outcomes": outcomes, "address": worker.address, "seconds": time.monotonic() - began,
            "isHeld": Store(common["out"]).is_held()}
