#!/usr/bin/env python3
"""bench/table.py BUILD_FOLDER [--store]: the command beside other programs, on real servers on loopback.

--store writes the table and its picture into docs. The settings below come from the environment. ONLY is a regular
expression that a line's title must match.
"""
import dataclasses
import datetime
import filecmp
import os
import pathlib
import platform
import re
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import picture
from programs import Curl, Lftp, Place, Qrftp, Rclone, Sftp
from servers import FAR, NEAR, ROOT, Servers, memory_for


def setting(name, default):
    return int(os.environ.get(name, default))


BIG = setting("BIG", 512)  # MiB of the large file
SLOW = min(BIG, setting("SLOW", 64))  # MiB of that on slow lines
MANY = setting("MANY", 2000)  # small files
SLOW_MANY = setting("SLOW_MANY", 500)  # small files on a slow line, for programs with eight connections
FEW = min(200, SLOW_MANY)  # small files on a slow line, for programs that take them one by one
ENTRIES = setting("ENTRIES", 20000)  # of the tree to synchronise, a fiftieth of them folders
CROWD = setting("CROWD", 100000)  # files of the tree that memory is measured with
HUGE = setting("HUGE", 2048)  # MiB of the file that memory is measured with
ROUNDS = setting("ROUNDS", 5)  # on loopback
SLOW_ROUNDS = setting("SLOW_ROUNDS", min(ROUNDS, 3))  # on slow lines, where little varies
PATIENCE, LIMIT = 10, setting("LIMIT", 180)  # seconds; what takes longer is run once, or ended
ONLY = re.compile(os.environ.get("ONLY", ""))
COLUMNS = ["qrftp", "sftp", "lftp", "rclone", "curl"]
BEGIN, END = "<!-- figures: written by bench/run --store -->", "<!-- end of the figures -->"


class Cannot(Exception):
    """Why a program has no figure for a job."""


@dataclasses.dataclass
class Run:
    """One command of a work."""

    program: object
    data: str = ""  # what it works on instead of the work's own
    share: float = 1  # how much of the work it does
    note: str = ""
    results: list = dataclasses.field(default_factory=list)
    failure: str = ""

    def median(self, quantity):
        return statistics.median(result[quantity] for result in self.results)


@dataclasses.dataclass
class Line:
    """One quantity of some runs. A goal is (run, at least so many times qrftp's figure) or (None, at most)."""

    title: str
    mine: str = "qrftp"
    goals: list = dataclasses.field(default_factory=list)
    quantity: str = "seconds"
    others: dict = dataclasses.field(default_factory=dict)  # column: run; else the runs with the columns' names


@dataclasses.dataclass
class Work:
    job: str  # a method of the programs
    data: str
    runs: dict
    lines: list
    protocol: str = "SFTP"
    delay: int = 0  # milliseconds of a round trip


def programs(*names):
    known = {"qrftp": Qrftp(), "sftp": Sftp(), "lftp": Lftp(), "rclone": Rclone(), "curl": Curl()}
    return {name: Run(known[name]) for name in names}


def eight():
    """lftp and rclone with eight connections and a share of the files, sftp with fewer still."""
    share, note = SLOW_MANY / MANY, f" (8 connections, {SLOW_MANY:,} files)"
    return {"sftp": Run(Sftp(), f"{FEW} files", FEW / MANY, f" ({FEW} files)"),
            "lftp": Run(Lftp(jobs=8), f"{SLOW_MANY} files", share, note),
            "rclone": Run(Rclone(jobs=8), f"{SLOW_MANY} files", share, note)}


