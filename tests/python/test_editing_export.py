"""Editing through the safe save, and exports read back by numpy, not by our own reader."""
import base64
import json
import re
import shutil
import subprocess

import numpy
import pytest

import kiv

OPERATOR_LINE = b"Operator=synthetic\r\n"
COMMA_NOTE = b"Notes=a, b\r\n"


@pytest.fixture
def image_copy(tmp_path, image_path):
    return str(shutil.copy(image_path, tmp_path / "scan.flt"))


@pytest.fixture
def image_with_comma_note(image_copy):
    """A note the writer cannot keep, taken out of the padding so the samples stay put."""
    with open(image_copy, "rb") as stream:
        data = bytearray(stream.read())
    at = data.index(OPERATOR_LINE) + len(OPERATOR_LINE)
    data[at:at] = COMMA_NOTE
    del data[4096:4096 + len(COMMA_NOTE)]
    with open(image_copy, "wb") as stream:
        stream.write(data)
    return image_copy


def dumped_entries(kiv_command, path):
    output = subprocess.run([kiv_command, "dump", "--json", path], check=True,
                            capture_output=True, text=True).stdout
    return json.loads(output)["entries"]


def header_line(path, key):
    with open(path, "rb") as stream:
        head = stream.read(8192)
    start = head.index(b"\n" + key.encode() + b"=") + 1
    return head[start:head.index(b"\r\n", start)]


def test_lossless_set_and_unset_read_back_everywhere(image_copy, kiv_command):
    with kiv.open(image_copy) as f:
        f.set("[System Info]", "Operator", "Zoë")
        f.unset("[System Info]", "Firmware")
        report = f.save()
        assert (report.saved, report.dropped, report.offset_move) == (True, [], None)
        assert "+Operator=Zoë\n" in report.diff and "-Firmware=4.1.7\n" in report.diff
        # The file object shows the saved file.
        assert f.header["[System Info]"]["Operator"] == "Zoë"
    fresh = kiv.open(image_copy).header["[System Info]"]
    assert fresh["Operator"] == "Zoë" and "Firmware" not in fresh
    dumped = dumped_entries(kiv_command, image_copy)["[System Info]"]["entries"]
    assert dumped["Operator"]["value"] == "Zoë" and "Firmware" not in dumped
    assert header_line(image_copy, "Operator") == "Operator=Zoë".encode("latin-1")


def test_a_comma_line_is_refused_then_saved_with_allow_loss(image_with_comma_note):
    with open(image_with_comma_note, "rb") as stream:
        before = stream.read()
    f = kiv.open(image_with_comma_note)
    with pytest.raises(kiv.SaveRefused) as refused:
        f.save()
    assert isinstance(refused.value, kiv.Error)
    assert refused.value.items == ['line 46: "Notes=a, b" holds a comma and is not kept']
    assert str(refused.value).startswith(image_with_comma_note + ": ")
    with open(image_with_comma_note, "rb") as stream:
        assert stream.read() == before

    report = f.save(allow_loss=True)
    assert report.saved and report.dropped == refused.value.items
    assert "Notes" not in kiv.open(image_with_comma_note).header["[System Info]"]


def test_a_dry_run_shows_the_diff_and_writes_nothing(image_with_comma_note):
    with open(image_with_comma_note, "rb") as stream:
        before = stream.read()
    f = kiv.open(image_with_comma_note)
    f.set("[System Info]", "Operator", "tip 3")
    report = f.save(dry_run=True)
    assert (report.saved, report.would_save) == (False, False)
    assert report.refusal.startswith(image_with_comma_note + ": ")
    assert report.dropped == ['line 46: "Notes=a, b" holds a comma and is not kept']
    assert "-Operator=synthetic\n-Notes=a, b\n+Operator=tip 3\n" in report.diff
    with open(image_with_comma_note, "rb") as stream:
        assert stream.read() == before


def test_a_long_value_moves_the_data_offset_and_the_samples_follow(image_copy):
    samples = kiv.open(image_copy).image.copy()
    with kiv.open(image_copy) as f:
        f.set("[System Info]", "Notes", "n" * 3500)
        report = f.save()
        assert report.offset_move == (4096, 5120)
        numpy.testing.assert_array_equal(f.image, samples)
    assert header_line(image_copy, "DataOffset") == b"DataOffset=  5120"
    # Read by the format's description, not by our reader.
    numpy.testing.assert_array_equal(
        numpy.fromfile(image_copy, dtype="<f4", offset=5120).reshape(samples.shape), samples)


