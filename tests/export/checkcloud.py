"""Reads exported clouds with programs of other projects and compares them
with the points the test wrote.

usage: checkcloud.py <expected.bin> <reader>:<file> [...]

expected.bin holds the points as packed little-endian records (x, y, z
float32, gray uint8, intensity uint32, range float32, series uint32, pixel
uint32). Readers: "open3d" (open3d.io.read_point_cloud: count, coordinates to
1e-6, colour = gray), "numpy" (numpy.loadtxt of a CSV: every column) and
"cloudcompare" (CloudCompare's command line: every column, by name).
Prints one line per file; exits 1 at the first mismatch, 2 when a module is
missing.
"""
import sys

try:
    import numpy as np
except ImportError:
    print("python3-numpy is missing (scripts/install-deps.sh installs it)")
    sys.exit(2)

RECORD = np.dtype([("x", "<f4"), ("y", "<f4"), ("z", "<f4"), ("gray", "u1"),
                   ("intensity", "<u4"), ("range", "<f4"), ("series", "<u4"),
                   ("pixel", "<u4")])


def fail(message):
    print(message)
    sys.exit(1)


def check_open3d(path, want):
    try:
        import open3d as o3d
    except ImportError:
        print("python3-open3d is missing (scripts/install-deps.sh installs it)")
        sys.exit(2)
    cloud = o3d.io.read_point_cloud(path)
    xyz = np.asarray(cloud.points)
    if len(xyz) != len(want):
        fail(f"{path}: open3d read {len(xyz)} points, want {len(want)}")
    expect = np.stack([want["x"], want["y"], want["z"]], axis=1).astype(np.float64)
    worst = np.abs(xyz - expect).max() if len(xyz) else 0.0
    if worst > 1e-6:
        fail(f"{path}: coordinates differ by up to {worst}")
    if not cloud.has_colors():
        fail(f"{path}: no colours")
    rgb = np.asarray(cloud.colors) * 255.0
    worst = np.abs(rgb - want["gray"][:, None]).max() if len(rgb) else 0.0
    if worst > 0.01:
        fail(f"{path}: colours differ from the gray by up to {worst}")
    return len(xyz)


def check_numpy(path, want):
    rows = np.loadtxt(path, delimiter=",", skiprows=1, ndmin=2)
    if rows.shape != (len(want), 8):
        fail(f"{path}: numpy read shape {rows.shape}, want ({len(want)}, 8)")
    for col, name in enumerate(RECORD.names):
        got = rows[:, col].astype(RECORD[name])
        if not np.array_equal(got, want[name]):
            bad = np.flatnonzero(got != want[name])[0]
            fail(f"{path}: {name} of row {bad} is {rows[bad, col]!r}, want {want[name][bad]!r}")
    return len(rows)


def check_cloudcompare(path, want):
    """CloudCompare's command line loads the file and writes it again as
    text with a header: every column must come through, the gray as R, G, B
    and the further values as scalar fields named as in the export."""
    import os
    import subprocess
    import tempfile
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "cc.asc")
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
        try:
            run = subprocess.run(
                ["CloudCompare", "-SILENT", "-AUTO_SAVE", "OFF", "-O", path,
                 "-C_EXPORT_FMT", "ASC", "-ADD_HEADER", "-SEP", "COMMA",
                 "-SAVE_CLOUDS", "FILE", out],
                env=env, capture_output=True, text=True, timeout=120)
        except FileNotFoundError:
            print("cloudcompare is missing (scripts/install-deps.sh installs it)")
            sys.exit(2)
        if run.returncode != 0 or not os.path.exists(out):
            fail(f"{path}: CloudCompare failed: {run.stdout[-2000:]}")
        with open(out) as f:
            header = f.readline().lstrip("/").strip().split(",")
        rows = np.loadtxt(out, delimiter=",", skiprows=1, ndmin=2)
    wanted = ["X", "Y", "Z", "R", "G", "B", "intensity", "range", "series", "pixel"]
    if header != wanted:
        fail(f"{path}: CloudCompare kept {header}, want {wanted}")
    if len(rows) != len(want):
        fail(f"{path}: CloudCompare read {len(rows)} points, want {len(want)}")
    columns = {"X": "x", "Y": "y", "Z": "z", "R": "gray", "intensity": "intensity",
               "range": "range", "series": "series", "pixel": "pixel"}
    for name, field in columns.items():
        got = rows[:, header.index(name)]
        # CloudCompare holds colours as bytes but scalar fields as 32-bit
        # floats: an intensity above 2^24 comes back rounded to the nearest
        # float32, exactly, and nothing else may differ.
        expect = want[field].astype(np.float32 if field != "gray" else np.float64).astype(np.float64)
        worst = np.abs(got - expect).max() if len(rows) else 0.0
        # Coordinates and ranges pass through the text's decimals.
        limit = 1e-5 * max(1.0, np.abs(want[field]).max()) if field in ("x", "y", "z", "range") else 0
        if worst > limit:
            fail(f"{path}: CloudCompare's {name} differs by up to {worst}")
    return len(rows)


def main():
    want = np.fromfile(sys.argv[1], dtype=RECORD)
    for arg in sys.argv[2:]:
        reader, path = arg.split(":", 1)
        n = {"open3d": check_open3d, "numpy": check_numpy,
             "cloudcompare": check_cloudcompare}[reader](path, want)
        print(f"{reader} {path}: {n} points ok")


main()
