"""Levelling and height parameters against closed forms and against numpy implementations of the
definitions in KivAnalysis's headers, written here independently of the library."""
import math
import pathlib
import sys
import threading

import numpy
import pytest

import kiv

ROWS, COLUMNS = 48, 64
EPS32 = float(numpy.finfo(numpy.float32).eps)


def write_image_file(path, samples, scan_range="10.0000 \xb5m"):
    """A minimal image file in the instrument's layout: the header padded to DataOffset, then
    little-endian float32 rows."""
    rows, columns = samples.shape
    lines = ["[Data Version]", "DataVersion=2", "", "[Data Parameters]", "DataOffset=  4096",
             f"ScanRangeX={scan_range}", f"ScanRangeY={scan_range}",
             f"ResolutionX={columns}", f"ResolutionY={rows}", "", "[Data]"]
    header = ("\r\n".join(lines) + "\r\n").encode("latin-1")
    pathlib.Path(path).write_bytes(header.ljust(4096, b"\0") + samples.astype("<f4").tobytes())
    return path


# --- numpy implementations of the definitions, in float64 -------------------------------------

def fit_surface(z, usable, degree):
    """Least-squares 2-D polynomial of total degree `degree` in the column and the row."""
    row, col = numpy.indices(z.shape, dtype=float)
    # Centred and scaled coordinates span the same polynomials and keep lstsq well conditioned.
    x = (col - (z.shape[1] - 1) / 2) / z.shape[1]
    y = (row - (z.shape[0] - 1) / 2) / z.shape[0]
    terms = [x ** i * y ** j for i in range(degree + 1) for j in range(degree + 1 - i)]
    design = numpy.stack([term[usable] for term in terms], axis=1)
    coefficients = numpy.linalg.lstsq(design, z[usable], rcond=None)[0]
    return sum(c * term for c, term in zip(coefficients, terms))


def median_difference_offsets(z, usable):
    offsets = numpy.zeros(z.shape[0])
    for index in range(1, z.shape[0]):
        both = usable[index] & usable[index - 1]
        step = numpy.median(z[index][both] - z[index - 1][both]) if both.any() else 0.0
        offsets[index] = offsets[index - 1] + step
    return offsets[:, None] * numpy.ones_like(z)


def background(z, usable, step):
    kind, _, argument = step.partition(":")
    if kind in ("plane", "poly"):
        return fit_surface(z, usable, int(argument or 1))
    if kind == "zero":
        # Over every finite sample: a shift is no fit, and the mask does not shape it.
        finite = numpy.isfinite(z)
        return numpy.full_like(z, {"min": numpy.min, "mean": numpy.mean}[argument](z[finite]))
    if argument == "mediandiff":
        return median_difference_offsets(z, usable)
    name, _, parameter = argument.partition(":")
    fits = {"": lambda x, v: numpy.median(v), "median": lambda x, v: numpy.median(v),
            "mean": lambda x, v: numpy.mean(v),
            "quantile": lambda x, v: numpy.quantile(v, float(parameter)),
            "poly": lambda x, v: numpy.poly1d(numpy.polyfit(x, v, int(parameter)))}
    x = numpy.arange(z.shape[1]) - (z.shape[1] - 1) / 2
    rows = []
    for values, use in zip(z, usable):
        fit = fits[name](x[use], values[use]) if use.any() else 0.0
        rows.append(numpy.broadcast_to(fit(x) if callable(fit) else fit, x.shape))
    return numpy.array(rows)


def reference_level(z, method, mask=None):
    z = numpy.asarray(z, dtype=float).copy()
    finite = numpy.isfinite(z)
    usable = finite if mask is None else finite & ~mask
    if method != "none":
        for step in method.split("+"):
            z[finite] -= background(z, usable, step)[finite]
    return z