def test_units_are_typed_as_the_file_holds_them(image_copy):
    f = kiv.open(image_copy)
    with pytest.raises(kiv.Error, match=r'ScanRangeX holds a length with a unit, for example '
                                        r'"20 µm"'):
        f.set("[Data Parameters]", "ScanRangeX", "20")
    f.set("[Data Parameters]", "ScanRangeX", "20 um")
    f.save()
    assert header_line(image_copy, "ScanRangeX") == "ScanRangeX=20 µm".encode("latin-1")
    assert kiv.open(image_copy).scan_size[0] == pytest.approx(20e-6)


def test_a_value_latin1_cannot_hold_raises_kivs_message(image_copy):
    with pytest.raises(kiv.Error, match="cannot store the value in the header"):
        kiv.open(image_copy).set("[System Info]", "Operator", "tip ☃")


def test_exports_read_back_by_numpy(tmp_path, image_path, force_path):
    image_file = kiv.open(image_path)
    image_file.export(str(tmp_path / "scan.npy"), "npy")
    numpy.testing.assert_array_equal(numpy.load(tmp_path / "scan.npy"), image_file.image)

    force_file = kiv.open(force_path)
    force_file.export(str(tmp_path / "force.npy"), "NPY")
    exported = numpy.load(tmp_path / "force.npy")
    assert exported.dtype == numpy.float32
    numpy.testing.assert_array_equal(exported, force_file.curves)


def test_the_html_export_carries_each_levellings_samples(tmp_path, image_path):
    f = kiv.open(image_path)
    f.export(str(tmp_path / "scan.html"), "HTML")
    page = (tmp_path / "scan.html").read_text(encoding="utf-8")
    data = json.loads(re.search(r'<script type="application/json" id="page-data">(.*?)</script>',
                                page, re.S).group(1))
    blocks = dict(re.findall(r'<script type="application/octet-stream" id="samples-(\d+)">'
                             r'([A-Za-z0-9+/]*=*)</script>', page))
    methods = [levelling["method"] for levelling in data["image"]["levellings"]]
    assert sorted(blocks) == [str(i) for i in range(len(methods))]
    assert {"none", "plane"} <= set(methods)
    for index, method in enumerate(methods):
        samples = numpy.frombuffer(base64.b64decode(blocks[str(index)], validate=True), "<f4")
        expected = f.image if method == "none" else kiv.level(f.image, method)
        numpy.testing.assert_array_equal(samples.reshape(f.image.shape), expected)


def plain(value):
    """A File.header value as json holds it: a Quantity as {"value", "unit"}."""
    if isinstance(value, dict):
        return {key: plain(item) for key, item in value.items()}
    if isinstance(value, kiv.Quantity):
        return {"value": value.value, "unit": value.unit}
    return value


@pytest.mark.parametrize("source", ["image_path", "force_path"])
def test_the_json_export_holds_what_file_header_gives(tmp_path, source, request):
    data = kiv.open(request.getfixturevalue(source))
    data.export(str(tmp_path / "header.json"), "json")
    exported = json.loads((tmp_path / "header.json").read_text(encoding="utf-8"))
    assert exported == plain(data.header)
    assert list(exported) == list(data.header)


def test_export_failures_name_the_file(tmp_path, image_path, force_path):
    output = str(tmp_path / "scan.npy")
    kiv.open(image_path).export(output, "npy")
    with pytest.raises(kiv.Error, match="scan.npy"):
        kiv.open(image_path).export(output, "npy")
    kiv.open(image_path).export(output, "npy", overwrite=True)
    with pytest.raises(kiv.Error, match="formats that fit"):
        kiv.open(force_path).export(str(tmp_path / "force.gsf"), "gsf")
    with pytest.raises(kiv.Error, match="unknown format"):
        kiv.open(image_path).export(str(tmp_path / "scan.bmp"), "bmp")


def test_a_force_value_rounding_changes_is_loss(tmp_path, force_path):
    path = tmp_path / "force.flt"
    data = open(force_path, "rb").read()
    first_value = b"\n-0.500000\t"
    path.write_bytes(data.replace(first_value, b"\n-0.5000004\t", 1))
    f = kiv.open(str(path))
    with pytest.raises(kiv.SaveRefused) as refused:
        f.save()
    assert refused.value.items == ["line 1, value 1: -0.5000004 is written as -0.500000"]
    assert path.read_bytes() != data
    assert f.save(allow_loss=True).dropped == refused.value.items
    # Rounded as the writer rounds, the file is the original again.
    assert path.read_bytes() == data
