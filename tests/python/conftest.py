import os
import pathlib

import pytest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
SAMPLES = PROJECT / "samples"


@pytest.fixture(scope="session")
def kiv_command():
    """The kiv program of the same build, whose dumps the module must agree with."""
    return os.environ.get("KIV_COMMAND", str(PROJECT / "build" / "bin" / "kiv"))


@pytest.fixture(scope="session")
def image_path():
    return str(SAMPLES / "topography_128.flt")


@pytest.fixture(scope="session")
def force_path():
    return str(SAMPLES / "force_2x300.flt")
