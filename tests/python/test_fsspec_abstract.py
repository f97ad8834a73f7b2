"""fsspec's own tests of what every file system does; versions before 2023.6 have none."""

import posixpath

import fsspec
import pytest

abstract = pytest.importorskip("fsspec.tests.abstract")


class Fixtures(abstract.AbstractFixtures):
    @pytest.fixture
    def fs(self, place):
        system = fsspec.filesystem(place.login.protocol, **place.login.storage_options)
        yield system
        system.close()

    @pytest.fixture
    def fs_path(self, place):
        return place.remote

    @pytest.fixture
    def fs_join(self):
        return posixpath.join


class TestCopy(abstract.AbstractCopyTests, Fixtures):
    pass


class TestGet(abstract.AbstractGetTests, Fixtures):
    pass


class TestPut(abstract.AbstractPutTests, Fixtures):
    pass


class TestPipe(abstract.AbstractPipeTests, Fixtures):
    pass


class TestOpen(abstract.AbstractOpenTests, Fixtures):
    pass
