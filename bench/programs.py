"""The programs that bench/table.py measures: for each job, the command line that does it."""
import dataclasses
import pathlib
import shlex


@dataclasses.dataclass
class Place:
    """A server as the programs reach it, and where the files of a job are."""

    env: dict  # what packaging/servers.sh wrote
    work: pathlib.Path  # the local files; the current folder of the programs
    protocol: str
    host: str

    def __post_init__(self):
        self.sftp = self.protocol == "SFTP"
        self.port = self.env["SSHD_PORT" if self.sftp else "FTP_PORT"]
        self.user = self.env["SSHD_USER" if self.sftp else "USER"]
        self.known_hosts = self.work / "known_hosts"
        self.key = self.env["KEY"]
        self.server = f"{self.protocol.lower()}://{self.host}:{self.port}"
        self.ssh_options = ["-F", "none", "-i", self.key, "-o", "IdentitiesOnly=yes", "-o",
                            f"UserKnownHostsFile={self.known_hosts}"]  # fmt: skip

    def path(self, name):
        return f"{self.env['HOME_DIR']}/{name}" if self.sftp else name

    def url(self, name):
        return f"{self.server}/{self.path(name).lstrip('/')}".replace("://", f"://{self.user}@")


class Program:
    """Fetched files and folders get the local name "got", sent ones the remote name "got"."""

    jobs_as = {}  # by job: the arguments, or the command that the program reads

    def __init__(self, *options, jobs=0):
        self.options = list(options)
        self.jobs = jobs  # connections; 0 for the program's own choice

    def command(self, job, at, name):
        """`name` is what the job is about on both sides."""
        words = {"name": name, "path": at.path(name), "url": at.url(name), "got": at.path("got"),
                 "got_url": at.url("got"), "jobs": self.jobs or 1}  # fmt: skip
        return [str(word) for word in self.line(at, self.jobs_as[job].format(**words))]


class Qrftp(Program):
    program = "qrftp"
    jobs_as = {"get": "get {url} got", "put": "put {name} {got_url}", "get_tree": "get -r {url} got",
               "put_tree": "put -r {name} {got_url}", "sync": "sync {name} {url}", "list": "ls -l {url}"}  # fmt: skip

    def line(self, at, arguments):
        login = ["--key", at.key, "--known-hosts", at.known_hosts] if at.sftp else ["--tls", "none"]
        jobs = ["-j", self.jobs] if self.jobs else []
        return [self.program, *arguments.split(), "-q", *login, *self.options, *jobs]


class Sftp(Program):
    jobs_as = {"get": "get {path} got", "put": "put {name} {got}", "get_tree": "get -r {path} got",
               "put_tree": "put -r {name} {got}", "list": "ls -l {path}"}  # fmt: skip

    def line(self, at, command):
        (at.work / "sftp.batch").write_text(command + "\n")
        options = [*at.ssh_options, *self.options, "-P", at.port]
        return ["sftp", "-q", "-b", "sftp.batch", *options, f"{at.user}@{at.host}"]


class Lftp(Program):
    jobs_as = {"get": "get {path} -o got", "put": "put {name} -o {got}", "get_tree": "mirror -P {jobs} {path} got",
               "put_tree": "mirror -R -P {jobs} {name} {got}", "sync": "mirror -R -P {jobs} {name} {path}",
               "list": "ls {path}"}  # fmt: skip

    def line(self, at, command):
        ssh = shlex.quote(shlex.join(["ssh", "-a", "-x", *map(str, at.ssh_options)]))
        setup = f"set cmd:fail-exit yes; set ftp:ssl-allow no; set sftp:connect-program {ssh}"
        password = "" if at.sftp else at.env["PASSWORD"]
        return ["lftp", "--norc", "-c", f"{setup}; open -u {at.user},{password} {at.server}; {command}"]


class Rclone(Program):
    jobs_as = {"get": "copyto :sftp:{path} got", "put": "copyto {name} :sftp:{got}", "sync": "sync {name} :sftp:{path}",
               "get_tree": "copyto :sftp:{path} got", "put_tree": "copyto {name} :sftp:{got}",
               "list": "lsl :sftp:{path}"}  # fmt: skip

    def line(self, at, arguments):
        jobs = ["--transfers", self.jobs, "--checkers", self.jobs] if self.jobs else []
        return ["rclone", "--config", "/dev/null", *arguments.split(), "--sftp-host", at.host, "--sftp-port", at.port,
                "--sftp-user", at.user, "--sftp-key-file", at.key, "--sftp-known-hosts-file", at.known_hosts,
                "--sftp-disable-hashcheck", *jobs]  # a check of hashes would need a shell on the server


class Curl(Program):
    jobs_as = {"get": "-o got {url}", "put": "-T {name} {got_url}", "list": "{url}/"}

    def line(self, at, arguments):
        login = f"{at.user}:{'' if at.sftp else at.env['PASSWORD']}"
        keys = ["--key", at.key, "--pubkey", at.env["KEY_PUB"]] if at.sftp else []
        return ["curl", "--disable", "-sS", "-u", login, *keys, *arguments.split()]

    def command(self, job, at, name):
        """A folder is one run with a list of URLs."""
        entry = {"get_tree": 'url = "{url}/{file}"\noutput = "got/{file}"\n',
                 "put_tree": 'url = "{got_url}/{file}"\nupload-file = "{name}/{file}"\n'}.get(job)  # fmt: skip
        if not entry:
            return super().command(job, at, name)
        files = [entry.format(url=at.url(name), got_url=at.url("got"), name=name, file=path.name)
                 for path in sorted((at.work / name).iterdir())]  # fmt: skip
        (at.work / "curl.list").write_text("".join(files))
        options = f"-K curl.list --create-dirs --ftp-create-dirs -Z --parallel-max {self.jobs or 1}"
        return [str(word) for word in self.line(at, options)]
