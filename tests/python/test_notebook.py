"""What Jupyter shows of a file, read back by PIL and Python's own html escaping."""
import base64
import html
import io
import re
import shutil

import pytest
from PIL import Image

import kiv

DATA_URI = re.compile(r'src="data:image/png;base64,([A-Za-z0-9+/]*=*)"')


def decoded_png(data):
    picture = Image.open(io.BytesIO(data))
    picture.load()
    assert picture.format == "PNG" and min(picture.size) > 0
    return picture


@pytest.mark.parametrize("source", ["image_path", "force_path"])
def test_repr_png_is_the_png_export_and_leaves_no_file(tmp_path, monkeypatch, source, request):
    scratch = tmp_path / "scratch"
    scratch.mkdir()
    monkeypatch.setenv("TMPDIR", str(scratch))
    f = kiv.open(request.getfixturevalue(source))
    f.export(str(tmp_path / "preview.png"), "png")
    data = f._repr_png_()
    assert data == (tmp_path / "preview.png").read_bytes()
    decoded_png(data)
    assert list(scratch.iterdir()) == []
    f.close()
    assert f._repr_png_() is None and f._repr_html_() is None


def test_repr_html_shows_the_figures_the_preview_and_escaped_header(tmp_path, image_path):
    path = str(shutil.copy(image_path, tmp_path / "scan.flt"))
    title = '<b>tip & "3"</b> \'A\''
    with kiv.open(path) as f:
        f.set("[Data Parameters]", "Title", title)
        f.save()
    f = kiv.open(path)
    page = f._repr_html_()

    stats = f.stats()
    assert stats["level"] == "plane"
    for figure in ("Sa", "Sq"):
        assert f"{figure} (plane-levelled)</th><td>{stats[figure]:.6g}<" in page
    rows, columns = f.image.shape
    assert f"{columns} &times; {rows} samples" in page
    width = f.header["[Data Parameters]"]["ScanRangeX"]
    assert f"{width.value:g} {width.unit} &times;" in page

    # Escaped (in any of HTML's spellings) and never as markup.
    assert title not in page and "<b>" not in page
    assert f"<td>{title}</td>" in html.unescape(page)
    shown = html.unescape(page)
    for section in list(f.header)[:3]:
        assert section in shown
        for key, value in f.header[section].items():
            if isinstance(value, str):
                assert f"<th>{key}</th><td>{value}</td>" in shown

    (encoded,) = DATA_URI.findall(page)
    data = base64.b64decode(encoded, validate=True)
    assert data == f._repr_png_()
    decoded_png(data)


def test_repr_html_of_force_curves_counts_series_and_points(force_path):
    f = kiv.open(force_path)
    page = f._repr_html_()
    points, values = f.curves.shape
    assert f"Series</th><td>{values // 4}<" in page and f"Points</th><td>{points}<" in page
    (encoded,) = DATA_URI.findall(page)
    assert base64.b64decode(encoded, validate=True) == f._repr_png_()
