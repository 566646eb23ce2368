"""kiv stats, kiv info, kiv profile and kiv export --level against the same figures worked out here
with numpy from the file's bytes."""
import csv
import io
import json

import numpy as np
import pandas as pd
import pytest
import tifffile

from conftest import (IMAGE_SAMPLE, export, image_samples, plane_levelled, run_kiv,
                      write_image_file)

PIXEL = 10e-6 / 128  # the sample's 10 um scan over 128 samples, both ways


def developed_area(z, dx, dy):
    """Each pixel as four triangles from its centre to its corners, a corner's height the mean of
    the four pixels around it, the border repeated outwards."""
    padded = np.pad(z, 1, mode="edge")
    corners = (padded[:-1, :-1] + padded[1:, :-1] + padded[:-1, 1:] + padded[1:, 1:]) / 4
    corner = {"tl": corners[:-1, :-1], "tr": corners[:-1, 1:], "bl": corners[1:, :-1],
              "br": corners[1:, 1:]}
    offset = {"tl": (-dx / 2, -dy / 2), "tr": (dx / 2, -dy / 2), "bl": (-dx / 2, dy / 2),
              "br": (dx / 2, dy / 2)}
    area = np.zeros_like(z)
    for a, b in [("tl", "tr"), ("tr", "br"), ("br", "bl"), ("bl", "tl")]:
        u = np.stack(np.broadcast_arrays(offset[a][0], offset[a][1], corner[a] - z))
        v = np.stack(np.broadcast_arrays(offset[b][0], offset[b][1], corner[b] - z))
        area += np.linalg.norm(np.cross(u, v, axis=0), axis=0) / 2
    return area.sum()


def numpy_figures(z):
    m = z.mean()
    d = z - m
    sq = np.sqrt((d ** 2).mean())
    return {"mean": m, "median": np.median(z), "min": z.min(), "max": z.max(),
            "Sa": np.abs(d).mean(), "Sq": sq, "Ssk": (d ** 3).mean() / sq ** 3,
            "Sku": (d ** 4).mean() / sq ** 4, "Sp": z.max() - m, "Sv": m - z.min(),
            "Sz": z.max() - z.min()}


@pytest.mark.parametrize("level, surface", [
    (None, lambda z: plane_levelled(z)),  # plane is the default
    ("none", lambda z: z),
])
def test_stats_match_numpy(level, surface):
    arguments = ["stats", "--json", "--z-unit", "nm", IMAGE_SAMPLE]
    result = run_kiv(*arguments, *(["--level", level] if level else []))
    assert result.returncode == 0, result.stderr
    figures = json.loads(result.stdout)
    z = surface(image_samples().astype(np.float64))
    expected = numpy_figures(z)
    for name, value in expected.items():
        assert figures[name] == pytest.approx(value, rel=1e-9, abs=1e-9), name
    metres = z * 1e-9
    gy, gx = np.gradient(metres, PIXEL, PIXEL)
    assert figures["Sdq"] == pytest.approx(np.sqrt((gx ** 2 + gy ** 2).mean()), rel=1e-9)
    area = developed_area(metres, PIXEL, PIXEL)
    assert figures["area"] == pytest.approx(area, rel=1e-9)
    assert figures["Sdr"] == pytest.approx(area / (z.size * PIXEL ** 2) - 1, rel=1e-6)
    assert figures["pixel_size"] == pytest.approx([PIXEL, PIXEL], rel=1e-12)


def test_the_header_height_unit_gives_the_hybrid_figures(tmp_path):
    # A ramp of 1 um a column and 4 um a row over 0.25 um pixels: slopes of 4 and 16.
    ramp = np.arange(16, dtype=np.float32).reshape(4, 4)
    source = write_image_file(tmp_path / "ramp.flt", ramp, scan_range="1.0000 \xb5m", z_unit="\xb5m")
    figures = json.loads(run_kiv("stats", "--json", "--level", "none", source).stdout)
    assert figures["z_unit"] == "\xb5m" and figures["pixel_size"] == [0.25e-6, 0.25e-6]
    assert figures["Sdq"] == pytest.approx(np.hypot(4, 16), rel=1e-12)
    header = run_kiv("profile", source, "--col", 0).stdout.splitlines()[0]
    assert header == "distance_m,height_\xb5m"

    # A channel in volts has no area: its figures stand, its hybrid ones are unknown.
    volts = write_image_file(tmp_path / "volts.flt", ramp, scan_range="1.0000 \xb5m", z_unit="V")
    result = run_kiv("stats", "--json", "--level", "none", volts)
    figures = json.loads(result.stdout)
    assert result.returncode == 0 and figures["z_unit"] == "V"
    assert figures["Sdq"] is None and figures["Sq"] == pytest.approx(ramp.astype(np.float64).std(), rel=1e-12)


