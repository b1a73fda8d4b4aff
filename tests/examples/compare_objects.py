"""compare_objects.py PROGRAM DATA: compare the tables of `measure` with scikit-image's, property by
property, and its forms with each other. Prints what differs; the exit status says whether."""

import csv
import io
import json
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as xml
from pathlib import Path

import numpy as np
from scipy.spatial.distance import pdist
from skimage import io as pictures
from skimage import measure

program, data = sys.argv[1], Path(sys.argv[2])
folder = Path(tempfile.mkdtemp())
failures = 0


def run(path, *options):
    command = [program, "--quiet", "--objects", *options, str(path)]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout.decode()


def check(what, own, other, tolerance=1e-9):
    global failures
    own, other = np.asarray(own, float), np.asarray(other, float)
    close = np.isclose(own, other, rtol=tolerance, atol=1e-9, equal_nan=True)
    if own.shape != other.shape or not close.all():
        failures += 1
        at = np.argmin(close) if own.shape == other.shape else 0
        print(f"{what}: {own.shape} {other.shape}, own {own[at]}, theirs {other[at]}, "
              f"{np.count_nonzero(~close)} differ")


def quantile(values, share):  # the value of rank n * share, rounded half up
    return np.sort(values)[min(int(np.floor(len(values) * share + 0.5)), len(values) - 1)]


def feret(image):
    """Of the object itself; feret_diameter_max is that of its convex image, which is larger."""
    lines = np.vstack(measure.find_contours(np.pad(image, 2), 0.5, fully_connected="high"))
    return pdist(lines).max()


def theirs(region, width):
    """What scikit-image says of an object, by the names of our columns."""
    y0, x0, y1, x1 = region.bbox
    values = region.intensity_image[region.image].astype(float)
    rows, columns = region.coords.T
    weights = values / values.sum()
    own = {
        "area": region.area,
        "first": rows[0] * width + columns[0],
        "x0": x0, "y0": y0, "x1": x1 - 1, "y1": y1 - 1,
        "x": region.centroid[1], "y": region.centroid[0],
        "extent": region.extent,
        "diameter": region.equivalent_diameter,
        "major_axis": region.major_axis_length,
        "minor_axis": region.minor_axis_length,
        "perimeter": region.perimeter,
        "perimeter_crofton": region.perimeter_crofton,
        "euler": region.euler_number,
        "holes": measure.label(np.pad(~region.image, 1, constant_values=True),
                               connectivity=1).max() - 1,
        "minimum": values.min(), "maximum": values.max(), "sum": values.sum(),
        "mean": values.mean(), "median": np.median(values),
        "stddev": values.std(ddof=1) if len(values) > 1 else np.nan,
        "lower_quartile": quantile(values, 0.25), "upper_quartile": quantile(values, 0.75),
        "wx": (columns * weights).sum(), "wy": (rows * weights).sum(),
        "convex_area": region.convex_area,
        "solidity": region.solidity,
        "feret_max": feret(region.image),
        "eccentricity": region.eccentricity,
        "orientation": np.pi / 2 - region.orientation,
    }
    return own


def compare(name, path, image, touch, threshold):
    table = list(csv.DictReader(io.StringIO(
        run(path, "--format=csv", "--properties=all", f"--touch={touch}",
            f"--threshold={threshold}"), newline="")))
    found = measure.label(image > threshold, connectivity=1 if touch == 4 else 2)
    regions = measure.regionprops(found, image)
    if len(table) != len(regions):
        raise SystemExit(f"{name}: {len(table)} objects, not {len(regions)}")
    # Both number them by their first pixels.
    other = [theirs(region, image.shape[1]) for region in regions]
    for column in other[0] if other else []:
        own = np.array([float(row[column]) for row in table])
        reference = np.array([row[column] for row in other], float)
        known = np.ones(len(own), bool)
        if column in ("orientation", "eccentricity"):
            # Rounding decides about the axis of what has none.
            known = np.array([row["major_axis"] > row["minor_axis"] * (1 + 1e-9) for row in other])
        if column == "orientation":  # axes have no direction
            # In its branch for diagonal axes scikit-image 0.19 has the other sign.
            known &= np.abs(np.abs(np.pi / 2 - reference) - np.pi / 4) > 1e-12
            difference = (own - reference + np.pi / 2) % np.pi - np.pi / 2
            check(f"{name}: {column}", difference[known], np.zeros(known.sum()), 1e-7)
            continue
        check(f"{name}: {column}", own[known], reference[known])


def pgm(name, image):
    path = folder / name
    high = 255 if image.dtype == np.uint8 else 65535
    path.write_bytes(b"P5 %d %d %d\n" % (*image.shape[::-1], high)
                     + image.astype(image.dtype.newbyteorder(">")).tobytes())
    return path


def blobs(height, width, seed, smooth):
    image = np.random.RandomState(seed).randint(1, 200, (height, width)).astype(float)
    for _ in range(smooth):
        padded = np.pad(image, 1, mode="edge")
        image = sum(padded[y:y + height, x:x + width] for y in range(3) for x in range(3)) / 9
    return image.astype(np.uint8)


for seed, (height, width, smooth) in enumerate(
        [(60, 90, 0), (80, 70, 1), (120, 90, 3), (1, 200, 0), (150, 1, 0), (1, 1, 0)]):
    image = blobs(height, width, seed, smooth)
    path = pgm(f"blobs{seed}.pgm", image)
    for touch in (4, 8):
        compare(f"blobs {seed}, {touch}", path, image, touch, 100)
for name, threshold in (("nuclei_u2os_16.tif", 412), ("mitotic_8.tif", 47),
                        ("nuclei_dsb_8.png", 22)):
    if (data / name).exists():
        image = pictures.imread(data / name)
        compare(name, data / name, image, 8, threshold)

# All forms have the same rows; a name with signs of all of them comes back.
path = pgm('a, "b" <c>&\td.pgm', blobs(20, 30, 9, 1))
options = ("--properties=all", "--threshold=100", "--pixel-size=0.3um")
rows = [list(row.values()) for row in
        csv.DictReader(io.StringIO(run(path, "--format=csv", *options), newline=""))]
as_json = [["nan" if value is None else value for value in row.values()]
           for row in json.loads(run(path, "--format=json", *options))["rows"]]
as_xml = [[a.text for a in row]
          for row in xml.fromstring(run(path, "--format=xml", *options)).findall("row")]
as_tsv = [line.split("\t") for line in
          run(path, "--format=tsv", *options).splitlines()[1:]]
for form, other in (("json", as_json), ("xml", as_xml), ("tsv", as_tsv)):
    if len(rows) < 3 or len(rows) != len(other):
        raise SystemExit(f"{form}: {len(other)} rows, not {len(rows)}")
    for own, row in zip(rows, other):
        if form != "tsv" and row[0] != own[0]:
            raise SystemExit(f"{form}: the file is {row[0]}")
        for a, b in zip(own[1:], row[1:]):
            if a != b and float(a) != float(b) and float(a) == float(a):
                raise SystemExit(f"{form}: {a} is {b}")
sys.exit(1 if failures else 0)
