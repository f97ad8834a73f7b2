"""Dask's workers, processes of their own, read and write through the file system; one of them dies."""

import os
import signal

import pytest

dataframe = pytest.importorskip("dask.dataframe")
distributed = pytest.importorskip("distributed")

FILES, ROWS = 50, 200


def kill_once(frame, flag):
    """Ends the worker process that comes first, in the middle of its work."""
    try:
        os.close(os.open(flag, os.O_CREAT | os.O_EXCL))
    except FileExistsError:
        return frame
    os.kill(os.getpid(), signal.SIGKILL)


@pytest.mark.parametrize("dies", [False, True], ids=["two workers", "one is killed"])
def test_sums_csv_files_of_the_server(servers, logins, tmp_path, dies):
    login = logins["sftp"]
    with login.connect() as session:
        folder = f"{session.working_folder}/dask-{dies}"
        session.make_folder(folder)
        for number in range(FILES):
            lines = "".join(f"{row},{row * number}\n" for row in range(ROWS))
            session.send_bytes(f"a,b\n{lines}".encode(), f"{folder}/{number:02}.csv")
    host = f"qsftp://{login.user}@{login.host}:{login.port}"
    options = {**login.options, "max_connections": 2}
    rows = FILES * ROWS
    expected = {"a": FILES * sum(range(ROWS)), "b": sum(range(ROWS)) * sum(range(FILES))}
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                                  local_directory=tmp_path) as cluster, distributed.Client(cluster):  # fmt: skip
        frame = dataframe.read_csv(f"{host}{folder}/*.csv", storage_options=options)
        if dies:
            frame = frame.map_partitions(kill_once, str(tmp_path / "killed"), meta=frame._meta)
        frame.to_csv(f"{host}{folder}/out-*.csv", index=False, storage_options=options)
        back = dataframe.read_csv(f"{host}{folder}/out-*.csv", storage_options=options)
        assert back.sum().compute().to_dict() == expected and len(back) == rows
    assert (tmp_path / "killed").exists() == dies
