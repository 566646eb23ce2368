"""The module reads exactly what kiv reads, at numpy's terms."""
import gc
import json
import os
import shutil
import subprocess
import threading

import numpy
import pytest

import kiv


def dump(kiv_command, path):
    output = subprocess.run([kiv_command, "dump", "--json", "--data", path], check=True,
                            capture_output=True, text=True).stdout
    return json.loads(output)


def samples_by_description(path):
    """The samples as the format describes them: float32 from DataOffset to the end."""
    with open(path, "rb") as stream:
        head = stream.read(8192).decode("latin-1")
    offset = int(head.split("DataOffset=")[1].split()[0])
    rows = int(head.split("ResolutionY=")[1].split()[0])
    return numpy.fromfile(path, dtype="<f4", offset=offset).reshape(rows, -1)


def expected_header_value(entry):
    kind = entry["type"]
    if kind == "container":
        return {key: expected_header_value(value) for key, value in entry["entries"].items()
                if value["type"] not in ("matrix", "matrices")}
    if kind == "unitized":
        return (entry["value"], entry["unit"])
    return entry["value"]


def as_comparable(value):
    if isinstance(value, dict):
        return {key: as_comparable(item) for key, item in value.items()}
    if isinstance(value, kiv.Quantity):
        return (value.value, value.unit)
    return value


@pytest.mark.parametrize("sample", ["image_path", "force_path"])
def test_header_matches_the_dump_in_file_order(request, kiv_command, sample):
    path = request.getfixturevalue(sample)
    expected = expected_header_value({"type": "container",
                                      "entries": dump(kiv_command, path)["entries"]})
    header = kiv.open(path).header
    assert as_comparable(header) == expected
    assert list(header) == list(expected)
    assert list(header["PelrixFileOverviewInfo"]) == list(expected["PelrixFileOverviewInfo"])
    for section in header.values():
        for key, value in section.items():
            assert type(value) in (str, int, float, list, kiv.Quantity), key


def test_header_types(image_path):
    parameters = kiv.open(image_path).header["[Data Parameters]"]
    assert type(parameters["DataOffset"]) is int
    assert type(parameters["Title"]) is str
    assert parameters["ScanRangeX"].unit == "µm"


def test_image_is_the_files_samples_without_a_copy(image_path):
    with kiv.open(image_path) as data:
        assert (data.file_type, data.kind) == ("Pelrix Data File", "image")
        image = data.image
        again = data.image
    assert image.dtype == numpy.float32 and image.shape == (128, 128)
    numpy.testing.assert_array_equal(image, samples_by_description(image_path))
    assert numpy.shares_memory(image, again)
    assert not isinstance(image.base, numpy.ndarray)
    assert not image.flags.writeable
    with pytest.raises(ValueError):
        image[0, 0] = 1.0


def test_image_outlives_the_file(image_path):
    image = kiv.open(image_path).image
    gc.collect()
    numpy.testing.assert_array_equal(image, samples_by_description(image_path))
    with kiv.open(image_path) as data:
        kept = data.image
    numpy.testing.assert_array_equal(kept, image)


def test_geometry_in_metres(image_path):
    data = kiv.open(image_path)
    assert data.scan_size == pytest.approx((10e-6, 10e-6))
    assert data.pixel_size == pytest.approx((10e-6 / 128, 10e-6 / 128))


def test_force_curves_and_labels(kiv_command, force_path):
    data = kiv.open(force_path)
    assert data.kind == "force"
    expected = numpy.array(dump(kiv_command, force_path)["entries"]["[Data]"]["entries"]
                           ["RawData"]["data"], dtype=numpy.float32)
    assert data.curves.dtype == numpy.float32
    numpy.testing.assert_array_equal(data.curves, expected.reshape(data.curves.shape))
    assert data.labels[0] == "Z Approach 1 (µm)" and len(data.labels) == 8
    frame = data.curves_frame()
    assert list(frame.columns) == data.labels
    numpy.testing.assert_array_equal(frame.to_numpy(), data.curves)
    with pytest.raises(kiv.Error, match="holds no image"):
        data.image


@pytest.mark.parametrize("unit, expected", [("m", 1e-5), ("nm", 1e4), ("µm", 10.0)])
def test_quantity_conversions(image_path, unit, expected):
    quantity = kiv.open(image_path).header["[Data Parameters]"]["ScanRangeX"]
    assert quantity.to(unit) == pytest.approx(expected)
    assert quantity.si == pytest.approx(1e-5)
    assert float(quantity) == 10.0


@pytest.mark.parametrize("unit", ["s", "furlongs-per-gnat"])
def test_quantity_refuses_other_quantities(image_path, unit):
    quantity = kiv.open(image_path).header["[Data Parameters]"]["ScanRangeX"]
    with pytest.raises(kiv.Error):
        quantity.to(unit)


def test_errors(tmp_path, image_path):
    cases = [(str(tmp_path / "missing.flt"), FileNotFoundError),
             (str(tmp_path), kiv.Error)]
    junk = tmp_path / "junk.flt"
    junk.write_bytes(b"not a scan\n")
    cases.append((str(junk), kiv.FormatError))
    for path, error in cases:
        with pytest.raises(error) as raised:
            kiv.open(path)
        assert path in str(raised.value) and "\n" not in str(raised.value)
    assert issubclass(kiv.FormatError, kiv.Error)


@pytest.mark.skipif(os.geteuid() == 0, reason="root reads every file")
def test_permission_error(tmp_path, image_path):
    locked = tmp_path / "locked.flt"
    shutil.copyfile(image_path, locked)
    locked.chmod(0)
    with pytest.raises(PermissionError):
        kiv.open(str(locked))


def test_closed_file_says_so(image_path):
    data = kiv.open(image_path)
    data.close()
    with pytest.raises(kiv.Error, match="closed"):
        data.header


def test_eight_threads_open_at_once(image_path, force_path):
    expected = samples_by_description(image_path)
    problems = []
    barrier = threading.Barrier(8)

    def work(index):
        try:
            barrier.wait()
            for _ in range(10):
                if index % 2:
                    assert kiv.open(force_path).curves.shape == (300, 8)
                else:
                    numpy.testing.assert_array_equal(kiv.open(image_path).image, expected)
        except Exception as error:  # collected and reported by the main thread
            problems.append(repr(error))

    threads = [threading.Thread(target=work, args=(index,)) for index in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert problems == []


def test_formats_lists_the_pelrix_type():
    assert "Pelrix Data File" in kiv.formats()
