"""Every export read back by a reader that is not ours: numpy, tifffile, pandas, PIL, Python's json,
and a GSF reader written here from the format's public description."""
import json
import struct

import numpy as np
import pandas as pd
import pytest
import tifffile
from PIL import Image

from conftest import (FORCE_SAMPLE, IMAGE_SAMPLE, export, force_table, image_samples,
                      plane_levelled, run_kiv, write_image_file)


def read_gsf(path):
    """Gwyddion Simple Field: a magic line, "Key = Value" lines, 1 to 4 NULs padding the header
    to a multiple of 4, then XRes * YRes little-endian float32."""
    data = path.read_bytes()
    end = data.index(b"\0")
    header = data[:end].decode("utf-8")
    padding = 4 - end % 4
    assert data[end:end + padding] == b"\0" * padding
    lines = header.split("\n")
    assert lines[0] == "Gwyddion Simple Field 1.0"
    fields = dict(line.split(" = ", 1) for line in lines[1:] if line)
    columns, rows = int(fields["XRes"]), int(fields["YRes"])
    samples = np.frombuffer(data[end + padding:], dtype="<f4")
    assert samples.size == columns * rows, "no bytes before or after the samples"
    return fields, samples.reshape(rows, columns)


def test_gsf_holds_header_geometry_and_samples(tmp_path):
    fields, samples = read_gsf(export(IMAGE_SAMPLE, "gsf", tmp_path / "t.gsf"))
    np.testing.assert_array_equal(samples, image_samples())
    assert float(fields["XReal"]) == pytest.approx(10e-6) and fields["XYUnits"] == "m"
    assert fields["Title"] == "Synthetic topography"
    assert fields["Piezo Parameters/X Sensitivity"] == "1.2500 µm/V"
    assert "ZUnits" not in fields


def test_gsf_title_falls_back_to_the_file_name(tmp_path):
    source = write_image_file(tmp_path / "bare scan.flt", np.zeros((2, 3), np.float32))
    fields, samples = read_gsf(export(source, "gsf", tmp_path / "b.gsf"))
    assert fields["Title"] == "bare scan.flt" and samples.shape == (2, 3)


@pytest.mark.parametrize("source, expected", [
    (IMAGE_SAMPLE, image_samples),
    (FORCE_SAMPLE, lambda: force_table()[1]),
])
def test_npy_is_float32_in_c_order_aligned_to_64(tmp_path, source, expected):
    path = export(source, "npy", tmp_path / "out.npy")
    array = np.load(path)
    assert array.dtype == np.dtype("<f4") and array.flags.c_contiguous
    np.testing.assert_array_equal(array, expected())
    header_length = struct.unpack("<H", path.read_bytes()[8:10])[0]
    assert (10 + header_length) % 64 == 0


def test_tiff_samples_and_imagej_calibration(tmp_path):
    with tifffile.TiffFile(export(IMAGE_SAMPLE, "tiff", tmp_path / "t.tif")) as tiff:
        page = tiff.pages[0]
        samples = page.asarray()
        assert samples.dtype == np.float32
        np.testing.assert_array_equal(samples, image_samples())
        imagej = tiff.imagej_metadata
        assert imagej["unit"] in ("nm", "um")
        assert imagej["min"] == pytest.approx(float(image_samples().min()))
        assert imagej["max"] == pytest.approx(float(image_samples().max()))
        numerator, denominator = page.tags["XResolution"].value
        unit_metres = {"nm": 1e-9, "um": 1e-6}[imagej["unit"]]
        pixel_metres = denominator / numerator * unit_metres
        assert pixel_metres == pytest.approx(10e-6 / 128, rel=1e-6)
        assert page.tags["ResolutionUnit"].value == 1  # none: the unit comes from ImageJ's text


def test_tiff_of_a_small_scan_uses_a_readable_unit(tmp_path):
    source = write_image_file(tmp_path / "s.flt", np.ones((4, 4), np.float32), "200.0000 nm")
    with tifffile.TiffFile(export(source, "tiff", tmp_path / "s.tif")) as tiff:
        numerator, denominator = tiff.pages[0].tags["XResolution"].value
        assert tiff.imagej_metadata["unit"] == "nm"
        assert denominator / numerator == pytest.approx(50.0)


