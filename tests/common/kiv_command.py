"""The built kiv (KIV_BINARY) and the sample files, for the pytest folders that run kiv."""
import os
import subprocess
from pathlib import Path

import pytest

SAMPLES = Path(os.environ.get("KIV_SAMPLES_DIR", Path(__file__).parents[2] / "samples"))
IMAGE_SAMPLE = SAMPLES / "topography_128.flt"
FORCE_SAMPLE = SAMPLES / "force_2x300.flt"


def kiv_binary():
    binary = os.environ.get("KIV_BINARY")
    if not binary or not os.access(binary, os.X_OK):
        pytest.fail("KIV_BINARY must name the built kiv")
    return binary


def run_kiv(*arguments, timeout=120, **options):
    return subprocess.run([kiv_binary(), *map(str, arguments)], capture_output=True, text=True,
                          timeout=timeout, **options)
