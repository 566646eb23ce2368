#!/usr/bin/env python3
"""Writes the reader's corpus of small Pelrix files, valid and broken, and README.txt, which
lists each file with why it is there and the exact outcome that opening it must have.

Run it from anywhere: python3 tests/PelrixDataFile/corpus/make_corpus.py
The files are checked in; rerun this only to change them, then regenerate the dumps of the
files that open (see README.txt).

Outcomes in README.txt: "opens" (the tree must match NAME.dump byte for byte), or
ErrorClass: "message", the message between the first and the last double quote, with {file}
standing for the path the file was opened by. The
allocation limit during the corpus run is 64 MiB (67108864 bytes).
"""

import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
MICRO = b"\xb5"


def lines(*texts):
    """Header lines ending in CR LF, as the format's own writer ends them."""
    return b"".join((t if isinstance(t, bytes) else t.encode("latin-1")) + b"\r\n" for t in texts)


def floats(*values):
    return struct.pack("<%df" % len(values), *values)


def image(header, offset, block):
    assert len(header) <= offset, "the header does not fit before the data offset"
    return header + b"\0" * (offset - len(header)) + block


def image_header(res_x, res_y, offset, *extra):
    return lines(
        "[Data Version]",
        "Version=1",
        "",
        "[Data Parameters]",
        "DataOffset=%s" % offset,
        b"ScanRangeX=10 " + MICRO + b"m",
        "ScanRangeY=2.5 nm",
        "ResolutionX=%s" % res_x,
        "ResolutionY=%s" % res_y,
        "Color Table Index=4",
        *extra,
        "",
        "[Data]",
    )


def force(series, points, data, *extra):
    header = lines(
        "[Point Spectroscopy Data]",
        b"Approach Rate=750.0000 " + MICRO + b"m/s",
        b"Z Start=0.3488 " + MICRO + b"m",
        "",
        "[Series layout]",
        *(["Series Number=%s" % series] if series is not None else []),
        "Points Number=%s" % points,
        *extra,
    )
    return header + b"Z,Force,Z,Force\n" + lines("", "[Data]") + data


def garbage(count, seed):
    """Deterministic bytes without a line feed, so no line can be "[Data]"."""
    state = seed
    out = bytearray()
    while len(out) < count:
        state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
        byte = state >> 56
        if byte != 10:
            out.append(byte)
    return bytes(out)


NO_DATA_LINE = 'DataFileError: "{file}: the header ends without a "[Data]" line"'
MISSING_SERIES = 'DataFileError: "ERROR: Missing Series Number. "'