def works():
    ways = {"down": ("get", "get_tree", 1.5), "up": ("put", "put_tree", 1.3)}
    for way, (job, _, bar) in ways.items():
        title = f"{BIG} MiB {way}"
        aes = {"sftp, AES": Run(Sftp("-c", "aes128-gcm@openssh.com"))}
        yield Work(job, f"{BIG} MiB", programs(*COLUMNS) | aes,
                   [Line(title, goals=[("sftp", bar)]),
                    Line(f"{title}, sftp with AES-GCM", others={"sftp": "sftp, AES"})])
    for delay in (20, 100):  # without curl, which takes minutes here
        for way, (job, *_) in ways.items():
            title = f"{SLOW} MiB {way}, {delay} ms"
            yield Work(job, f"{SLOW} MiB", programs(*COLUMNS[:-1]) | {"stripes": Run(Qrftp(jobs=4))},
                       [Line(title, goals=[("sftp", 1.2), ("lftp", 2), ("rclone", 1)]),
                        Line(f"{title}, `-j 4`", "stripes", [("sftp", 1.9)])], delay=delay)
    for way, (_, job, _) in ways.items():
        yield Work(job, f"{MANY} files", programs(*COLUMNS[:-1]),
                   [Line(f"{MANY:,} files {way}", goals=[(name, 7) for name in COLUMNS[1:-1]])])
    for way, (_, job, _) in ways.items():
        yield Work(job, f"{MANY} files", programs("qrftp") | eight() | {"few": Run(Qrftp(), f"{FEW} files")},
                   [Line(f"{MANY:,} files {way}, 50 ms", goals=[("sftp", 50), ("lftp", 10), ("rclone", 10)]),
                    Line(f"{FEW} files {way}, 50 ms: processor time, s", "few", [("sftp", 1)], "cpu",
                         {"sftp": "sftp"})], delay=50)
    title, folders = f"`sync` of {ENTRIES:,} entries, nothing to do, 50 ms", ENTRIES // 50
    yield Work("sync", f"{ENTRIES} entries", programs("qrftp", "lftp", "rclone"),
               [Line(title, goals=[(None, 1 + folders / 64 * 0.05)]),
                Line(f"the same: round trips in a row, for {folders:,} folders", quantity="trips")], delay=50)
    for delay in (0, 50):
        title = f"{SLOW_MANY:,} files up{', 50 ms' * bool(delay)}"
        yield Work("put_tree", f"{SLOW_MANY} files", programs("qrftp") | {"in place": Run(Qrftp("--in-place"))},
                   [Line(f"{title}, temporary names", goals=[("in place", 1 / 1.2)]),
                    Line(f"{title}, `--in-place`", "in place")], delay=delay)
    for way, (job, *_) in ways.items():
        yield Work(job, f"{HUGE} MiB", programs("qrftp", "sftp", "rclone"),
                   [Line(f"{HUGE} MiB {way}: memory, MiB", goals=[(None, 32)], quantity="memory")])
    yield Work("get_tree", f"{CROWD} files in folders", programs("qrftp"),
               [Line(f"{CROWD:,} files down: memory, MiB", goals=[(None, 100)], quantity="memory")])
    for delay in (0, 50):
        title = f"Connect, list an empty folder, quit{', 50 ms' * bool(delay)}"
        yield Work("list", "0 files", programs(*COLUMNS),
                   [Line(title, goals=[("curl", 1 / 0.9)])] +
                   [Line("the same: round trips in a row", quantity="trips")] * bool(delay), delay=delay)
    for way, (job, tree, _) in ways.items():
        four = {"lftp": Run(Lftp(jobs=4)), "curl": Run(Curl(jobs=4))}
        yield Work(job, f"{BIG} MiB", programs("qrftp", "lftp", "curl"), [Line(f"FTP: {BIG} MiB {way}")], "FTP")
        yield Work(tree, f"{MANY} files", programs("qrftp") | four, [Line(f"FTP: {MANY:,} files {way}, 4 connections")],
                   "FTP")


def same(one, other):
    if one.is_file():
        return other.is_file() and filecmp.cmp(one, other, shallow=False)
    names, others = ({path.name for path in folder.glob("*")} for folder in (one, other))
    return names == others and all(same(one / name, other / name) for name in names)


class Bench:
    def __init__(self, build, servers):
        self.build, self.servers = build, servers

    def once(self, work, run, check):
        """Runs a command; removes what it made, after a comparison where `check` says so."""
        place, delay = self.servers.work, work.delay
        at = Place(self.servers.env, place, work.protocol, FAR if delay else NEAR)
        name = (run.data or work.data).replace(" ", "_")
        command = run.program.command(work.job, at, name)
        self.servers.set_delay(delay)
        # A process starts with the peak of memory of the one that it was forked from: not with this one's.
        stopwatch = ["/usr/bin/time", "--quiet", "-f", "%M", "-o", place / "report"]
        with open(place / "errors", "wb") as errors:
            used, began = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
            # Its own limit of time: Popen.wait(LIMIT) would look only every 50 ms.
            process = subprocess.Popen(["timeout", "--signal=KILL", str(LIMIT), *stopwatch, *command], cwd=place,
                                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors,
                                       start_new_session=True)
            try:
                process.wait()
            except BaseException:  # the whole session of the command goes, on an interrupt too
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
                raise
        seconds, now = time.monotonic() - began, resource.getrusage(resource.RUSAGE_CHILDREN)
        cpu = now.ru_utime + now.ru_stime - used.ru_utime - used.ru_stime
        trips = self.servers.set_delay(0)
        if process.returncode:
            said = (place / "errors").read_text(errors="replace").strip().splitlines()
            is_late = process.returncode == -signal.SIGKILL
            raise Cannot(f"more than {LIMIT} s" if is_late else f"failed: {said[-1] if said else process.returncode}")
        if check and work.job not in ("list", "sync"):
            got = self.servers.home / "got" if work.job.startswith("put") else place / "got"
            if not same(place / name, got):
                raise Cannot("failed: what arrived differs")
        return {"seconds": seconds, "cpu": cpu, "memory": int((place / "report").read_text()) / 1024, "trips": trips}

    def measure(self, work):
        for data in {work.data} | {run.data for run in work.runs.values() if run.data}:
            self.servers.add(data)
        rounds = 1 if work.lines[0].quantity == "memory" else SLOW_ROUNDS if work.delay else ROUNDS
        names = list(work.runs)
        for turn in range(rounds):
            for name in names[turn % len(names):] + names[:turn % len(names)]:
                run = work.runs[name]
                if run.failure or (run.results and run.results[-1]["seconds"] > PATIENCE):
                    continue
                try:
                    run.results.append(self.once(work, run, check=turn == 0))
                except Cannot as why:
                    run.failure = str(why)
                self.servers.clean()


