"""Many robots on one broker of this machine, which is killed and started again, as are some of the robots: every
event that was committed has to arrive, repeated ones with the same bootId and seq, and no gap.

Usage: fleet_load.py FLEET_ROBOTS [GK] [--robots N] [--processes N] [--seconds N] [--events N] [--faults N]
Needs mosquitto and mosquitto_sub. Exit code 1 when something is missing.
"""

import argparse
import json
import os
import pwd
import re
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request
from collections import defaultdict

EVENT = re.compile(
    rb'^([0-9.]+) gk/v1/load/([^/]+)/event/\S+ .*"time":([0-9.]+).*"bootId":"([0-9a-f-]+)","seq":([0-9]+)'
)
GAP = re.compile(rb"^[0-9.]+ gk/v1/load/([^/]+)/gap (.*)")
# An event is committed at the latest so long after it was raised; a busy disk may need longer.
COMMITTED_AFTER = 1.0
BROKER_AWAY = 2.0
QUIET = 15.0


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def until_served(port):
    while True:
        with socket.socket() as one:
            if one.connect_ex(("127.0.0.1", port)) == 0:
                return
        time.sleep(0.01)


class Broker:
    def __init__(self, folder):
        self.port = free_port()
        self.config = os.path.join(folder, "mosquitto.conf")
        # What a subscriber has not got yet is kept for it without limit; its subscription survives.
        with open(self.config, "w") as file:
            file.write(
                f"listener {self.port} 127.0.0.1\nallow_anonymous true\nuser {pwd.getpwuid(os.getuid()).pw_name}\n"
                f"persistence true\npersistence_location {folder}/\nautosave_interval 0\n"
                "max_queued_messages 0\nmax_inflight_messages 0\nqueue_qos0_messages true\nlog_dest none\n"
            )
        self.cpu = 0.0
        self.start()

    def start(self):
        self.process = subprocess.Popen(["mosquitto", "-c", self.config], stderr=subprocess.DEVNULL)
        until_served(self.port)

    def keep(self):
        self.process.send_signal(signal.SIGUSR1)

    def kill(self, book=None):
        """At a moment when the book has all that the broker has sent it. What a broker has acknowledged and has in
        memory, or in a socket that ends with it, is lost for whoever has not read it: no robot can know of that."""
        while book is not None:
            self.process.send_signal(signal.SIGSTOP)
            if not book.is_owed_anything():
                break
            self.process.send_signal(signal.SIGCONT)
            time.sleep(0.003)
        self.process.kill()
        self.cpu += os.wait4(self.process.pid, 0)[2].ru_utime
        self.process.returncode = -9


class Book:
    """What has arrived: by robot and boot the numbers, and how late each event was."""

    def __init__(self, folder, port):
        self.seen = defaultdict(set)
        self.repeated = 0
        self.count = 0
        self.gaps = []
        self.odd = []
        self.delays = []
        self.last = time.monotonic()
        self.port = port
        # A file takes lines as fast as they come: a subscriber that waits for its reader acknowledges nothing.
        self.lines = os.path.join(folder, "arrived")
        with open(self.lines, "wb") as lines:
            self.process = subprocess.Popen(
                ["mosquitto_sub", "-p", str(port), "-V", "5", "-i", "fleet-load", "-c", "-q", "0"]
                + ["-t", "gk/v1/load/+/event/+", "-t", "gk/v1/load/+/gap", "-F", "%U %t %p"],
                stdout=lines,
                stderr=subprocess.DEVNULL,
            )
        self.is_ended = False
        self.thread = threading.Thread(target=self.follow, daemon=True)
        self.thread.start()

    def follow(self):
        """Reads what there is and what comes."""
        begun = b""
        with open(self.lines, "rb") as lines:
            while True:
                is_last = self.is_ended
                while line := lines.readline():
                    begun += line
                    if begun.endswith(b"\n"):
                        self.read(begun)
                        begun = b""
                if is_last:
                    return
                time.sleep(0.02)

    def read(self, line):
        self.last = time.monotonic()
        if event := EVENT.match(line):
            numbers = self.seen[event[2].decode(), event[4].decode()]
            seq = int(event[5])
            self.count += 1
            self.repeated += seq in numbers
            numbers.add(seq)
            self.delays.append(float(event[1]) - float(event[3]))
        elif GAP.match(line):
            self.gaps.append(line.decode().strip())
        else:
            self.odd.append(line.decode(errors="replace").strip())

    def is_owed_anything(self):
        """Whether something is on its way to the subscriber, in its socket or in the broker's."""
        sockets = set()
        for descriptor in os.scandir(f"/proc/{self.process.pid}/fd"):
            if found := re.match(r"socket:\[(\d+)]", os.readlink(descriptor.path)):
                sockets.add(found[1])
        own, from_broker = set(), {}
        with open("/proc/net/tcp") as table:
            next(table)
            for line in table:
                _, here, there, _, queued, *rest = line.split()
                unsent, unread = (int(size, 16) for size in queued.split(":"))
                if int(here.split(":")[1], 16) == self.port:
                    from_broker[there] = unsent
                elif int(there.split(":")[1], 16) == self.port and rest[4] in sockets:
                    own.add((here, unread))
        return any(unread > 0 or from_broker.get(here, 0) > 0 for here, unread in own)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.is_ended = True
        self.thread.join()