def surface_area(z, pixel):
    """Four triangles a pixel from its centre to its corners, each corner the mean of the four
    pixels around it, the border repeated outwards; with the mask of the pixels counted."""
    px, py = pixel
    padded = numpy.pad(z, 1, mode="edge")
    corners = (padded[:-1, :-1] + padded[:-1, 1:] + padded[1:, :-1] + padded[1:, 1:]) / 4
    centre = numpy.stack([numpy.zeros_like(z), numpy.zeros_like(z), z], axis=-1)

    def corner(dr, dc, sx, sy):
        height = corners[dr:dr + z.shape[0], dc:dc + z.shape[1]]
        return numpy.stack([numpy.full_like(z, sx * px / 2), numpy.full_like(z, sy * py / 2),
                            height], axis=-1) - centre

    ring = [corner(0, 0, -1, -1), corner(0, 1, 1, -1), corner(1, 1, 1, 1), corner(1, 0, -1, 1)]
    area = sum(numpy.linalg.norm(numpy.cross(ring[k], ring[(k + 1) % 4]), axis=-1) / 2
               for k in range(4))
    finite = numpy.isfinite(padded)
    whole = numpy.ones_like(z, dtype=bool)
    for dr in range(3):
        for dc in range(3):
            whole &= finite[dr:dr + z.shape[0], dc:dc + z.shape[1]]
    return area, whole


@numpy.errstate(invalid="ignore", divide="ignore")  # infinities and a flat surface's 0 / 0
def reference_stats(z, mask=None, pixel=None, metres_per_unit=None):
    z = numpy.asarray(z, dtype=float)
    used = numpy.isfinite(z) if mask is None else numpy.isfinite(z) & ~mask
    values = z[used]
    mean = values.mean()
    deviation = values - mean
    sq = math.sqrt(numpy.mean(deviation ** 2))
    figures = {
        "count": values.size, "excluded": z.size - values.size, "mean": mean,
        "median": numpy.median(values), "min": values.min(), "max": values.max(),
        "Sa": numpy.mean(numpy.abs(deviation)), "Sq": sq,
        "Ssk": numpy.mean(deviation ** 3) / sq ** 3, "Sku": numpy.mean(deviation ** 4) / sq ** 4,
        "Sp": values.max() - mean, "Sv": mean - values.min(),
        "Sz": values.max() - values.min(), "Sdq": None, "Sdr": None, "area": None,
    }
    if pixel is not None and metres_per_unit is not None:
        metres = z * metres_per_unit
        gy, gx = numpy.gradient(metres, pixel[1], pixel[0])
        squared = gx ** 2 + gy ** 2
        sloped = used & numpy.isfinite(squared)
        figures["Sdq"] = math.sqrt(squared[sloped].mean())
        area, whole = surface_area(metres, pixel)
        counted = used & whole
        figures["area"] = area[counted].sum()
        figures["Sdr"] = figures["area"] / (counted.sum() * pixel[0] * pixel[1]) - 1
    return figures


def assert_figures_match(got, want, rel=1e-9):
    """rel for every figure; heights near zero (a levelled mean) against rel * Sq instead."""
    heights = rel * want["Sq"]
    for name, expected in want.items():
        if expected is None or isinstance(expected, int):
            assert got[name] == expected, name
        elif name in ("mean", "median", "min", "max", "Sa", "Sq", "Sp", "Sv", "Sz"):
            assert got[name] == pytest.approx(expected, rel=rel, abs=heights), name
        elif name == "area":
            assert got[name] == pytest.approx(expected, rel=rel), name
        else:
            assert got[name] == pytest.approx(expected, rel=rel, abs=rel), name


def assert_levelled(got, want, source):
    """float32 output: rounding of the result plus fits that agree to double precision."""
    assert got.dtype == numpy.float32 and got.shape == want.shape
    numpy.testing.assert_array_equal(numpy.isnan(got), numpy.isnan(want))
    finite = numpy.isfinite(want)
    tolerance = EPS32 * numpy.abs(want[finite]).max() + 1e-10 * numpy.abs(source[finite]).max()
    numpy.testing.assert_allclose(got[finite], want[finite], rtol=0, atol=tolerance)


# --- surfaces ---------------------------------------------------------------------------------

def tilted_cosine(amplitude=3.0, periods=4):
    """A tilted plane plus a cosine of whole periods along a row, even about the centre column:
    orthogonal to 1, the column and the row, so that a plane fit leaves the cosine alone."""
    row, col = numpy.indices((ROWS, COLUMNS), dtype=float)
    u = col - (COLUMNS - 1) / 2
    wave = amplitude * numpy.cos(2 * numpy.pi * periods * u / COLUMNS)
    return (5.0 + 0.3 * col - 0.2 * row + wave).astype(numpy.float32), wave