def figure(value, quantity):
    return f"{value:.0f}" if quantity == "trips" or value >= 100 else f"{value:.3g}"


def ratio(work, mine, other, quantity):
    """How many times qrftp's figure another one is; for the whole work where a program did a share of it."""
    mine, other = work.runs[mine], work.runs[other]
    shares = mine.share / other.share if mine.data != other.data else 1
    return shares * other.median(quantity) / mine.median(quantity)


def goals(work, line):
    wanted, measured = [], []
    for other, bar in line.goals:
        if other is None:
            value = work.runs[line.mine].median(line.quantity)
            wanted.append(f"at most {bar:.3g}")
            met, shown = value <= bar, figure(value, line.quantity)
        elif work.runs[other].results:
            value = ratio(work, line.mine, other, line.quantity)
            wanted.append(f"{other} {bar:.3g} ×")
            met, shown = value >= bar, f"{value:.3g}"
        else:
            continue
        measured.append(shown if met else f"**{shown}**")
    return [", ".join(wanted), ", ".join(measured)]


def columns(work, line):
    return {"qrftp": line.mine} | (line.others or {name: name for name in COLUMNS[1:] if name in work.runs})


def table(done):
    yield "| Work | " + " | ".join(COLUMNS) + " | goal | measured |"
    yield "|:--|" + "--:|" * len(COLUMNS) + ":--|:--|"
    for work, line in done:
        chosen = columns(work, line)
        cells = []
        for column in COLUMNS:
            run = work.runs[chosen[column]] if column in chosen else None
            shown = figure(run.median(line.quantity), line.quantity) + run.note if run and run.results else ""
            cells.append("failed" if run and run.failure.startswith("failed") else shown)
        yield f"| {line.title} | " + " | ".join(cells + goals(work, line)) + " |"


def failures(done):
    return [f"- {line.title}: {name}: {run.failure}" for work, line in done if line is work.lines[0]
            for name, run in work.runs.items() if run.failure]


def points(done):
    """What the picture shows: (title, {program: times qrftp's time})."""
    for work, line in done:
        if line.quantity == "seconds" and work.runs[line.mine].results:
            others = {column: ratio(work, line.mine, name, "seconds") for column, name in columns(work, line).items()
                      if column != "qrftp" and work.runs[name].results}
            if others:
                yield line.title.replace("`", ""), others


def versions():
    packages = subprocess.check_output(["dpkg-query", "-W", "-f", "${Package} ${Version}, ", "openssh-server", "lftp",
                                        "rclone", "curl", "proftpd-core"], text=True)
    return f"{datetime.date.today()}, {packages}kernel {platform.release().split('-')[0]}, {os.cpu_count()} processors"


def report(done, minutes):
    rounds = f"medians of {ROUNDS} rounds, {SLOW_ROUNDS} on slow lines; {minutes:.0f} minutes."
    return "\n".join([f"{versions()}; {rounds}", "", *table(done), "", *failures(done)]).rstrip() + "\n"


def store(text, drawing):
    page = ROOT / "docs/performance.md"
    before, rest = page.read_text().split(BEGIN)
    shown = f"{text}\n![Time of the other programs, as a multiple of qrftp's](performance.svg)\n\n"
    page.write_text(f"{before}{BEGIN}\n\n{shown}{END}{rest.split(END)[1]}")
    (ROOT / "docs/performance.svg").write_text(drawing)


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    Qrftp.program = build / "cli/qrftp"
    wanted = [work for work in works() if any(ONLY.search(line.title) for line in work.lines)]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(130))
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    work_folder = pathlib.Path(tempfile.mkdtemp(dir=memory_for(2 * HUGE + 8 * BIG)))
    work_folder.chmod(0o711)
    servers, done, began = None, [], time.monotonic()
    try:
        servers = Servers(build, work_folder, BIG)
        os.environ |= {"LC_ALL": "C", "HOME": str(work_folder), "QRFTP_PASSWORD": servers.env["PASSWORD"]}
        os.environ.pop("SSH_AUTH_SOCK", None)
        bench = Bench(build, servers)
        for work in wanted:
            start = time.monotonic()
            bench.measure(work)
            done += [(work, line) for line in work.lines]
            print(f"{time.monotonic() - start:6.1f} s  {work.lines[0].title}", file=sys.stderr)
    finally:
        if servers:
            servers.close()
        shutil.rmtree(work_folder)
    text = report(done, (time.monotonic() - began) / 60)
    if "--store" in sys.argv[2:]:
        store(text, picture.draw(list(points(done))))
    print(text, end="")
    return any(run.failure for work, _ in done for run in work.runs.values() if isinstance(run.program, Qrftp))


if __name__ == "__main__":
    sys.exit(main())
