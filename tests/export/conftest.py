"""Runs the built kiv (KIV_BINARY) and reads the samples straight from their bytes, so that every
export is compared with values that did not pass through kiv's own reader."""
import re
import sys
from pathlib import Path

import numpy as np
import pytest

sys.path.insert(0, str(Path(__file__).parents[1] / "common"))
from kiv_command import FORCE_SAMPLE, IMAGE_SAMPLE, SAMPLES, kiv_binary, run_kiv  # noqa: E402,F401


def export(source, fmt, output, *extra):
    result = run_kiv("export", source, "--to", fmt, "-o", output, *extra)
    assert result.returncode == 0, result.stderr
    return output


def header_value(path, key):
    text = Path(path).read_bytes().split(b"[Data]\r\n")[0].decode("latin-1")
    return re.search(r"^" + re.escape(key) + r"=\s*(.*?)\s*$", text, re.M).group(1)


def image_samples(path=IMAGE_SAMPLE):
    """The image block as the file format describes it: rows of little-endian float32 at
    DataOffset."""
    rows = int(header_value(path, "ResolutionY"))
    columns = int(header_value(path, "ResolutionX"))
    offset = int(header_value(path, "DataOffset"))
    return np.fromfile(path, dtype="<f4", count=rows * columns, offset=offset).reshape(rows, columns)


def force_table(path=FORCE_SAMPLE):
    """The labels line split at commas, and the tab-separated lines after [Data] as float32."""
    header, data = Path(path).read_bytes().split(b"[Data]\r\n", 1)
    labels_line = [line for line in header.decode("latin-1").splitlines()
                   if "," in line and "[" not in line][-1]
    labels = [label.strip() for label in labels_line.split(",")]
    rows = [[np.float32(value) for value in line.split("\t")]
            for line in data.decode("ascii").splitlines() if line]
    return labels, np.array(rows, dtype=np.float32)


def write_image_file(path, samples, scan_range="10.0000 \xb5m", title=None, z_unit=None):
    """A minimal image file in the instrument's layout, for shapes the samples lack."""
    rows, columns = samples.shape
    lines = ["[Data Version]", "DataVersion=2", "", "[Data Parameters]", "DataOffset=  4096",
             f"ScanRangeX={scan_range}", f"ScanRangeY={scan_range}",
             f"ResolutionX={columns}", f"ResolutionY={rows}"]
    if title:
        lines.append(f"Title={title}")
    if z_unit:
        lines.append(f"ZUnits={z_unit}")
    header = ("\r\n".join(lines + ["", "[Data]"]) + "\r\n").encode("latin-1")
    Path(path).write_bytes(header.ljust(4096, b"\0") + samples.astype("<f4").tobytes())
    return path


def plane_levelled(samples):
    """The samples minus their least-squares plane a + b * column + c * row, fitted in float64."""
    rows, columns = np.indices(samples.shape)
    design = np.column_stack([np.ones(samples.size), columns.ravel(), rows.ravel()])
    coefficients = np.linalg.lstsq(design, samples.ravel().astype(np.float64), rcond=None)[0]
    return samples - (design @ coefficients).reshape(samples.shape)
