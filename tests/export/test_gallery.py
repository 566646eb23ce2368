"""kiv gallery through the built kiv: what the site holds, and what a later run redoes."""
import json
import os
import shutil
from html.parser import HTMLParser

import numpy as np
import pytest

from conftest import FORCE_SAMPLE, IMAGE_SAMPLE, plane_levelled, run_kiv, write_image_file

OLD_NS = 1_000_000_000  # a time no output of this run can carry


class GalleryData(HTMLParser):
    """The JSON in the page's <script type="application/json" id="gallery-data">."""

    def __init__(self):
        super().__init__()
        self.inside = False
        self.text = ""

    def handle_starttag(self, tag, attrs):
        self.inside = tag == "script" and dict(attrs).get("id") == "gallery-data"

    def handle_endtag(self, tag):
        self.inside = False

    def handle_data(self, data):
        if self.inside:
            self.text += data


def gallery_data(site):
    parser = GalleryData()
    parser.feed((site / "index.html").read_text(encoding="utf-8"))
    return json.loads(parser.text)


def scan_tree(root):
    """Good scans in a tree, as relative path -> samples (None for the force file)."""
    rng = np.random.default_rng(7)
    tilted = (rng.normal(size=(40, 48)) + np.arange(48) * 0.5).astype(np.float32)
    (root / "sub" / "deeper").mkdir(parents=True)
    shutil.copy(IMAGE_SAMPLE, root / "top.flt")
    write_image_file(root / "sub" / "tilted scan.FLT", tilted, title="Tilted <b>&")
    shutil.copy(FORCE_SAMPLE, root / "sub" / "deeper" / "force.flt")
    (root / "notes.txt").write_text("not a scan")
    return {"top.flt": "image", "sub/tilted scan.FLT": tilted, "sub/deeper/force.flt": None}


def outputs(site):
    return {path for path in site.rglob("*") if path.is_file()} - {
        site / "index.html", site / ".kiv-gallery.json"}


def test_site_of_a_tree_shows_every_good_scan_and_each_failure_once(tmp_path):
    root, site = tmp_path / "scans", tmp_path / "site"
    good = scan_tree(root)
    (root / "sub" / "broken.flt").write_bytes(b"[Data Version]\r\n[Data]\r\n")
    result = run_kiv("gallery", root, "-o", site, "-j", 2)
    assert result.returncode == 1
    [line] = result.stderr.splitlines()
    assert line.startswith(f"kiv: {root}/sub/broken.flt: ")
    data = gallery_data(site)
    assert data["failures"] == [{"path": "sub/broken.flt",
                                 "reason": line.removeprefix(f"kiv: {root}/sub/broken.flt: ")}]
    cards = {card["path"]: card for card in data["cards"]}
    assert set(cards) == set(good)
    assert outputs(site) == {site / (path + ext) for path in good for ext in (".png", ".html")}
    for path, card in cards.items():
        assert card["page"] == path + ".html" and card["preview"] == path + ".png"
        # The preview is the png export's, levelled as it is.
        export = tmp_path / "export.png"
        assert run_kiv("export", root / path, "--to", "png", "--force", "-o", export).returncode == 0
        assert (site / card["preview"]).read_bytes() == export.read_bytes()

    tilted = cards["sub/tilted scan.FLT"]
    levelled = plane_levelled(good["sub/tilted scan.FLT"]).astype(np.float64)
    deviations = levelled - levelled.mean()
    assert tilted["Sa"] == pytest.approx(np.abs(deviations).mean(), rel=1e-5)
    assert tilted["Sq"] == pytest.approx(np.sqrt((deviations ** 2).mean()), rel=1e-5)
    assert tilted["title"] == "Tilted <b>&" and tilted["resolution"] == "48 \u00d7 40"
    assert ["Data Parameters/ResolutionX", "48"] in tilted["header"]
    top = cards["top.flt"]
    assert (top["channel"], top["date"], top["time"]) == ("Topography", "2024-03-18", "14:05:09")
    assert top["scanSize"] == "10 \u00b5m \u00d7 10 \u00b5m"
    force = cards["sub/deeper/force.flt"]
    assert force["kind"] == "force" and force["Sa"] is None and force["Sq"] is None


def stamp_old(paths):
    for path in paths:
        os.utime(path, ns=(OLD_NS, OLD_NS))


def redone(paths):
    return {path for path in paths if path.stat().st_mtime_ns != OLD_NS}


def test_a_later_run_redoes_only_changed_scans_and_removes_those_gone(tmp_path):
    root, site = tmp_path / "scans", tmp_path / "site"
    scan_tree(root)
    assert run_kiv("gallery", root, "-o", site).returncode == 0
    made = outputs(site)
    stamp_old(made)

    unchanged = run_kiv("gallery", root, "-o", site)
    assert unchanged.returncode == 0 and unchanged.stderr == ""
    assert redone(made) == set()
    assert {card["path"] for card in gallery_data(site)["cards"]} == {
        "top.flt", "sub/tilted scan.FLT", "sub/deeper/force.flt"}

    os.utime(root / "top.flt", ns=(OLD_NS, OLD_NS))
    assert run_kiv("gallery", root, "-o", site).returncode == 0
    assert redone(made) == {site / "top.flt.png", site / "top.flt.html"}

    stamp_old(made)
    (root / "sub" / "deeper" / "force.flt").unlink()
    assert run_kiv("gallery", root, "-o", site).returncode == 0
    assert not (site / "sub" / "deeper").exists()
    assert outputs(site) == made - {site / "sub/deeper/force.flt.png",
                                    site / "sub/deeper/force.flt.html"}
    assert redone(outputs(site)) == set()
    assert "sub/deeper/force.flt" not in {card["path"] for card in gallery_data(site)["cards"]}

    assert run_kiv("gallery", root, "-o", site, "--force").returncode == 0
    assert redone(outputs(site)) == outputs(site)


@pytest.mark.parametrize("arguments, status", [
    (["gallery", "scans"], 2),
    (["gallery", "-o", "site"], 2),
    (["gallery", "scans", "-o", "site", "-j", "0"], 2),
    (["gallery", "scans", "missing", "-o", "site"], 1),
])
def test_a_run_that_cannot_start_is_one_line_and_makes_nothing(tmp_path, arguments, status):
    (tmp_path / "scans").mkdir()
    result = run_kiv(*arguments, cwd=tmp_path)
    assert result.returncode == status
    assert len(result.stderr.splitlines()) == 1
    assert not (tmp_path / "site").exists()