@pytest.mark.parametrize("fmt, separator", [("csv", ","), ("tsv", "\t")])
def test_force_table_has_labels_and_float32_values(tmp_path, fmt, separator):
    labels, values = force_table()
    frame = pd.read_csv(export(FORCE_SAMPLE, fmt, tmp_path / f"f.{fmt}"), sep=separator,
                        encoding="utf-8")
    assert list(frame.columns) == labels and labels[0] == "Z Approach 1 (µm)"
    np.testing.assert_array_equal(frame.to_numpy(dtype=np.float64).astype(np.float32), values)


def test_image_csv_is_the_matrix_after_the_size_comments(tmp_path):
    path = export(IMAGE_SAMPLE, "csv", tmp_path / "i.csv")
    comments = path.read_text(encoding="utf-8").splitlines()[:2]
    assert comments == ["# x: 10 µm, 128 samples", "# y: 10 µm, 128 samples"]
    frame = pd.read_csv(path, comment="#", header=None)
    np.testing.assert_array_equal(frame.to_numpy().astype(np.float32), image_samples())


@pytest.mark.parametrize("holes", [[], [np.nan], [np.inf, -np.inf], [np.nan, np.inf]])
@pytest.mark.parametrize("shape", [(7, 5), (600, 512)])
def test_tiff_display_range_leaves_out_samples_that_are_not_finite(tmp_path, holes, shape):
    # 7 x 5: more than one block of the range pass, and a tail. 600 x 512: two strips of
    # 1 MiB, taken one at a time, a hole in each and each extreme in another strip.
    samples = np.random.default_rng(5).normal(size=shape).astype(np.float32)
    samples[-1, -1], samples[shape[0] // 2 - 1, 2] = -40.0, 25.0
    for index, hole in enumerate(holes):
        samples.flat[index * (samples.size * 9 // 10)] = hole
    source = write_image_file(tmp_path / "holes.flt", samples)
    with tifffile.TiffFile(export(source, "tiff", tmp_path / "holes.tiff")) as tiff:
        np.testing.assert_array_equal(tiff.asarray(), samples)
        assert (tiff.imagej_metadata["min"], tiff.imagej_metadata["max"]) == (-40.0, 25.0)


def test_tiff_of_several_strips_reads_back_whole(tmp_path):
    samples = np.arange(600 * 1000, dtype=np.float32).reshape(600, 1000)
    source = write_image_file(tmp_path / "tall.flt", samples)
    with tifffile.TiffFile(export(source, "tiff", tmp_path / "tall.tiff")) as tiff:
        assert len(tiff.pages[0].dataoffsets) > 1
        np.testing.assert_array_equal(tiff.asarray(), samples)


def test_image_csv_keeps_nan_and_extreme_floats(tmp_path):
    samples = np.array([[np.nan, 3.4028235e38, -1.17549435e-38], [1e-45, -0.0, 0.1]], np.float32)
    source = write_image_file(tmp_path / "x.flt", samples)
    frame = pd.read_csv(export(source, "csv", tmp_path / "x.csv"), comment="#", header=None)
    np.testing.assert_array_equal(frame.to_numpy().astype(np.float32), samples)


@pytest.mark.parametrize("extra, surface", [
    (["--level", "none"], lambda z: z),
    ([], plane_levelled),  # a preview is plane-levelled unless told otherwise
])
def test_png_preview_maps_samples_to_gray_at_least_512_wide(tmp_path, extra, surface):
    samples = surface(image_samples().astype(np.float64))
    low, high = float(samples.min()), float(samples.max())
    path = export(IMAGE_SAMPLE, "png", tmp_path / "p.png", f"--range={low}:{high}", *extra)
    with Image.open(path) as picture:
        picture.load()
        assert picture.format == "PNG" and picture.width >= 512 and picture.height >= 512
        pixels = np.asarray(picture.convert("L"), dtype=float)
    # Find the image by its darkest sample (the minimum maps to black) and check the mapping of
    # a few samples, each drawn as a square of whole pixels.
    row, column = np.unravel_index(np.argmin(samples), samples.shape)
    dark = np.argwhere(pixels == 0)
    zoom = 4  # 128 samples drawn on at least 512 pixels
    top, left = dark.min(axis=0) - np.array([row * zoom, column * zoom])
    for r, c in [(0, 0), (64, 64), (127, 127), (10, 100)]:
        expected = (samples[r, c] - low) / (high - low) * 255
        block = pixels[top + r * zoom: top + (r + 1) * zoom, left + c * zoom: left + (c + 1) * zoom]
        assert np.all(np.abs(block - expected) <= 1.5), (r, c)


@pytest.mark.parametrize("colormap", ["viridis", "afmhot"])
def test_png_previews_decode_in_colour(tmp_path, colormap):
    for source in (IMAGE_SAMPLE, FORCE_SAMPLE):
        path = export(source, "png", tmp_path / f"{source.stem}.png", "--colormap", colormap)
        with Image.open(path) as picture:
            rgb = np.asarray(picture.convert("RGB"), dtype=int)
        assert max(picture.size) >= 512
        assert (np.ptp(rgb, axis=2) > 60).sum() > 1000, "coloured curves or colour map"


@pytest.mark.parametrize("source, fmt, fitting", [
    (FORCE_SAMPLE, "gsf", "npy, csv, tsv, png, json, html"),
    (FORCE_SAMPLE, "tiff", "npy, csv, tsv, png, json, html"),
    (IMAGE_SAMPLE, "tsv", "gsf, npy, tiff, csv, png, json, html"),
])
def test_formats_that_do_not_fit_are_refused(tmp_path, source, fmt, fitting):
    result = run_kiv("export", source, "--to", fmt, "-d", tmp_path)
    assert result.returncode == 1 and list(tmp_path.iterdir()) == []
    failure = result.stderr.splitlines()
    assert len(failure) == 1 and str(source) in failure[0]
    assert failure[0].endswith("formats that fit: " + fitting)


def plain_values(entries):
    """The typed entries of a golden dump (checked by hand) as the plain values a header export
    holds: a unitized number as {"value", "unit"}, samples left out."""
    plain = {}
    for key, entry in entries.items():
        if entry["type"] == "container":
            plain[key] = plain_values(entry["entries"])
        elif entry["type"] == "unitized":
            plain[key] = {"value": entry["value"], "unit": entry["unit"]}
        elif entry["type"] not in ("matrix", "matrices"):
            plain[key] = entry["value"]
    return plain


@pytest.mark.parametrize("source", [IMAGE_SAMPLE, FORCE_SAMPLE])
def test_json_is_the_whole_header_in_file_order(tmp_path, source):
    text = export(source, "json", tmp_path / "header.json").read_text(encoding="utf-8")
    golden = json.loads(source.with_suffix(".json").read_text(encoding="utf-8"))["entries"]
    header = json.loads(text)
    assert header == plain_values(golden)
    assert list(header) == list(golden)  # sections in file order


def refuse_constant(name):
    raise AssertionError(f"{name} is not JSON")


@pytest.mark.parametrize("scan_range, value", [
    ("10.0000 \xb5m", 10.0),
    # JSON has no NaN or infinity: they are written as strings, so that any reader takes the file.
    ("nan \xb5m", "nan"),
    ("-1e999 \xb5m", "-inf"),
])
def test_json_keeps_quotes_latin1_text_and_numbers_json_lacks(tmp_path, scan_range, value):
    title = 'tip "B" \\ 25 \xb0C; caf\xe9'
    source = write_image_file(tmp_path / "odd.flt", np.zeros((2, 2), np.float32),
                              scan_range=scan_range, title=title)
    text = export(source, "json", tmp_path / "odd.json").read_text(encoding="utf-8")
    header = json.loads(text, parse_constant=refuse_constant)
    assert header["[Data Parameters]"]["Title"] == title
    assert header["[Data Parameters]"]["ScanRangeX"] == {"value": value, "unit": "\xb5m"}
