"""examples/batch_stats.py on a 2-worker LocalCluster, every row checked against numpy figures of
samples read straight from the file bytes."""
import os
import pathlib
import subprocess
import sys

import numpy
import pandas
import pytest

from test_analysis import assert_figures_match, reference_level, reference_stats, write_image_file

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "batch_stats.py"
FILES = 24
PIXEL = 5e-6 / 40  # a 5 µm scan of 40 columns and 40 rows


def samples_from_bytes(path):
    head = path.read_bytes()[:4096].decode("latin-1")
    offset = int(head.split("DataOffset=")[1].split()[0])
    rows = int(head.split("ResolutionY=")[1].split()[0])
    return numpy.fromfile(path, dtype="<f4", offset=offset).reshape(rows, -1)


def test_batch_tables_every_file_and_reports_failures(tmp_path, force_path):
    source = tmp_path / "in"
    generator = numpy.random.default_rng(17)
    row, col = numpy.indices((40, 40))
    for index in range(FILES):
        folder = source / f"day{index % 3}"
        folder.mkdir(parents=True, exist_ok=True)
        z = 0.1 * index * col - 0.05 * row + generator.standard_normal((40, 40))
        z[index % 40, 3] = numpy.nan
        write_image_file(folder / f"scan_{index:02d}.flt", z, scan_range="5.0000 \xb5m")
    (source / "broken.flt").write_bytes(b"broken\n")
    (source / "force.flt").write_bytes(pathlib.Path(force_path).read_bytes())
    table = tmp_path / "stats.csv"

    result = subprocess.run([sys.executable, str(EXAMPLE), str(source), str(table),
                             "--level", "rows:mediandiff+plane", "--z-unit", "nm",
                             "--workers", "2"], capture_output=True, text=True, timeout=300,
                            env=os.environ)

    assert result.returncode == 1, result.stderr
    assert f"{FILES} files analysed, 2 failed" in result.stdout
    failures = result.stderr.splitlines()
    assert len([line for line in failures if "broken.flt" in line]) == 1
    assert len([line for line in failures if "force.flt" in line and "no image" in line]) == 1

    frame = pandas.read_csv(table)
    assert list(frame["file"]) == sorted(str(path) for path in source.glob("day*/*.flt"))
    assert set(frame["level"]) == {"rows:mediandiff+plane"} and set(frame["z_unit"]) == {"nm"}
    for record in frame.to_dict("records"):
        assert record["pixel_size_x"] == pytest.approx(PIXEL, rel=1e-12)
        assert record["pixel_size_y"] == pytest.approx(PIXEL, rel=1e-12)
        levelled = reference_level(samples_from_bytes(pathlib.Path(record["file"])),
                                   "rows:mediandiff+plane")
        want = reference_stats(levelled, None, (PIXEL, PIXEL), 1e-9)
        assert_figures_match({name: record[name] for name in want}, want)


def test_an_unknown_levelling_is_a_usage_error(tmp_path):
    result = subprocess.run([sys.executable, str(EXAMPLE), str(tmp_path), str(tmp_path / "s.csv"),
                             "--level", "tilt"], capture_output=True, text=True, timeout=60,
                            env=os.environ)
    assert result.returncode == 2 and '"tilt"' in result.stderr
    assert not (tmp_path / "s.csv").exists()
