#!/usr/bin/env python3
"""bench/compare.py [BUILD_FOLDER]: the command beside others, on real servers on loopback. It builds nothing; see run.

Environment: SIZE    MiB of the large file [1024]; on slow links at most 64
             FILES   how many small ones [2000]
             ROUNDS  [5], and SLOW_ROUNDS [ROUNDS] on slow links, where little varies
             ONLY    a regular expression; rows whose name it is not found in are passed over
             LIMIT   seconds; a program that takes longer for one run is left out of the row [20]
             MINUTES after which no other row is begun
             GO_ON   1: rows that results.json has already are taken from there
             OUT     folder of results.json, table.md and throughput.svg [build/bench]
"""
import dataclasses
import datetime
import filecmp
import json
import os
import pathlib
import platform
import random
import re
import shlex
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BENCH = ROOT / "bench"


def setting(name, value):
    return int(os.environ.get(name, value))


SIZE, MANY, LIMIT = setting("SIZE", 1024), setting("FILES", 2000), setting("LIMIT", 20)
ROUNDS = setting("ROUNDS", 5)
SLOW_ROUNDS = setting("SLOW_ROUNDS", ROUNDS)
SLOW_SIZE = min(SIZE, 64)
ONLY = re.compile(os.environ.get("ONLY", ""))
NEAR, FAR = "127.0.0.1", "127.0.0.2"  # the servers, and the slow link to them


class Cannot(Exception):
    """Why a program has no part in a row."""


# ---------------------------------------------------------------------------------------------------------------------
# What is there: servers, files, a slow link


class Servers:
    """The servers of packaging/servers.sh with the files of the rows in their home, and the same files here."""

    def __init__(self, work):
        self.work = work
        (work / "servers").mkdir()
        self.passive = free_ports(256)
        self.script("start", "proftpd", "sshd")
        lines = (work / "servers" / "env").read_text().splitlines()
        self.env = dict(line.split("=", 1) for line in lines)
        self.home = pathlib.Path(self.env["HOME_DIR"])
        self.here, self.there = work / "got", self.home / "got"  # what a run leaves behind
        self.known_hosts = work / ".ssh" / "known_hosts"
        self.known_hosts.parent.mkdir()
        key = (work / "servers" / "host_key.pub").read_text()
        self.known_hosts.write_text("".join(f"[{host}]:{self.env['SSHD_PORT']} {key}" for host in (NEAR, FAR)))

    def script(self, action, *names):
        environment = os.environ | {"PASSIVE_PORTS": f"{self.passive[0]} {self.passive[-1]}"}
        subprocess.run([ROOT / "packaging/servers.sh", action, self.work / "servers", *names], check=True, env=environment)

    def add(self, name, make):
        """Has the same file or folder made in both places, readable for the servers."""
        for folder in (self.work, self.home):
            make(folder / name)
        subprocess.run(["chmod", "-R", "go+rX", self.work / name, self.home / name], check=True)

    def clean(self):
        for place in (self.here, self.there):
            if place.is_dir():
                shutil.rmtree(place)
            else:
                place.unlink(missing_ok=True)


def free_ports(count):
    """Neighbours that nobody uses, below those that servers.sh and the kernel hand out."""
    while True:
        first = random.randrange(12000, 20000 - count)
        try:
            for port in range(first, first + count):
                for host in (NEAR, FAR):
                    with socket.socket() as probe:
                        probe.bind((host, port))
            return range(first, first + count)
        except OSError:
            pass