class Robots:
    """One process with some robots."""

    def __init__(self, program, broker, folder, first, count, events, seconds, parts=1):
        # Robots stand for other machines: they give way to the broker, as those would.
        self.command = ["nice", "-n", "10", program, f"127.0.0.1:{broker.port}", folder, str(first), str(count), str(events)]
        self.parts = parts
        self.runs = []
        self.start(seconds)

    def start(self, seconds):
        run = {"boots": {}, "raised": [], "end": None, "cpu": 0.0, "killed": None, "late": None}
        self.runs.append(run)
        self.end = time.monotonic() + seconds
        self.process = subprocess.Popen(
            self.command + [str(max(1, round(seconds))), str(self.parts)], stdout=subprocess.PIPE, text=True
        )
        self.thread = threading.Thread(target=self.read, args=(run, self.process.stdout), daemon=True)
        self.thread.start()

    @staticmethod
    def read(run, lines):
        for line in lines:
            word, *rest = line.split()
            if word == "boot":
                run["boots"][rest[0]] = rest[1]
            elif word == "raised":
                run["raised"].append((int(rest[0]), float(rest[1])))
            elif word == "end":
                run["end"], run["cpu"] = int(rest[0]), float(rest[1])
            elif word == "late":
                run["late"] = line.strip()

    def kill(self):
        self.runs[-1]["killed"] = time.time()
        self.process.kill()
        self.process.wait()
        self.thread.join()

    def start_again(self):
        self.start(max(1.0, self.end - time.monotonic()))

    def memory(self):
        with open(f"/proc/{self.process.pid}/smaps_rollup") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("Pss:")) / 1024


def check(processes, book):
    """What is wrong, in words."""
    problems = [f"a gap: {gap}" for gap in book.gaps] + [f"not understood: {odd}" for odd in book.odd[:5]]
    expected = 0
    for run in (run for process in processes for run in process.runs):
        if run["killed"] is None and run["end"] is None:
            problems.append(f"robots {', '.join(run['boots'])} have not ended: {run['late']}")
            continue
        if run["killed"] is None:
            least = run["end"]
        else:
            least = max((n for n, at in run["raised"] if at <= run["killed"] - COMMITTED_AFTER), default=0)
        for robot, boot in run["boots"].items():
            numbers = book.seen.get((robot, boot), set())
            most = max(numbers, default=0)
            expected += max(least, most)
            if most < least:
                problems.append(f"{robot} {boot}: {most} is the last event that came, {least} were committed")
            if len(numbers) != most:
                missing = sorted(set(range(1, most + 1)) - numbers)
                problems.append(f"{robot} {boot}: {len(missing)} of {most} missing, from {missing[0]} on")
    return problems, expected


def percentile(values, share):
    return sorted(values)[min(len(values) - 1, int(share * len(values)))] if values else float("nan")


