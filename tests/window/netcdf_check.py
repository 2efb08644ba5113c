#!/usr/bin/env python3
"""Converts what the night has left, beside a file that is cut short and one that is none, and
compares it with the text files of the same scans and with what the script was given.

    netcdf_check.py KST_DATA NIGHT
"""
import json
import pathlib
import shutil
import subprocess
import sys

import numpy as np
import xarray

data, night = (pathlib.Path(each) for each in sys.argv[1:])
example = pathlib.Path(__file__).parents[2] / "docs/examples/gwy_to_netcdf.py"
scans, made = night / "scans", night / "scans.nc"
shutil.copytree(data, scans)
whole = sorted(scans.rglob("*.gwy"))
content = whole[0].read_bytes()
(scans / "cut.gwy").write_bytes(content[:len(content) * 2 // 3])
(scans / "other.gwy").write_bytes(b"GWYPGwyContainer\0\x07\0\0\0/0/da\0s")
ran = subprocess.run([sys.executable, example, scans, "--out", made], capture_output=True, text=True)
assert ran.returncode == 1, ran
for name in ("cut.gwy", "other.gwy"):
    assert f"{name}: left out:" in ran.stderr, ran
assert len(ran.stderr.splitlines()) == 2, ran

plan = json.loads((night / "night.json").read_text())
left, bottom, step = *plan["area"][:2], plan["step"]
index = xarray.load_dataset(made)
assert index.sizes["scan"] == len(whole) == len(plan["results"]), index
assert "cut.gwy" in index.left_out and "other.gwy" in index.left_out, index
assert index.laser_intensity.units == "uA" and index.step.units == "um"
for number, result in enumerate(plan["results"]):
    scan = xarray.load_dataset(made, group=str(index.group[number].item()))
    assert index.laser_intensity[number] == result["power"] and index.step[number] == step
    assert scan.attrs["Outcome"] == "finished" and scan.attrs["Step"] == f"{step:g} um"
    assert (scan.x.units, scan.y.units, scan.photocurrent.units) == ("um", "um", "A"), scan
    # Where the stage stood: the area is laid by whole pixels of the picture.
    for axis, first in ((scan.x.values, left), (scan.y.values, bottom)):
        assert abs(axis[0] - first) < 0.5 and np.allclose(np.diff(axis), step, atol=1e-5), axis
    given = np.genfromtxt(night / result["map"], delimiter=",")
    assert given.shape == scan.photocurrent.shape and np.isfinite(given).all()
    values = scan.photocurrent.values[::-1]
    assert np.allclose(values, given, rtol=1e-6, atol=0), np.abs(values / given - 1).max()
    assert not scan.photocurrent_mask.any()
    text = (scans / str(index.file[number].item())).parent / scan.attrs["Text file"]
    written = np.genfromtxt(text, delimiter=",")[:, :-1]
    perUnit = {"uA": 1e-6, "nA": 1e-9}[scan.attrs["Unit of the text file"]]
    assert np.allclose(values / perUnit, written, rtol=0, atol=1e-6)
print(f"{len(whole)} scans are the same in {made.name}")
