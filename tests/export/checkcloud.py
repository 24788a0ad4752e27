"""Reads exported clouds with programs of other projects and compares them
with the points the test wrote.

usage: checkcloud.py <expected.bin> <reader>:<file> [...]

expected.bin holds the points as packed little-endian records (x, y, z
float32, gray uint8, intensity uint32, range float32, series uint32, pixel
uint32). Readers: "open3d" (open3d.io.read_point_cloud: count, coordinates to
1e-6, colour = gray) and "numpy" (numpy.loadtxt of a CSV: every column).
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


def main():
    want = np.fromfile(sys.argv[1], dtype=RECORD)
    for arg in sys.argv[2:]:
        reader, path = arg.split(":", 1)
        n = {"open3d": check_open3d, "numpy": check_numpy}[reader](path, want)
        print(f"{reader} {path}: {n} points ok")


main()
