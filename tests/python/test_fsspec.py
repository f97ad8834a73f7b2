"""The file system for fsspec, and the programs that read through it."""

import concurrent.futures
import gc
import os
import pickle

import fsspec
import pytest
from fsspec.callbacks import Callback

import qrftp.fsspec

CONTENT = os.urandom(1 << 20)


@pytest.fixture
def system(place):
    system = fsspec.filesystem(place.login.protocol, skip_instance_cache=True, **place.login.storage_options)
    assert isinstance(system, qrftp.fsspec.QrftpFileSystem)
    yield system
    system.close()


def url_of(place, name):
    login = place.login
    return f"{login.protocol}://{login.user}@{login.host}:{login.port}{place.remote}/{name}"


def test_entry_points_and_urls(place, system):
    assert fsspec.get_filesystem_class("qftp")._defaults == {"tls": "opportunistic"}
    assert issubclass(fsspec.get_filesystem_class("qsftp"), qrftp.fsspec.QrftpFileSystem)
    with fsspec.open(url_of(place, "file"), "w", **place.login.options) as file:
        file.write("text")
    found, paths = fsspec.core.url_to_fs(url_of(place, "file"), **place.login.options)
    assert found.cat(paths) == b"text" and found is fsspec.core.url_to_fs(url_of(place, "x"), **place.login.options)[0]
    assert system.unstrip_protocol(paths) == url_of(place, "file").replace(f"{place.login.user}@", "")
    ipv6 = fsspec.core.url_to_fs("qsftp://me@[0:0:0:0:0:0:0:1]:1/x", ssh_config="", agent=False)[0]
    assert ipv6.unstrip_protocol("/x") == "qsftp://[0:0:0:0:0:0:0:1]:1/x"
    with pytest.raises(qrftp.NoConnection):
        ipv6.ls("/")
    own = fsspec.get_filesystem_class("sftp")
    qrftp.fsspec.register(replace=True)
    assert fsspec.get_filesystem_class("sftp") is qrftp.fsspec.QrftpFileSystem
    fsspec.register_implementation("sftp", own, clobber=True)


def test_looks_and_changes(place, system):
    root = place.remote
    system.makedirs(f"{root}/a/b")
    system.pipe({f"{root}/a/one": b"1", f"{root}/a/b/two": b"22"})
    os.symlink("one", place.disk / "a/link")
    info = system.info(f"{root}/a/one")
    assert (info["name"], info["size"], info["type"]) == (f"{root}/a/one", 1, "file")
    assert system.modified(f"{root}/a/one") == info["mtime"] and info["mtime"].tzinfo
    assert system.isdir(f"{root}/a/b") and system.isdir("/") and not system.exists(f"{root}/nothing")
    folder, link, one = system.ls(f"{root}/a")
    assert folder["type"] == "directory" and one == info and system.ls(f"{root}/a/one") == [info]
    assert link["islink"] and (link["type"], link["size"]) == ("file", 1)
    assert system.find(root) == [f"{root}/a/{name}" for name in ("b/two", "link", "one")]
    assert system.glob(f"{root}/*/o*") == [f"{root}/a/one"]
    for act, error in ((lambda: system.ls(f"{root}/nothing"), FileNotFoundError),
                       (lambda: system.mkdir(f"{root}/a"), FileExistsError),
                       (lambda: system.makedirs(f"{root}/a"), FileExistsError),
                       (lambda: system.rmdir(f"{root}/a"), OSError),
                       (lambda: system.rm(f"{root}/a"), OSError),
                       (lambda: system.created(f"{root}/a/one"), NotImplementedError)):  # fmt: skip
        with pytest.raises(error):
            act()
    system.rm(f"{root}/a/link")
    system.mv(f"{root}/a/one", f"{root}/moved")
    system.cp_file(f"{root}/moved", f"{root}/new/copy")
    system.touch(f"{root}/moved")
    assert system.cat(f"{root}/new/copy") == b"1" and system.size(f"{root}/moved") == 0
    with pytest.raises(qrftp.NotEmpty):
        system.mv(f"{root}/a", f"{root}/new/", recursive=True, maxdepth=1)
    assert (place.disk / "a/b/two").exists()
    system.rm([f"{root}/a", f"{root}/new"], recursive=True)
    assert system.ls(root, detail=False) == [f"{root}/moved"]


def test_enters_no_links(place, system, tmp_path):
    root, disk, out = place.remote, place.disk, tmp_path / "out"
    for name in ("a/deep/x", "a/y", "b/precious"):
        system.pipe(f"{root}/{name}", name.encode())
    (disk / "a/link").symlink_to("../b")
    (disk / "a/self").symlink_to(".")
    assert system.find(f"{root}/a") == [f"{root}/a/{name}" for name in ("deep/x", "link", "self", "y")]
    assert system.glob(f"{root}/a/l*/*") == [f"{root}/a/link/precious"]

    (tmp_path / "taken/a").mkdir(parents=True)
    out.mkdir()
    (out / "victim").write_text("victim")
    (tmp_path / "taken/a/y").symlink_to(out / "victim")
    (tmp_path / "taken/a/deep").symlink_to(out)
    with pytest.raises(qrftp.UnsafeName):
        system.get(f"{root}/a/", f"{tmp_path}/taken/a/", recursive=True)
    (tmp_path / "taken/a/deep").unlink()
    system.get(f"{root}/a/", f"{tmp_path}/taken/a/", recursive=True)
    assert sorted(each.name for each in (tmp_path / "taken/a").iterdir()) == ["deep", "y"]
    assert [(each.name, each.read_text()) for each in out.iterdir()] == [("victim", "victim")]
    assert (tmp_path / "taken/a/y").read_bytes() == b"a/y"

    system.cp(f"{root}/a", f"{root}/copy", recursive=True)
    assert (disk / "copy/deep/x").exists()
    assert os.readlink(disk / "copy/link").endswith("b")
    with pytest.raises(OSError):
        system.rm(f"{root}/a", recursive=True, maxdepth=1)
    system.rm(f"{root}/a", recursive=True, maxdepth=2)
    assert not (disk / "a").exists() and (disk / "b/precious").exists()