# (file name, why it is here, expected outcome, bytes)
CORPUS = [
    ("image-3x2.flt", "a valid 3 x 2 image at DataOffset 256, with unit values and unlisted sections",
     "opens",
     image(image_header(3, 2, 256, "", "[Piezo Parameters]", b"X Sensitivity=0.3488 " + MICRO + b"m/V",
                        "", "[System Info]", "Serial=FX-0042"),
           256, floats(1.0, -2.5, 3.25, 0.0, 1e-3, 6.5e10))),
    ("image-hex-resolution.flt", "resolutions 0x3 and 0x2 read as 3 and 2 by the header's hex rule, 0x1F as 16",
     "opens",
     image(lines("[Data Parameters]", "DataOffset=128", "ResolutionX=0x3", "ResolutionY=0x2",
                 "Color Table Index=0x1F", "[Data]"),
           128, floats(1, 2, 3, 4, 5, 6))),
    ("truncated-samples.flt", "the file ends 10 bytes into the 24-byte sample block, 2 bytes into its third float",
     "opens",
     image(image_header(3, 2, 256), 256, floats(1.5, 2.5, 0.1)[:10])),
    ("offset-past-end.flt", "DataOffset 4096 lies past the end of the file",
     "opens",
     image_header(3, 2, 4096)),
    ("zero-resolution.flt", "ResolutionX is 0: no samples are read",
     "opens",
     image(image_header(0, 2, 256), 256, floats(1, 2, 3, 4, 5, 6))),
    ("no-data-offset.flt", "no DataOffset: the samples are read from byte 0, the header text itself",
     "opens",
     lines("[Data Parameters]", "ResolutionX=2", "ResolutionY=1", "[Data]")),
    ("duplicate-section.flt", "[Data Parameters] appears twice: one assertion, the values merge into the first",
     "opens",
     image(lines("[Data Parameters]", "DataOffset=200", "ResolutionX=2", "[Data Version]", "Version=1",
                 "[Data Parameters]", "ResolutionY=1", "ResolutionX=1", "[Data]"),
           200, floats(7, 8))),
    ("odd-lines.flt", "values before any section, comma lines, bracketed values, CRs inside lines, bare keys",
     "opens",
     b"Orphan=1\r\n\r\n[Data Version]\r\nComment=a, b\r\nTitle=[x]\r\nVer\rsion=  2   \r\n"
     b"\tTabbed\r\n\x0bVT=\x0bv\r\n[Data]\r\n"),
    ("nul-bytes.flt", "NUL bytes inside keys and values are kept as text",
     "opens",
     lines(b"[Data Version]", b"Ver\0sion=1\0x", b"[Data]")),
    ("data-line-at-end.flt", "the [Data] line is the last bytes of the file, without a line feed",
     "opens",
     lines("[Data Version]", "Version=1") + b"[Data]"),
    ("empty.flt", "zero bytes: nothing is read, the kind stays unknown",
     "opens",
     b""),
    ("force-1-series.flt", "a valid force file: 1 series, 3 points",
     "opens",
     force(1, 3, b"0.000000\t-0.012500\t1.500000\t2.000000\n1\t2\t3\t4\n-5.25\t6e2\t7.\t.5\n")),
    ("force-short-lines.flt", "a short line repeats its last value; a blank line ends the block",
     "opens",
     force(1, 5, b"1\t2\n7\n\n9\t9\t9\t9\n")),
    ("force-empty-token.flt", "two tabs in a row end the block and drop that line",
     "opens",
     force(2, 0, b"1\t2\t3\t4\t5\t6\t7\t8\n1\t\t3\t4\t5\t6\t7\t8\n")),
    ("force-huge-points.flt", "Points Number 2147483647 with two lines: only the two lines are read",
     "opens",
     force(1, 2147483647, b"1\t2\t3\t4\n5\t6\t7\t8\n")),
    ("force-section-on-line-11.flt", "[Point Spectroscopy Data] on line 11 is not seen: read as an image",
     "opens",
     lines(*["Note=%d" % i for i in range(10)]) + force(1, 1, b"1\t2\t3\t4\n")),
    ("no-data-line.flt", "the header never reaches a [Data] line",
     NO_DATA_LINE,
     lines("[Data Version]", "Version=1", "[Data Parameters]", "ResolutionX=2")),
    ("data-line-with-blank.flt", "\"[Data] \" with a trailing blank is a section, not the end of the header",
     NO_DATA_LINE,
     lines("[Data Version]", "[Data] ") + floats(1, 2)),
    ("cr-only-lines.flt", "lines ended by CR alone make one line, so no line is [Data]",
     NO_DATA_LINE,
     b"[Data Version]\rVersion=1\r[Data]\r"),
    ("binary-garbage.flt", "4 KiB of noise without a line feed",
     NO_DATA_LINE,
     garbage(4096, 12345)),
    ("negative-offset.flt", "DataOffset is -16",
     'DataFileError: "{file}: "DataOffset" is negative (-16)"',
     image_header(3, 2, -16) + floats(1, 2, 3, 4, 5, 6)),
    ("huge-resolution.flt", "100000 x 100000 samples, 40 GB, far over the limit",
     'AllocationFailed: "Attempt to allocate an image of 100000 x 100000 samples for {file} '
     '(40000000000 bytes, limit 67108864) failed"',
     image_header(100000, 100000, 512)),
    ("max-resolution.flt", "2147483647 x 2147483647 samples: the byte count must not overflow",
     'AllocationFailed: "Attempt to allocate an image of 2147483647 x 2147483647 samples for {file} '
     '(18446744056529682436 bytes, limit 67108864) failed"',
     image_header(2147483647, 2147483647, 512)),
    ("series-zero.flt", "Series Number is 0",
     MISSING_SERIES,
     force(0, 1, b"1\t2\t3\t4\n")),
    ("series-missing.flt", "no Series Number",
     MISSING_SERIES,
     force(None, 1, b"1\t2\t3\t4\n")),
    ("series-negative.flt", "Series Number is -2",
     MISSING_SERIES,
     force(-2, 1, b"1\t2\t3\t4\n")),
    ("huge-series.flt", "Series Number 2147483647: a one-byte line would fill 8589934588 columns",
     'AllocationFailed: "Attempt to allocate force curves of 8589934588 values a line for {file} '
     '(34359738392 bytes, limit 67108864) failed"',
     force(2147483647, 0, b"1\n")),
    ("unknown-unit.flt", "ScanRangeX=10 has no unit: the text \"10\" is looked up as one",
     'XUnitNotFound: "10 unit not found in the unit dictionary"',
     lines("[Data Parameters]", "ScanRangeX=10", "[Data]")),
    ("unit-text-the-unit-library-leaks.flt",
     "found by fuzzing: parsing m5.0s the unit library drops a name its lexer copied (a leak"
     " suppressed by that function's name alone)",
     'XUnitNotFound: "m5.0s unit not found in the unit dictionary"',
     lines("[Data Parameters]", "ScanRangeX=10 m5.0s", "[Data]")),
]


def main():
    listed = []
    for name, why, outcome, data in CORPUS:
        assert "|" not in why and "|" not in outcome and "\n" not in why + outcome
        with open(os.path.join(HERE, name), "wb") as out:
            out.write(data)
        listed.append("%s | %s | %s" % (name, why, outcome))
    with open(os.path.join(HERE, "README.txt"), "w", encoding="ascii") as out:
        out.write(
            "# Small Pelrix files for the reader's tests and its fuzz target, made by make_corpus.py.\n"
            "# One line a file: name | why it is here | the exact outcome of opening it for reading.\n"
            "# \"opens\": the file opens and its tree matches NAME.dump byte for byte. To regenerate the\n"
            "# dumps after an intended change, run from the repository root:\n"
            "#   KIV_UPDATE_GOLDEN=1 build-rt/bin/PelrixDataFileTests --gtest_filter='Corpus/*'\n"
            "# and review the diff. Otherwise ErrorClass: \"message\", the message between the first and\n"
            "# the last double quote, {file} standing for the path opened. The allocation limit is\n"
            "# 64 MiB (67108864 bytes) while the corpus is read.\n")
        for line in listed:
            out.write(line + "\n")


if __name__ == "__main__":
    main()
