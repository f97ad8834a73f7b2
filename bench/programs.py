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

    def path(self, name):
        return f"{self.env['HOME_DIR']}/{name}" if self.sftp else name

    def url(self, name):
        return f"{self.server}/{self.path(name).lstrip('/')}".replace("://", f"://{self.user}@")


class Program:
    """Fetched files and folders get the local name "got", sent ones the remote name "got"."""

    def __init__(self, *options, jobs=0):
        self.options = list(options)
        self.jobs = jobs  # connections; 0 for the program's own choice


class Qrftp(Program):
    command = "qrftp"

    def line(self, at, *arguments):
        login = ["--key", at.key, "--known-hosts", at.known_hosts] if at.sftp else ["--tls", "none"]
        return [self.command, *arguments, "-q", *login, *self.options]

    def copy(self, at, *arguments):
        return self.line(at, *arguments, *(["-j", self.jobs] if self.jobs else []))

    def get(self, at, name):
        return self.copy(at, "get", at.url(name), "got")

    def put(self, at, name):
        return self.copy(at, "put", name, at.url("got"))

    def get_tree(self, at, name):
        return self.copy(at, "get", "-r", at.url(name), "got")

    def put_tree(self, at, name):
        return self.copy(at, "put", "-r", name, at.url("got"))

    def sync(self, at, name):
        return self.copy(at, "sync", name, at.url(name))

    def list(self, at, name):
        return self.line(at, "ls", "-l", at.url(name))


class Sftp(Program):
    def line(self, at, command):
        (at.work / "sftp.batch").write_text(command + "\n")
        options = [*ssh_options(at), *self.options, "-P", at.port]
        return ["sftp", "-q", "-b", "sftp.batch", *options, f"{at.user}@{at.host}"]

    def get(self, at, name):
        return self.line(at, f"get {at.path(name)} got")

    def put(self, at, name):
        return self.line(at, f"put {name} {at.path('got')}")

    def get_tree(self, at, name):
        return self.line(at, f"get -r {at.path(name)} got")

    def put_tree(self, at, name):
        return self.line(at, f"put -r {name} {at.path('got')}")

    def list(self, at, name):
        return self.line(at, f"ls -l {at.path(name)}")


class Lftp(Program):
    def line(self, at, command):
        ssh = shlex.quote(shlex.join(["ssh", "-a", "-x", *map(str, ssh_options(at))]))
        setup = f"set cmd:fail-exit yes; set ftp:ssl-allow no; set sftp:connect-program {ssh}"
        password = "" if at.sftp else at.env["PASSWORD"]
        return ["lftp", "--norc", "-c", f"{setup}; open -u {at.user},{password} {at.server}; {command}"]

    def get(self, at, name):
        return self.line(at, f"get {at.path(name)} -o got")

    def put(self, at, name):
        return self.line(at, f"put {name} -o {at.path('got')}")

    def get_tree(self, at, name):
        return self.line(at, f"mirror -P {self.jobs or 1} {at.path(name)} got")

    def put_tree(self, at, name):
        return self.line(at, f"mirror -R -P {self.jobs or 1} {name} {at.path('got')}")

    def sync(self, at, name):
        return self.line(at, f"mirror -R -P {self.jobs or 1} {name} {at.path(name)}")

    def list(self, at, name):
        return self.line(at, f"ls {at.path(name)}")


class Rclone(Program):
    def line(self, at, *arguments):
        jobs = ["--transfers", self.jobs, "--checkers", self.jobs] if self.jobs else []
        return ["rclone", "--config", "/dev/null", *arguments, "--sftp-host", at.host, "--sftp-port", at.port,
                "--sftp-user", at.user, "--sftp-key-file", at.key, "--sftp-known-hosts-file", at.known_hosts,
                "--sftp-disable-hashcheck", *jobs]  # a check of hashes would need a shell on the server

    def get(self, at, name):
        return self.line(at, "copyto", f":sftp:{at.path(name)}", "got")

    def put(self, at, name):
        return self.line(at, "copyto", name, f":sftp:{at.path('got')}")

    get_tree = get
    put_tree = put

    def sync(self, at, name):
        return self.line(at, "sync", name, f":sftp:{at.path(name)}")

    def list(self, at, name):
        return self.line(at, "lsl", f":sftp:{at.path(name)}")


class Curl(Program):
    def line(self, at, *arguments):
        login = ["-u", f"{at.user}:", "--key", at.key, "--pubkey", at.env["KEY_PUB"]]
        if not at.sftp:
            login = ["-u", f"{at.user}:{at.env['PASSWORD']}"]
        return ["curl", "--disable", "-sS", *login, *arguments]

    def get(self, at, name):
        return self.line(at, "-o", "got", at.url(name))

    def put(self, at, name):
        return self.line(at, "-T", name, at.url("got"))

    def files(self, at, name, entry):
        """One run with a list of URLs, which is what curl has for folders."""
        names = sorted(path.name for path in (at.work / name).iterdir())
        (at.work / "curl.list").write_text("".join(entry(each) for each in names))
        parallel = ["-Z", "--parallel-max", self.jobs] if self.jobs else []
        return self.line(at, "-K", "curl.list", "--create-dirs", "--ftp-create-dirs", *parallel)

    def get_tree(self, at, name):
        return self.files(at, name, lambda each: f'url = "{at.url(name)}/{each}"\noutput = "got/{each}"\n')

    def put_tree(self, at, name):
        return self.files(at, name, lambda each: f'url = "{at.url("got")}/{each}"\nupload-file = "{name}/{each}"\n')

    def list(self, at, name):
        return self.line(at, at.url(name) + "/")


def ssh_options(at):
    return ["-F", "none", "-i", at.key, "-o", "IdentitiesOnly=yes", "-o", f"UserKnownHostsFile={at.known_hosts}"]