def test_reads_parts(place, system):
    path = f"{place.remote}/file"
    system.pipe(path, CONTENT)
    parts = [(None, None), (10, 20), (-10, None), (-20, -10), (5, None), (1 << 19, 1 << 21)]
    expected = [CONTENT[start:end] for start, end in parts]
    assert [system.cat_file(path, start, end) for start, end in parts] == expected
    assert system.cat_ranges([path] * len(parts), *map(list, zip(*parts))) == expected
    one, missing = system.cat_ranges([path, f"{place.remote}/nothing"], [0, 0], [5, 5])
    assert one == CONTENT[:5] and isinstance(missing, FileNotFoundError)
    with system.open(path, block_size=4096) as file:
        assert file.seek(1000) == 1000 and file.read(5000) == CONTENT[1000:6000]
    with system.open(path, "br") as file:
        assert file.read(10) == CONTENT[:10]
    assert system.head(path, 10) == CONTENT[:10] and system.tail(path, 10) == CONTENT[-10:]


def test_a_reader_that_is_left_open(place, system):
    path = f"{place.remote}/file"
    system.pipe(path, CONTENT)
    file = system.open(path)
    file.cycle = file
    with system._session() as session:  # to which the file belongs
        del file
        gc.collect()
        assert session.exists(path)
    file = system.open(path)
    system.close()
    with pytest.raises(qrftp.Closed):
        file.read()
    file.close()
    assert system.cat(path) == CONTENT


def test_copies_each_pair_and_replaces_nothing_that_is_to_be_created(place, system, tmp_path):
    path, local = f"{place.remote}/file", str(tmp_path / "one")
    system.pipe({path: b"old", f"{place.remote}/before": b"before"})
    system.get([path, path, f"{place.remote}/before"], [str(tmp_path / name) for name in ("one", "two", "three")])
    assert [(tmp_path / name).read_bytes() for name in ("one", "two", "three")] == [b"old", b"old", b"before"]
    (tmp_path / "one").write_text("new")

    def create_all():
        for create in (lambda: system.put_file(local, path, mode="create"),
                       lambda: system.put([local], [path], mode="create"),
                       lambda: system.pipe_file(path, b"new", mode="create")):  # fmt: skip
            with pytest.raises(FileExistsError):
                create()

    create_all()
    with system.transaction:
        create_all()
        system.put_file(local, f"{place.remote}/new", mode="create")
    assert system.cat(path) == b"old" and system.cat(f"{place.remote}/new") == b"new"


def test_tells_how_far_it_is_and_leaves_nothing_behind_a_failure(place, system, tmp_path):
    seen = []

    class Counting(Callback):
        def call(self, *args, **kwargs):
            seen.append((self.value, self.size))

    (tmp_path / "tree").mkdir()
    for number in range(20):
        (tmp_path / f"tree/{number}").write_text(str(number))
    system.put(str(tmp_path / "tree"), f"{place.remote}/tree", recursive=True, callback=Counting())
    assert seen[-1][0] == seen[-1][1] >= 20 and (place.disk / "tree/7").read_text() == "7"
    with pytest.raises(FileNotFoundError):
        system.get_file(f"{place.remote}/nothing", str(tmp_path / "nothing"))
    assert not (tmp_path / "nothing").exists()


def test_transactions(place, system, tmp_path):
    (tmp_path / "local").write_bytes(b"local")

    def write():
        with system.open(f"{place.remote}/one", "wb") as file:
            file.write(b"1")
        system.put_file(str(tmp_path / "local"), f"{place.remote}/two")
        with pytest.raises(KeyError), system.open(f"{place.remote}/discarded", "wb"):
            raise KeyError
        assert list(place.disk.iterdir()) == []

    with pytest.raises(KeyError), system.transaction:
        write()
        raise KeyError
    assert list(place.disk.iterdir()) == []
    with system.transaction:
        write()
    assert sorted(each.name for each in place.disk.iterdir()) == ["one", "two"]
    assert system.cat(f"{place.remote}/two") == b"local"
    with system.transaction, system.open(f"{place.remote}/two", "r+b") as file:
        file.write(b"LO")
    assert system.cat(f"{place.remote}/two") == b"LOcal"


def test_many_threads_share_a_few_connections(place):
    options = {**place.login.storage_options, "max_connections": 2}
    system = pickle.loads(pickle.dumps(fsspec.filesystem(place.login.protocol, **options)))
    opened = []
    connect = system._pool._connect
    system._pool._connect = lambda: opened.append(1) or connect()
    system.pipe(f"{place.remote}/file", CONTENT)
    files = [system.open(f"{place.remote}/file") for _ in range(6)]

    def read(number):
        files[number].seek(number)
        return files[number].read(100000) == CONTENT[number : number + 100000] and system.exists(place.remote)

    with concurrent.futures.ThreadPoolExecutor(6) as threads:
        assert all(threads.map(read, range(6)))
    assert 1 <= len(opened) <= 2
    for each in files:
        each.close()
    system.close()
