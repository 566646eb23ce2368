"""examples/batch_to_npy.py on a 2-worker LocalCluster, every output checked against its source."""
import json
import os
import pathlib
import shutil
import subprocess
import sys

import numpy

import kiv
from test_editing_export import plain
from test_reading import samples_by_description

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "batch_to_npy.py"
IMAGES = 300


def make_images(folder, template, count):
    """Copies of the template whose samples and titles differ, so that a mixed-up output shows."""
    head = open(template, "rb").read()
    offset = len(head) - 128 * 128 * 4
    assert head.count(b"Synthetic topography") == 1
    generator = numpy.random.default_rng(7)
    for index in range(count):
        target = folder / f"batch{index // 100}" / f"scan_{index:04d}.flt"
        target.parent.mkdir(exist_ok=True)
        samples = generator.standard_normal(128 * 128).astype("<f4")
        # A title of the same length keeps the samples at the template's offset.
        title = f"Synthetic scan #{index:04d}".encode()
        header = head[:offset].replace(b"Synthetic topography", title)
        target.write_bytes(header + samples.tobytes())


def test_batch_converts_every_file_and_reports_failures(tmp_path, image_path, force_path):
    source = tmp_path / "in"
    source.mkdir()
    make_images(source, image_path, IMAGES)
    shutil.copyfile(force_path, source / "force.flt")
    (source / "broken.flt").write_bytes(b"broken\n")
    output = tmp_path / "out"

    result = subprocess.run([sys.executable, str(EXAMPLE), str(source), str(output),
                             "--workers", "2"], capture_output=True, text=True, timeout=300,
                            env=os.environ)

    assert result.returncode == 1, result.stderr
    assert f"{IMAGES + 1} files done, 1 failed" in result.stdout
    assert "files/s" in result.stdout
    failures = [line for line in result.stderr.splitlines() if "broken.flt" in line]
    assert len(failures) == 1 and "no registered file type" in failures[0]

    for scan in source.glob("batch*/*.flt"):
        stem = output / scan.relative_to(source).with_suffix("")
        numpy.testing.assert_array_equal(numpy.load(f"{stem}.npy"), samples_by_description(scan))
        header = json.loads(pathlib.Path(f"{stem}.json").read_text(encoding="utf-8"))
        assert header["[Data Parameters]"]["ScanRangeX"] == {"value": 10.0, "unit": "µm"}
        assert header == plain(kiv.open(str(scan)).header)
    curves = numpy.load(output / "force.npy")
    assert curves.shape == (300, 8) and curves.dtype == numpy.float32
    assert json.loads((output / "force.json").read_text(encoding="utf-8"))[
        "[Series layout]"]["Series Number"] == 2