def rough_with_holes():
    """A curved, tilted, row-shifted rough surface with NaN dropouts and an infinity."""
    generator = numpy.random.default_rng(11)
    row, col = numpy.indices((ROWS, COLUMNS), dtype=float)
    z = (2.0 + 0.05 * col + 0.08 * row + 0.002 * (col - 30) ** 2 - 0.001 * row * col
         + generator.normal(0, 1, (ROWS, 1)) + 0.3 * generator.standard_normal((ROWS, COLUMNS)))
    z[5, 7] = z[20, 30:34] = z[40, 0] = numpy.nan
    z[33, 50] = numpy.inf
    return z.astype(numpy.float32)


def feature_mask():
    mask = numpy.zeros((ROWS, COLUMNS), dtype=bool)
    mask[10:18, 40:52] = True
    return mask


METHODS = ["none", "plane", "poly:1", "poly:2", "poly:3", "poly:4", "rows", "rows:mean",
           "rows:quantile:0.25", "rows:poly:0", "rows:poly:1", "rows:poly:3", "rows:mediandiff",
           "zero:min", "zero:mean", "rows:mediandiff+plane", "rows:poly:2+poly:2+zero:min"]


@pytest.mark.parametrize("masked", [False, True], ids=["all", "masked"])
@pytest.mark.parametrize("method", METHODS)
def test_levelling_matches_numpy(method, masked):
    z = rough_with_holes()
    mask = feature_mask() if masked else None
    got = kiv.level(z, method, mask=mask)
    assert_levelled(got, reference_level(z, method, mask), z)
    # The input stays as it was and dropouts stay where they were.
    assert numpy.isposinf(got[33, 50]) and numpy.isnan(z[5, 7])


def test_plane_levelling_leaves_the_orthogonal_cosine(tmp_path):
    z, wave = tilted_cosine()
    # Against the exact wave, the rounding of the tilted input to float32 counts too.
    numpy.testing.assert_allclose(kiv.level(z, "plane"), wave, rtol=0,
                                  atol=2 * EPS32 * numpy.abs(z).max())
    # Whole periods sampled evenly: mean cos^2 = 1/2, cos^3 = 0, cos^4 = 3/8 exactly, so
    # Sq = A / sqrt(2), Ssk = 0, Sku = 1.5. Mean |cos| is 2/pi only in the continuous limit.
    figures = kiv.open(str(write_image_file(tmp_path / "cosine.flt", z))).stats("plane")
    amplitude = 3.0
    assert figures["Sq"] == pytest.approx(amplitude / math.sqrt(2), rel=1e-6)
    assert figures["Ssk"] == pytest.approx(0.0, abs=1e-5)
    assert figures["Sku"] == pytest.approx(1.5, rel=1e-5)
    # 16 samples a period put the sampled mean 0.6 % above it.
    assert figures["Sa"] == pytest.approx(2 * amplitude / math.pi, rel=1e-2)


def test_median_differences_undo_row_offsets_exactly():
    generator = numpy.random.default_rng(3)
    # Quarter steps and small offsets keep every value and difference exact in float32.
    base = numpy.tile(generator.integers(-40, 40, COLUMNS) / 4, (ROWS, 1))
    offsets = numpy.concatenate([[0.0], generator.integers(-20, 20, ROWS - 1) / 2])
    z = (base + offsets[:, None]).astype(numpy.float32)
    numpy.testing.assert_array_equal(kiv.level(z, "rows:mediandiff"), base.astype(numpy.float32))


def gaussian_field():
    generator = numpy.random.default_rng(2024)
    return (0.7 * generator.standard_normal((256, 256)) + 4.0).astype(numpy.float32)


def test_gaussian_field_has_gaussian_moments():
    figures = kiv.stats(gaussian_field())
    # Sampling spread at N = 65536: sqrt(24/N) = 0.02 for Sku, sqrt(6/N) = 0.01 for Ssk.
    assert figures["Sku"] == pytest.approx(3.0, abs=0.1)
    assert figures["Ssk"] == pytest.approx(0.0, abs=0.05)
    assert figures["Sq"] == pytest.approx(0.7, rel=0.02)


PIXEL = (40e-9, 55e-9)