def test_info_shows_plane_levelled_roughness_beside_the_raw():
    result = run_kiv("info", IMAGE_SAMPLE)
    assert result.returncode == 0, result.stderr
    fields = dict(line.strip().split(":", 1) for line in result.stdout.splitlines()
                  if line.startswith("  ") and ":" in line)
    levelled = plane_levelled(image_samples().astype(np.float64))
    raw = image_samples().astype(np.float64)
    assert float(fields["RMS roughness"]) == pytest.approx(raw.std(), rel=1e-5)
    assert float(fields["Sq (plane-levelled)"]) == pytest.approx(levelled.std(), rel=1e-5)
    assert float(fields["Sa (plane-levelled)"]) == pytest.approx(
        np.abs(levelled - levelled.mean()).mean(), rel=1e-5)


@pytest.mark.parametrize("level", ["none", "plane"])
@pytest.mark.parametrize("option, index", [("--row", 5), ("--col", 100)])
def test_row_and_column_profiles_are_the_samples(option, index, level):
    result = run_kiv("profile", IMAGE_SAMPLE, option, index, "--level", level)
    assert result.returncode == 0, result.stderr
    table = list(csv.reader(io.StringIO(result.stdout)))
    assert table[0] == ["distance_m", "height"]
    values = np.array(table[1:], dtype=np.float64)
    z = image_samples()
    if level == "plane":
        z = plane_levelled(z.astype(np.float64)).astype(np.float32)
    expected = z[index] if option == "--row" else z[:, index]
    np.testing.assert_array_equal(values[:, 1].astype(np.float32), expected)
    np.testing.assert_allclose(values[:, 0], np.arange(128) * PIXEL, rtol=1e-12)


def bilinear(z, x, y):
    column, row = np.floor(x).astype(int), np.floor(y).astype(int)
    column, row = np.minimum(column, z.shape[1] - 2), np.minimum(row, z.shape[0] - 2)
    fx, fy = x - column, y - row
    return ((1 - fy) * ((1 - fx) * z[row, column] + fx * z[row, column + 1])
            + fy * ((1 - fx) * z[row + 1, column] + fx * z[row + 1, column + 1]))


@pytest.mark.parametrize("start, end, metres", [
    ((2.5, 3.0), (40.2, 30.7), False),
    ((0.0, 0.0), (30.0, 40.0), False),  # a whole length, 50: the end itself is sampled
    ((1e-6, 2e-6), (5e-6, 0.5e-6), True),
])
def test_line_profile_is_bilinear_at_one_pixel_steps(start, end, metres):
    point = "{},{}".format
    result = run_kiv("profile", IMAGE_SAMPLE, "--from", point(*start), "--to", point(*end),
                     "--to", "json", *(["--metres"] if metres else []))
    assert result.returncode == 0, result.stderr
    profile = json.loads(result.stdout)
    assert profile["distance_unit"] == "m" and profile["level"] == "none"
    (x0, y0), (x1, y1) = (np.array(p) / (PIXEL if metres else 1) for p in (start, end))
    length = np.hypot(x1 - x0, y1 - y0)
    steps = np.arange(int(np.floor(length + 1e-9)) + 1)
    x, y = x0 + steps * (x1 - x0) / length, y0 + steps * (y1 - y0) / length
    expected = bilinear(image_samples().astype(np.float64), x, y)
    np.testing.assert_allclose(profile["height"], expected, rtol=1e-9, atol=1e-9)
    np.testing.assert_allclose(profile["distance"], steps * PIXEL, rtol=1e-9)


def read_npy(path):
    return np.load(path)


def read_tiff(path):
    return tifffile.imread(path)


def read_csv(path):
    return pd.read_csv(path, comment="#", header=None).to_numpy().astype(np.float32)


@pytest.mark.parametrize("fmt, read", [("npy", read_npy), ("tiff", read_tiff), ("csv", read_csv)])
def test_data_exports_are_levelled_only_when_asked(tmp_path, fmt, read):
    raw = image_samples()
    np.testing.assert_array_equal(read(export(IMAGE_SAMPLE, fmt, tmp_path / f"raw.{fmt}")), raw)
    levelled = read(export(IMAGE_SAMPLE, fmt, tmp_path / f"plane.{fmt}", "--level", "plane"))
    expected = plane_levelled(raw.astype(np.float64))
    np.testing.assert_allclose(levelled, expected, rtol=0, atol=1e-5 * np.abs(raw).max())
    assert levelled.dtype == np.float32