class Link:
    """The slow link: delay_relay on the ports of all servers."""

    def __init__(self, build, servers):
        ports = [servers.env["FTP_PORT"], servers.env["SSHD_PORT"], f"{servers.passive[0]}-{servers.passive[-1]}"]
        self.process = subprocess.Popen([build / "bench/delay_relay", FAR, NEAR, *ports], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if self.process.stdout.readline() != "ready\n":
            raise SystemExit("compare.py: no slow link")

    def set(self, milliseconds):
        """Sets the delay of each direction. What has been counted since the last time."""
        self.process.stdin.write(f"{milliseconds}\n")
        self.process.stdin.flush()
        words = self.process.stdout.readline().split()
        return {name: int(number) for name, number in zip(words[::2], words[1::2])}

    def close(self):
        self.process.stdin.close()
        self.process.wait()


@dataclasses.dataclass
class Place:
    """A server as a program reaches it."""

    servers: Servers
    protocol: str
    host: str

    def __post_init__(self):
        env = self.servers.env
        self.sftp, self.tls = self.protocol == "SFTP", self.protocol == "FTPS"
        self.port = env["SSHD_PORT" if self.sftp else "FTP_PORT"]
        self.user = env["SSHD_USER" if self.sftp else "USER"]
        self.server = f"{self.protocol[:4 if self.sftp else 3].lower()}://{self.user}@{self.host}:{self.port}"

    def path(self, name):
        return f"{self.servers.home}/{name}" if self.sftp else name

    def url(self, name):
        return self.server + self.path("/" + name).replace("//", "/")


# ---------------------------------------------------------------------------------------------------------------------
# The programs: a method for each job gives the command line. `names` are of files in a folder.


class Program:
    def __init__(self, build):
        self.build = build

    @staticmethod
    def one_only(connections):
        if connections > 1:
            raise Cannot("one connection only")


class Qrftp(Program):
    def do(self, at, job, *words):
        how = ["--tls", "none"]
        if at.tls:
            how = ["--cacert", at.servers.env["CA_FILE"]]
        if at.sftp:
            how = ["--key", at.servers.env["KEY"], "--known-hosts", at.servers.known_hosts]
        return [self.build / "cli/qrftp", job, "-q", *how, *words]

    def get(self, at, name):
        return self.do(at, "get", at.url(name), at.servers.here)

    def put(self, at, name):
        return self.do(at, "put", name, at.url("got"))

    def ls(self, at, name):
        return self.do(at, "ls", "-l", at.url(name))

    def many_get(self, at, folder, names, connections):
        return self.do(at, "get", "-r", "-j", connections, at.url(folder), at.servers.here)

    def many_put(self, at, folder, names, connections):
        return self.do(at, "put", "-r", "-j", connections, folder, at.url("got"))


class Curl(Program):
    def do(self, at, *words):
        env = at.servers.env
        how = ["-u", f"{at.user}:{env['PASSWORD']}"]
        if at.tls:
            how += ["--ssl-reqd", "--cacert", env["CA_FILE"]]
        if at.sftp:
            how = ["-u", at.user + ":", "--key", env["KEY"], "--pubkey", env["KEY_PUB"]]
        return ["curl", "--disable", "-sS", *how, *words]

    def get(self, at, name):
        return self.do(at, "-o", at.servers.here, at.url(name))

    def put(self, at, name):
        return self.do(at, "-T", name, at.url("got"))

    def ls(self, at, name):
        return self.do(at, at.url(name) + "/")

    def many(self, at, connections, lines):
        (at.servers.work / "curl.list").write_text("".join(lines))
        return self.do(at, "-K", "curl.list", "--create-dirs", "--ftp-create-dirs",
                       *(["-Z", "--parallel-max", connections] if connections > 1 else []))

    def many_get(self, at, folder, names, connections):
        return self.many(at, connections, (f'url = "{at.url(folder)}/{name}"\noutput = "{at.servers.here}/{name}"\n'
                                           for name in names))

    def many_put(self, at, folder, names, connections):
        return self.many(at, connections, (f'url = "{at.url("got")}/{name}"\nupload-file = "{folder}/{name}"\n'
                                           for name in names))


class BareCurl(Program):
    command = ["bench/bare_curl"]

    def do(self, at, *words):
        env = at.servers.env
        values = {"BENCH_USER": at.user, "BENCH_PASSWORD": env["PASSWORD"]}
        if at.tls:
            values["BENCH_CA"] = env["CA_FILE"]
        if at.sftp:
            values |= {"BENCH_KEY": env["KEY"], "BENCH_KNOWN_HOSTS": at.servers.known_hosts}
        return ["env", *(f"{name}={value}" for name, value in values.items()), *self.program(), *words]

    def program(self):
        return [self.build / "bench/bare_curl"]

    def get(self, at, name):
        return self.do(at, "get", at.servers.here, at.url(name))

    def put(self, at, name):
        return self.do(at, "put", name, at.url("got"))

    def ls(self, at, name):
        return self.do(at, "ls", at.url(name) + "/")

    def many_get(self, at, folder, names, connections):
        self.one_only(connections)
        at.servers.here.mkdir()
        return self.do(at, "many-get", at.servers.here, at.url(folder), *names)

    def many_put(self, at, folder, names, connections):
        self.one_only(connections)
        return self.do(at, "many-put", folder, at.url("got"), *names)


class Python(BareCurl):
    def program(self):
        return [python_with_paramiko(), BENCH / "python_client.py"]


class Lftp(Program):
    def do(self, at, *commands):
        env = at.servers.env
        how = ["set cmd:fail-exit yes", "set ftp:prefer-epsv yes"]
        if at.sftp:
            how += [f"set sftp:connect-program {shlex.quote(shlex.join(['ssh', '-a', '-x', *ssh_options(at)]))}"]
        elif at.tls:
            how += ["set ftp:ssl-force yes", "set ftp:ssl-protect-data yes", f"set ssl:ca-file {env['CA_FILE']}"]
        else:
            how += ["set ftp:ssl-allow no"]
        password = "" if at.sftp else env["PASSWORD"]
        return ["lftp", "--norc", "-c", "; ".join(how + [f"open -u {at.user},{password} {at.server}", *commands])]

    def get(self, at, name):
        return self.do(at, f"get {at.path(name)} -o {at.servers.here}")

    def put(self, at, name):
        return self.do(at, f"put {name} -o {at.path('got')}")

    def ls(self, at, name):
        return self.do(at, f"ls {at.path(name)}")

    def many_get(self, at, folder, names, connections):
        return self.do(at, f"mirror -P {connections} {at.path(folder)} {at.servers.here}")

    def many_put(self, at, folder, names, connections):
        return self.do(at, f"mirror -R -P {connections} {folder} {at.path('got')}")


class Sftp(Program):
    def do(self, at, line):
        if not at.sftp:
            raise Cannot("SFTP only")
        (at.servers.work / "sftp.list").write_text(line + "\n")
        return ["sftp", "-q", "-b", "sftp.list", *ssh_options(at), "-P", at.port, f"{at.user}@{at.host}"]

    def get(self, at, name):
        return self.do(at, f"get {at.path(name)} {at.servers.here}")

    def put(self, at, name):
        return self.do(at, f"put {name} {at.path('got')}")

    def ls(self, at, name):
        return self.do(at, f"ls -l {at.path(name)}")

    def many_get(self, at, folder, names, connections):
        self.one_only(connections)
        return self.do(at, f"get -r {at.path(folder)} {at.servers.here}")

    def many_put(self, at, folder, names, connections):
        self.one_only(connections)
        return self.do(at, f"put -r {folder} {at.path('got')}")


def ssh_options(at):
    return ["-F", "none", "-i", at.servers.env["KEY"], "-o", "IdentitiesOnly=yes",
            "-o", f"UserKnownHostsFile={at.servers.known_hosts}"]


def python_with_paramiko():
    for python in ("python3", "/usr/bin/python3"):
        if subprocess.run([python, "-c", "import paramiko"], stderr=subprocess.DEVNULL).returncode == 0:
            return python
    raise SystemExit("compare.py: no paramiko")


# ---------------------------------------------------------------------------------------------------------------------
# The rows


@dataclasses.dataclass
class Row:
    name: str
    protocol: str
    job: str  # a method of Program
    file: str  # what it works on
    connections: int = 0  # for many_get and many_put
    delay: int = 0  # milliseconds each way
    times: int = 1  # runs in one measurement; what is shown is for one
    mib: int = 0
    results: dict = dataclasses.field(default_factory=dict)  # program: list of what was measured, in order
    trips: dict = dataclasses.field(default_factory=dict)
    left_out: dict = dataclasses.field(default_factory=dict)
    took: float = 0


DELAYS = {5: (10, (1, 4)), 20: (10, (1, 4)), 100: (4, (4,))}  # and how many files by how many connections: bearable


def rows():
    ways = {"down": ("get", "many_get"), "up": ("put", "many_put")}
    connect = "connect, list nothing, quit"
    for protocol in ("FTP", "FTPS", "SFTP"):
        for way, (one, _) in ways.items():
            yield Row(f"{protocol} {way}, {SIZE} MiB", protocol, one, "big", mib=SIZE)
    for protocol in ("FTP", "SFTP"):
        for connections in (1, 4, 8):
            for way, (_, many) in ways.items():
                yield Row(f"{protocol} {way}, {MANY} files, {plural(connections)}", protocol, many, f"{MANY}_files",
                          connections)
    for protocol in ("FTP", "SFTP"):
        yield Row(f"{protocol} listing of 100000 names", protocol, "ls", "100000_names")
    for protocol in ("FTP", "FTPS", "SFTP"):
        yield Row(f"{protocol} {connect}", protocol, "ls", "0_names", times=3)
    for delay, (files, numbers) in DELAYS.items():
        for protocol in ("FTP", "FTPS", "SFTP"):
            link = f"{delay} ms: {protocol}"
            for way, (one, _) in ways.items():
                yield Row(f"{link} {way}, {SLOW_SIZE} MiB", protocol, one, "medium", delay=delay, mib=SLOW_SIZE)
            for connections in numbers if protocol != "FTPS" else ():
                for way, (_, many) in ways.items():
                    yield Row(f"{link} {way}, {files} files, {plural(connections)}", protocol, many, f"{files}_files",
                              connections, delay)
            if delay == 20 and protocol != "FTPS":
                yield Row(f"{link} listing of 1000 names", protocol, "ls", "1000_names", delay=delay)
            yield Row(f"{link} {connect}", protocol, "ls", "0_names", delay=delay)


def plural(connections):
    return f"{connections} connection" + "s" * (connections > 1)


def make_file(name):
    """What a row works on, by its name: N_files, N_names, or the only large file of its size."""
    count, _, kind = name.partition("_")
    content = {"big": SIZE, "medium": SLOW_SIZE}.get(name)
    blocks = [os.urandom(1 << 20) for _ in range(content or 0)]
    seed = os.urandom(4096 + MANY)

    def make(path):
        if blocks:
            with open(path, "wb") as file:
                file.writelines(blocks)
            return
        path.mkdir()
        for i in range(int(count)):
            (path / f"name{i:06}").write_bytes(seed[i : i + 4096] if kind == "files" else b"")

    return make


class Bench:
    def __init__(self, build, servers, link, programs):
        self.build, self.servers, self.link, self.programs = build, servers, link, programs

    def once(self, row, name, host, times=1, check=False):
        """Runs the job. What it took; what it leaves behind is removed, after a comparison where `check` says so."""
        work, at = self.servers.work, Place(self.servers, row.protocol, host)
        words, names = [at, row.file], []
        if row.connections:
            names = sorted(os.listdir(work / row.file))
            words += [names, row.connections]
        command = [str(word) for word in getattr(self.programs[name], row.job)(*words)]
        with open(work / "output", "wb") as output, open(work / "errors", "wb") as errors:
            process = subprocess.Popen([self.build / "bench/measure", str(times), work / "report", *command], cwd=work,
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=errors, start_new_session=True)
            try:
                process.wait(LIMIT * times)  # of measure's own group, with all that it has started
            except BaseException as error:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
                self.servers.clean()
                if isinstance(error, subprocess.TimeoutExpired):
                    raise Cannot(f"more than {LIMIT} s") from None
                raise
        if process.returncode:
            errors = re.findall(r"^\D*\w: .*", (work / "errors").read_text(errors="replace"), re.M)  # no progress
            self.servers.clean()
            raise Cannot(f"failed: {errors[-1] if errors else process.returncode}")
        if check:
            self.compare(row, name)
        self.servers.clean()
        seconds, processor, memory = (float(word) for word in (work / "report").read_text().split())
        if os.environ.get("VERBOSE"):
            print(f"{row.name}: {name}@{host}: {seconds:.2f} s", file=sys.stderr)
        return {"seconds": seconds / times, "cpu": processor / times, "memory": memory / 1024}

    def compare(self, row, name):
        work = self.servers.work
        if row.job == "ls":
            found = re.findall(rb"name\d{6}(?=\s)", (work / "output").read_bytes())
            same = sorted(map(bytes.decode, found)) == sorted(os.listdir(work / row.file))
        else:
            result = self.servers.there if row.job.endswith("put") else self.servers.here
            names = os.listdir(work / row.file) if row.connections else [""]
            same = not any(filecmp.cmpfiles(work / row.file, result, names, shallow=False)[1:]) if row.connections \
                else filecmp.cmp(work / row.file, result, shallow=False)
        if not same:
            raise SystemExit(f"compare.py: {row.name}: {name}: what arrived differs")

    def run(self, row):
        began = time.monotonic()
        host = FAR if row.delay else NEAR

        def all_of(names, step):
            for name in list(names):
                try:
                    step(name)
                except Cannot as why:
                    row.left_out[name] = str(why)
                    row.results.pop(name, None)

        def warm_up(name):
            if not row.delay:
                self.once(row, name, host, check=True)
            row.results[name] = []

        def count(name):
            small = dataclasses.replace(row, file="medium") if row.file == "big" else row
            self.link.set(0.2 if row.connections else 2)
            try:
                self.once(small, name, FAR)
                row.trips[name] = self.link.set(0)
            except Cannot:
                pass  # what it costs here and now is measured all the same

        def measure(name):
            self.link.set(row.delay)
            row.results[name].append(self.once(row, name, host, row.times, check=row.delay and turn == 0))
            if row.delay:
                row.trips[name] = self.link.set(0)

        all_of(self.programs, warm_up)
        if not row.delay:
            all_of(row.results, count)
        for turn in range(SLOW_ROUNDS if row.delay else ROUNDS):
            order = list(row.results)
            all_of(order[turn % len(order) :] + order[: turn % len(order)], measure)
        row.took = time.monotonic() - began
        if "qrftp" not in row.results:
            raise SystemExit(f"compare.py: {row.name}: qrftp: {row.left_out['qrftp']}")


# ---------------------------------------------------------------------------------------------------------------------
# What is printed


def median(row, name, key):
    return statistics.median(result[key] for result in row.results[name])


def ratios(row, name):
    return [other["seconds"] / mine["seconds"] for mine, other in zip(row.results["qrftp"], row.results[name])]


def table(done):
    yield "| row | program | seconds | qrftp is faster by | least to most | CPU s | MiB | round trips: all, in a row |"
    yield "|:--|:--|--:|--:|:-:|--:|--:|--:|"
    for row in done:
        first = min(row.results, key=lambda name: median(row, name, "seconds"))
        for name in row.results:
            shown = f"**{name}**" if name == first else name
            ratio, spread = "", ""
            if name != "qrftp":
                each = ratios(row, name)
                ratio, spread = f"{statistics.median(each):.2f}", f"{min(each):.2f} to {max(each):.2f}"
            trips = row.trips.get(name)
            yield " | ".join(("| " + (row.name if name == "qrftp" else ""), shown, f"{median(row, name, 'seconds'):.3f}",
                              ratio, spread, f"{median(row, name, 'cpu'):.3f}", f"{median(row, name, 'memory'):.1f}",
                              f"{trips['turns']}, {trips['chain']} |" if trips else "|"))


def left_out(done):
    reasons = {}
    for row in done:
        for name, why in row.left_out.items():
            reasons.setdefault(f"{name}: {why}", []).append(row.name)
    return [f"- {reason}" if reason.endswith("only") else f"- {reason}: {'; '.join(names)}"
            for reason, names in reasons.items()]


def targets(done):
    """The project's own bars: row, other program, what is compared, at least this much (or at most)."""
    yield "| target | measured | |"
    yield "|:--|--:|:--|"

    def line(text, measured, met):
        return f"| {text} | {measured} | {'met' if met else '**missed**'} |"

    speed = [(r"^FTPS? (down|up), \d+ MiB", "curl", 1), (r"^SFTP (down|up), \d+ MiB", "sftp", 0.9),
             (r"^SFTP (down|up), \d+ MiB", "curl", 0.9), (r"^FTP (down|up), \d+ files", "lftp", 1),
             (r"^20 ms: SFTP down, \d+ MiB", "sftp", 2), (r"^20 ms: SFTP up, \d+ MiB", "sftp", 1)]
    for pattern, name, bar in speed:
        for row in done:
            if re.search(pattern, row.name) and name in row.results:
                ratio = statistics.median(ratios(row, name))
                yield line(f"{row.name}: at least {bar} times as fast as {name}", f"{ratio:.2f}", ratio >= bar)
    for row in done:
        if row.name.startswith("FTP connect") and "curl" in row.trips:
            mine, other = row.trips["qrftp"]["turns"], row.trips["curl"]["turns"]
            yield line(f"{row.name}: at most 2 round trips more than curl", f"{mine} to {other}", mine <= other + 2)
    for row in done:
        if row.file == "big":
            peak = max(result["memory"] for result in row.results["qrftp"])
            yield line(f"{row.name}: less than 40 MiB of memory", f"{peak:.1f} MiB", peak < 40)


COLOURS = {"curl": "#0072b2", "libcurl": "#56b4e9", "lftp": "#009e73", "sftp": "#222222", "python": "#cc79a7",
           "qrftp": "#d55e00"}  # the last one is drawn above the others


def plot(done, file):
    """Throughput against delay, a curve for each program."""
    bulk = [row for row in done if row.mib and row.results]
    panels = [(protocol, way) for protocol in ("FTP", "FTPS", "SFTP") for way in ("down", "up")]
    script = [f"set terminal svg size 900,1080 font 'sans-serif,14' background 'white'\nset output '{file}'",
              "set multiplot layout 3,2 margins 0.09,0.97,0.12,0.955 spacing 0.09,0.085",
              "set logscale y; set format y '%g'; set xrange [-0.3:3.3]; set grid ytics lc rgb '#dddddd'",
              "set xtics (" + ", ".join(f"'{name}' {i}" for i, name in enumerate(["none", *map(str, DELAYS)])) + ")",
              "set border 3; set tics nomirror; unset key"]
    place = {0: 0} | {delay: i for i, delay in enumerate(DELAYS, 1)}
    drawn = []
    for number, (protocol, way) in enumerate(panels):
        curves = []
        for name, colour in COLOURS.items():
            points = [(place[row.delay], row.mib / median(row, name, "seconds")) for row in bulk
                      if row.protocol == protocol and f"{protocol} {way}" in row.name and name in row.results]
            if points:
                drawn += [name] * (name not in drawn)
                script += [f"$d{number}{name} << END", *(f"{x} {y:.3f}" for x, y in sorted(points)), "END"]
                curves.append(f"$d{number}{name} with linespoints lw 2 pt 7 ps 0.6 lc rgb '{colour}'")
        if number == len(panels) - 1:  # the key, once for all panels
            script += [f"set label {i} '● {one}' at screen {0.14 * i - 0.05:.2f},0.04 textcolor rgb '{COLOURS[one]}'"
                       for i, one in enumerate(drawn, 1)]
            script.append("set label 9 'Whole commands, login included, median; "
                          f"{SIZE} MiB without delay, {SLOW_SIZE} MiB with' at screen 0.09,0.018 font ',11'")
        script.append(f"set title '{protocol} {way}' offset 0,-0.5; set ylabel '{'' if number % 2 else 'MiB/s'}' offset 1,0")
        script.append(f"set xlabel '{'delay each way, ms' if number > 3 else ''}'")
        script.append("set yrange [*:*]\nplot " + ", ".join(curves) if curves else "set multiplot next")
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True)