@pytest.mark.parametrize("name, surface, mask, lateral", [
    ("tilted cosine", lambda: tilted_cosine()[0], None, (PIXEL, "nm", 1e-9)),
    ("levelled cosine", lambda: kiv.level(tilted_cosine()[0]), None, ((2e-7, 2e-7), "um", 1e-6)),
    ("rough with holes", rough_with_holes, None, (PIXEL, "nm", 1e-9)),
    ("holes and mask", rough_with_holes, feature_mask(), (PIXEL, "\u00c5", 1e-10)),
    ("gaussian", gaussian_field, None, None),
    ("flat", lambda: numpy.full((5, 6), 2.5, dtype=numpy.float32), None, (PIXEL, "m", 1.0)),
])
def test_figures_match_numpy(name, surface, mask, lateral):
    z = surface()
    if lateral is None:
        got = kiv.stats(z, mask=mask)
        want = reference_stats(z, mask)
    else:
        pixel, unit, metres = lateral
        got = kiv.stats(z, pixel_size=pixel, z_unit=unit, mask=mask)
        want = reference_stats(z, mask, pixel, metres)
        assert (got["pixel_size"], got["z_unit"]) == (pixel, unit)
    if want["Sq"] == 0:
        assert math.isnan(got["Ssk"]) and math.isnan(got["Sku"])
        del want["Ssk"], want["Sku"]
    assert_figures_match(got, want)


def test_file_stats_level_in_double_and_exclude(tmp_path):
    z = rough_with_holes()
    path = str(write_image_file(tmp_path / "rough.flt", z, scan_range="6.4000 \xb5m"))
    pixel = (6.4e-6 / COLUMNS, 6.4e-6 / ROWS)
    with kiv.open(path) as f:
        figures = f.stats("rows:mediandiff+plane", z_unit="nm")
        assert (figures["file"], figures["level"]) == (path, "rows:mediandiff+plane")
        assert figures["pixel_size"] == pytest.approx(pixel, rel=1e-12)
        levelled = reference_level(z, "rows:mediandiff+plane")
        want = reference_stats(levelled, None, figures["pixel_size"], 1e-9)
        assert_figures_match({k: figures[k] for k in want}, want)

        # A threshold applies to the surface as each step leaves it; with one step that is the
        # raw surface for the fit and the levelled one for the figures.
        above = float(numpy.nanpercentile(z[numpy.isfinite(z)], 80))
        thresholded = f.stats("plane", exclude_above=above)
        fitted = reference_level(z, "plane", mask=z > above)
        # The figures leave out what the exclusion leaves out of the levelled surface.
        want = reference_stats(fitted, mask=fitted > above)
        assert_figures_match({k: thresholded[k] for k in want}, want)
        assert thresholded["z_unit"] is None


def test_a_profile_of_a_plane_follows_the_plane(tmp_path):
    row, col = numpy.indices((ROWS, COLUMNS), dtype=float)
    z = (1.0 + 0.25 * col - 0.5 * row).astype(numpy.float32)
    path = str(write_image_file(tmp_path / "plane.flt", z, scan_range="6.4000 \xb5m"))
    with kiv.open(path) as f:
        distance, height = f.profile(row=-3)
        numpy.testing.assert_array_equal(height, z[ROWS - 3].astype(float))
        pixel = f.pixel_size
        numpy.testing.assert_allclose(distance, numpy.arange(COLUMNS) * pixel[0], rtol=1e-12)
        column = f.profile(col=5)
        assert column.metres and column.level == "none"
        numpy.testing.assert_array_equal(column.height, z[:, 5].astype(float))
        # Bilinear sampling reproduces a plane exactly: points one pixel apart up to the length.
        start, end = (1.5, 2.25), (40.2, 30.7)
        line = f.profile(start=start, end=end)
        length = math.hypot(end[0] - start[0], end[1] - start[1])
        k = numpy.arange(math.floor(length) + 1)
        x = start[0] + k * (end[0] - start[0]) / length
        y = start[1] + k * (end[1] - start[1]) / length
        numpy.testing.assert_allclose(line.height, 1.0 + 0.25 * x - 0.5 * y, atol=1e-5)
        # The pixels are not square: a step of one pixel along the line is this long in metres.
        step = math.hypot((end[0] - start[0]) * pixel[0], (end[1] - start[1]) * pixel[1]) / length
        numpy.testing.assert_allclose(line.distance, k * step, rtol=1e-12)
        in_metres = f.profile(start=(start[0] * pixel[0], start[1] * pixel[1]),
                              end=(end[0] * pixel[0], end[1] * pixel[1]), metres=True)
        numpy.testing.assert_allclose(in_metres.height, line.height, atol=1e-9)
        # Levelled first: a plane levels to zero everywhere along the row.
        assert numpy.abs(f.profile(row=7, level="plane").height).max() < 1e-5