def crowd(options, folder):
    broker = Broker(folder)
    book = Book(folder, broker.port)
    time.sleep(1)
    broker.keep()
    each = options.robots // options.processes
    begin = time.monotonic()
    processes = [
        Robots(options.program, broker, folder, i * each, each, options.events, options.seconds)
        for i in range(options.processes)
    ]

    def until(share):
        time.sleep(max(0.0, begin + share * options.seconds - time.monotonic()))

    def kill_broker(share):
        until(share)
        broker.kill(book)
        time.sleep(BROKER_AWAY)
        broker.start()

    kill_broker(0.2)
    until(0.4)
    killed = processes[: options.faults]
    for process in killed:
        process.kill()
    time.sleep(1)
    for process in killed:
        process.start_again()
    kill_broker(0.5)
    until(0.65)
    memory = statistics.mean(process.memory() for process in processes) / each
    kill_broker(0.75)
    for process in processes:
        process.process.wait()
        process.thread.join()
    taken = time.monotonic() - begin
    book.last = time.monotonic()
    while time.monotonic() - book.last < QUIET and check(processes, book)[0]:
        time.sleep(0.5)
    problems, expected = check(processes, book)
    cpu = sum(run["cpu"] for process in processes for run in process.runs)
    whole = [process for process in processes if len(process.runs) == 1]
    lively = sum(run["cpu"] for process in whole for run in process.runs) / max(1, len(whole) * each)
    broker.kill()
    book.close()
    print(
        f"{options.robots} robots in {options.processes} processes, {options.events} events a second each, for "
        f"{options.seconds} s: {expected} events in {taken:.0f} s ({expected / taken:.0f}/s), {book.repeated} repeated, "
        f"{len(book.gaps)} gaps; the broker killed 3 times, {len(killed)} processes killed"
    )
    print(
        f"a robot: {1000 * lively / taken:.2f} ms of CPU a second, {memory:.2f} MB; broker {broker.cpu:.1f} s of CPU, "
        f"robots {cpu:.1f} s"
    )
    return problems


def single(options, folder):
    """One robot that raises an event at a time: how long it takes to a subscriber."""
    broker = Broker(folder)
    book = Book(folder, broker.port)
    time.sleep(1)
    robot = Robots(options.program, broker, folder, 0, 1, 10, 20, parts=10)
    robot.process.wait()
    robot.thread.join()
    time.sleep(0.5)
    problems, _ = check([robot], book)
    delays = [1000 * delay for delay in book.delays]
    broker.kill()
    book.close()
    print(
        f"one robot, {len(delays)} events: {percentile(delays, 0.5):.0f} ms from raise to subscriber in general, "
        f"99 % within {percentile(delays, 0.99):.0f} ms"
    )
    return problems


def lateness(options, folder):
    """How late a real loop is: without a bridge, and with one whose broker is away."""
    for what, more in (
        ("without a bridge", []),
        ("with a bridge and no broker", ["--fleet", f"mqtt://127.0.0.1:{free_port()}", "--robot-name", "load"]),
    ):
        port = free_port()
        environment = dict(os.environ, XDG_STATE_HOME=folder)
        host = subprocess.Popen(
            [options.gk, "run", "--quiet", "--listen", f"127.0.0.1:{port}", *more],
            env=environment,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        time.sleep(20)
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/api/v1/host") as answer:
            loop = json.load(answer)["loops"][0]
        host.terminate()
        host.wait()
        print(
            f"a loop {what}: 99 % of {loop['ticks']} ticks at most {1000 * (loop['lateness']['p99_s'] or 9):.2f} ms "
            f"late, {loop['overruns']} overruns"
        )


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("program")
    parser.add_argument("gk", nargs="?")
    parser.add_argument("--robots", type=int, default=1000)
    parser.add_argument("--processes", type=int, default=40)
    parser.add_argument("--seconds", type=int, default=60)
    parser.add_argument("--events", type=int, default=10)
    parser.add_argument("--faults", type=int, default=4, help="processes that are killed")
    options = parser.parse_args()
    problems = []
    for part in (crowd, single):
        with tempfile.TemporaryDirectory() as folder:
            problems += part(options, folder)
    if options.gk:
        with tempfile.TemporaryDirectory() as folder:
            lateness(options, folder)
    for problem in problems[:20]:
        print(f"WRONG: {problem}", file=sys.stderr)
    print("every committed event arrived" if not problems else f"{len(problems)} things are wrong")
    return 1 if problems else 0


sys.exit(main())