def versions():
    def first(pattern, *command):
        result = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return re.search(pattern, result.stdout)[1]

    python = first("(.*)", python_with_paramiko(), "-c", "import paramiko as p, platform; "
                   "print('Python', platform.python_version() + ', paramiko', p.__version__)")
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    return [datetime.datetime.now(datetime.timezone.utc).strftime("%F"), "curl " + first(r"curl (\S+)", "curl", "-V"),
            first("([^,]*)", "ssh", "-V"), "lftp " + first(r"Version (\S+)", "lftp", "--version"), python,
            "ProFTPD " + first(r"Version (\S+)", "proftpd", "-v"), "kernel " + platform.release().split("-")[0],
            f"{os.cpu_count()} cores"]


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release").resolve()
    out = pathlib.Path(os.environ.get("OUT", ROOT / "build/bench"))
    out.mkdir(parents=True, exist_ok=True)
    wanted = [row for row in rows() if ONLY.search(row.name)]
    results = out / "results.json"
    go_on = setting("GO_ON", 0) and results.exists()
    earlier = {row["name"]: Row(**row) for row in (json.loads(results.read_text()) if go_on else [])}
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(130))
    # In memory, where there is room for the large file three times: a disk would be what is measured.
    shm = pathlib.Path("/dev/shm")
    in_memory = shm.is_dir() and shutil.disk_usage(shm).free > (4 * SIZE << 20)
    work = pathlib.Path(tempfile.mkdtemp(dir=shm if in_memory else None))
    work.chmod(0o711)
    servers = link = None
    done, began = [], time.monotonic()
    try:
        servers = Servers(work)
        os.environ |= {"LC_ALL": "C", "HOME": str(work), "QRFTP_PASSWORD": servers.env["PASSWORD"]}
        for name in sorted({row.file for row in wanted} | {"medium"}):
            servers.add(name, make_file(name))
        link = Link(build, servers)
        programs = {"qrftp": Qrftp, "curl": Curl, "libcurl": BareCurl, "lftp": Lftp, "sftp": Sftp, "python": Python}
        bench = Bench(build, servers, link, {name: kind(build) for name, kind in programs.items()})
        for row in wanted:
            if row.name in earlier:
                done.append(earlier[row.name])
            elif time.monotonic() - began < 60 * setting("MINUTES", 1 << 20):
                bench.run(row)
                done.append(row)
                print(f"{row.took:6.1f} s  {row.name}", file=sys.stderr)
                earlier[row.name] = row
                results.write_text(json.dumps([dataclasses.asdict(each) for each in earlier.values()], indent=1) + "\n")
    finally:
        if link:
            link.close()
        (work / "servers").is_dir() and subprocess.run([ROOT / "packaging/servers.sh", "stop", work / "servers"])
        shutil.rmtree(work)
    text = [", ".join([*versions(), "files in memory" if in_memory else "files on disk"]), "",
            f"{ROUNDS} rounds, {SLOW_ROUNDS} on slow links; the fastest program of a row is in bold", "", *table(done), ""]
    if reasons := left_out(done):
        text += ["Left out:", "", *reasons, ""]
    if missing := [row.name for row in wanted if row.name not in {each.name for each in done}]:
        text += [f"Not run: {'; '.join(missing)}", ""]
    text += list(targets(done))
    print("\n".join(text))
    (out / "table.md").write_text("\n".join(text) + "\n")
    if any(row.mib for row in done):
        plot(done, out / "throughput.svg")


if __name__ == "__main__":
    main()