def test_export_levels_through_the_library(tmp_path, image_path):
    with kiv.open(image_path) as f:
        f.export(str(tmp_path / "flat.npy"), "npy", level="rows:mediandiff+plane")
        f.export(str(tmp_path / "raw.npy"), "npy")
        numpy.testing.assert_array_equal(numpy.load(tmp_path / "flat.npy"),
                                         kiv.level(f.image, "rows:mediandiff+plane"))
        numpy.testing.assert_array_equal(numpy.load(tmp_path / "raw.npy"), f.image)


@pytest.mark.parametrize("call, error, message", [
    (lambda: kiv.level(numpy.zeros((4, 4)), "plane:2"), ValueError, '"plane:2"'),
    (lambda: kiv.level(numpy.zeros((4, 4)), "poly:7"), ValueError, '"poly:7"'),
    (lambda: kiv.level(numpy.zeros(16)), ValueError, r"2-D.*\(16,\)"),
    (lambda: kiv.level(numpy.zeros((4, 4)), mask=numpy.zeros((4, 5), bool)), ValueError,
     r"mask has shape \(4, 5\), the array \(4, 4\)"),
    (lambda: kiv.stats(numpy.zeros((4, 4)), pixel_size=(1e-9,)), ValueError, "pixel_size"),
    (lambda: kiv.stats(numpy.zeros((4, 4)), pixel_size=-1e-9), ValueError, "positive"),
    (lambda: kiv.stats(numpy.zeros((4, 4)), z_unit="s"), ValueError, '"s" is not a length'),
    (lambda: kiv.stats(numpy.zeros((4, 4)), z_unit="parsec-ish"), ValueError, "not a length"),
])
def test_bad_arguments_raise_value_error(call, error, message):
    with pytest.raises(error, match=message):
        call()


@pytest.mark.parametrize("arguments, error, message", [
    ({"row": 1, "col": 2}, ValueError, "exactly one of row, col or start and end"),
    ({"start": (0, 0)}, ValueError, "exactly one"),
    ({"row": 1, "metres": True}, ValueError, "metres applies to start and end"),
    ({"row": 128}, kiv.Error, "row"),
    ({"row": -129}, kiv.Error, "row -129 is outside the image's 128 rows"),
    ({"row": 0, "level": "sideways"}, ValueError, '"sideways"'),
])
def test_bad_profiles_name_the_file(image_path, arguments, error, message):
    with kiv.open(image_path) as f, pytest.raises(error, match=message) as raised:
        f.profile(**arguments)
    if error is kiv.Error:
        assert str(raised.value).startswith(image_path)


def test_file_stats_refuse_bad_exclusions(image_path):
    with kiv.open(image_path) as f:
        with pytest.raises(ValueError):
            f.stats(exclude_above_percentile=101)
        for unit in ("s", "\u03a9"):
            with pytest.raises(kiv.Error, match=f'{image_path}: .*"{unit}" is not a length'):
                f.stats(z_unit=unit)


def test_level_lets_other_threads_run():
    """With a switch interval far longer than the test, this thread gives the GIL up only where
    it blocks or where kiv lets go of it; the other thread, woken while this one holds the GIL,
    can only run inside kiv.level."""
    z = numpy.random.default_rng(5).standard_normal((1500, 1500)).astype(numpy.float32)
    gate, ran = threading.Lock(), []
    gate.acquire()
    worker = threading.Thread(target=lambda: (gate.acquire(), ran.append(True)))
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1000)
    try:
        worker.start()  # It blocks on the gate, giving the GIL back.
        gate.release()
        for _ in range(200):
            kiv.level(z, "plane")
            if ran:
                break
        assert ran, "kiv.level held the GIL throughout"
    finally:
        sys.setswitchinterval(interval)
        worker.join()
