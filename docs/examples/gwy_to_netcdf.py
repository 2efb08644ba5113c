#!/usr/bin/env python3
"""Scans of a folder and those below it, as one self-describing netCDF file for xarray.

    gwy_to_netcdf.py FOLDER [--out SCANS.nc]

Each .gwy file is a group of its own, in the order in which the scans began: the maps over y and x,
where the stage stood in um, with their units; what their masks cover is no number, and "..._as_read"
has what stands below. The scan's conditions are the group's attributes. The file's root is the list
of the scans.

Needs Debian's python3-xarray and python3-netcdf4. A file that is damaged is said, left out, and
named in the root's attribute "left_out"; then the program ends with 1.
"""
import argparse
import os
import pathlib
import re
import struct
import sys

import numpy as np
import xarray


class Damaged(Exception):
    pass


class GwyReader:
    """The Gwyddion format: named components, each a number, a text, an array or an object."""

    atoms = {"b": "<?", "c": "<c", "i": "<i", "q": "<q", "d": "<d"}
    arrays = {"C": "S1", "I": "<i4", "Q": "<i8", "D": "<f8"}

    def __init__(self, content):
        self.content = content
        self.place = 4

    def take(self, count, end):
        if count > end - self.place:
            raise Damaged(f"cut short at byte {self.place}")
        self.place += count
        return self.content[self.place - count:self.place]

    def number(self, form, end):
        return struct.unpack(form, self.take(struct.calcsize(form), end))[0]

    def text(self, end):
        zero = self.content.find(b"\0", self.place, end)
        if zero < 0:
            raise Damaged(f"a text without an end at byte {self.place}")
        return self.take(zero + 1 - self.place, end)[:-1].decode("utf-8", "replace")

    def object(self, end):
        kind = self.text(end)
        length = self.number("<I", end)
        if length > end - self.place:
            raise Damaged(f"cut short: {kind} has {length} bytes, {end - self.place} are there")
        end = self.place + length
        found = {}
        while self.place < end:
            name = self.text(end)
            found[name] = self.value(self.take(1, end).decode("latin-1"), end)
        return found

    def value(self, kind, end):
        if kind in self.atoms:
            return self.number(self.atoms[kind], end)
        if kind == "s":
            return self.text(end)
        if kind == "o":
            return self.object(end)
        count = self.number("<I", end) if kind in "SO" or kind in self.arrays else None
        if kind in self.arrays:
            numbers = np.dtype(self.arrays[kind])
            return np.frombuffer(self.take(count * numbers.itemsize, end), numbers)
        if count is not None:
            return [self.value(kind.lower(), end) for _ in range(count)]
        raise Damaged(f"a component of an unknown kind at byte {self.place}")


def read_gwy(path):
    content = path.read_bytes()
    if content[:4] != b"GWYP":
        raise Damaged("it does not begin as a .gwy file")
    try:
        return GwyReader(content).object(len(content))
    except RecursionError:
        raise Damaged("objects in objects without end") from None


def field_of(channel):
    """The rows from the lowest y upwards, so that slices of y are written in that order."""
    columns, rows = channel["xres"], channel["yres"]
    values = channel["data"]
    if columns <= 0 or rows <= 0 or len(values) != columns * rows:
        raise Damaged(f"{len(values)} values for {columns} x {rows} points")
    return values.reshape(rows, columns)[::-1]


def coordinates_of(channel):
    """The middles of the cells in um; the file counts its y from the top in m."""
    def middles(offset, extent, count):
        if not (np.isfinite([offset, extent]).all() and extent > 0):
            raise Damaged("a map without extent")
        return np.round((offset + (np.arange(count) + 0.5) * extent / count) * 1e6, 6)

    if channel.get("si_unit_xy", {}).get("unitstr") != "m":
        raise Damaged("the map's sides are no lengths")
    x = middles(channel.get("xoff", 0.0), channel["xreal"], channel["xres"])
    y = 0.0 - middles(channel.get("yoff", 0.0), channel["yreal"], channel["yres"])[::-1]
    return {name: (name, values, {"units": "um", "long_name": f"stage {name.upper()}"})
            for name, values in (("x", x), ("y", y))}


def attribute(key):
    """The condition's name in letters that netCDF takes."""
    name = re.sub(r"[\x00-\x1f\x7f/]", "_", key).strip()
    return name if re.match(r"\w", name) else f"_{name}"


def scan_of(content):
    """One scan as a Dataset."""
    numbers = sorted(int(match[1]) for key in content
                     if (match := re.fullmatch(r"/(\d+)/data", key)))
    if not numbers:
        raise Damaged("no map in it")
    first = content[f"/{numbers[0]}/data"]
    scan = xarray.Dataset(coords=coordinates_of(first))
    for number in numbers:
        channel = content[f"/{number}/data"]
        values = field_of(channel)
        title = content.get(f"/{number}/data/title", f"Channel {number}")
        name = re.sub(r"\W+", "_", title).strip("_").lower() or f"channel_{number}"
        if values.shape != (len(scan.y), len(scan.x)) or name in scan:
            raise Damaged(f"{title} does not fit the first map")
        about = {"long_name": title, "units": channel.get("si_unit_z", {}).get("unitstr") or "1"}
        masked = np.zeros(values.shape, np.int8)
        if mask := content.get(f"/{number}/mask"):
            if (masked := (field_of(mask) != 0).astype(np.int8)).shape != values.shape:
                raise Damaged(f"the mask of {title} does not fit it")
            scan[f"{name}_as_read"] = ("y", "x"), values, {
                **about, "comment": "also where the mask lies: what was read all the same, or 0"}
        scan[name] = ("y", "x"), np.where(masked, np.nan, values), {
            **about, "ancillary_variables": f"{name}_mask"}
        scan[f"{name}_mask"] = ("y", "x"), masked, {
            "long_name": f"mask of {title}", "flag_values": np.array([0, 1], np.int8),
            "flag_meanings": "measured means_nothing"}
    for key, value in content.get(f"/{numbers[0]}/meta", {}).items():
        scan.attrs[attribute(key)] = str(value)
    return scan


def quantity(scan, condition, unit):
    """The number of "16 uA"; none where the scan says something else, as of a missing source."""
    match = re.fullmatch(rf"(\S+) {unit}", scan.attrs.get(condition, ""))
    try:
        return float(match[1]) if match else np.nan
    except ValueError:
        return np.nan


def list_of(scans):
    def column(values, **about):
        return "scan", values, about

    return xarray.Dataset({
        "group": column([group for group, _, _ in scans]),
        "file": column([str(file) for _, file, _ in scans]),
        "sample": column([scan.attrs.get("Sample", "") for _, _, scan in scans]),
        "started": column([scan.attrs.get("Started", "") for _, _, scan in scans]),
        "outcome": column([scan.attrs.get("Outcome", "") for _, _, scan in scans]),
        "laser_intensity": column([quantity(scan, "Laser intensity", "uA") for _, _, scan in scans],
                                  units="uA"),
        "bias": column([quantity(scan, "Bias", "V") for _, _, scan in scans], units="V"),
        "step": column([quantity(scan, "Step", "um") for _, _, scan in scans], units="um")})


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("folder", type=pathlib.Path)
    arguments.add_argument("--out", type=pathlib.Path, default=pathlib.Path("scans.nc"))
    chosen = arguments.parse_args()
    found, left_out = [], []
    for path in sorted(chosen.folder.rglob("*.gwy")):
        try:
            found.append((path.relative_to(chosen.folder), scan_of(read_gwy(path))))
        except (Damaged, OSError, KeyError, TypeError, AttributeError, ValueError) as error:
            why = str(error) if isinstance(error, (Damaged, OSError)) else f"no scan: {error!r}"
            print(f"{path}: left out: {why}", file=sys.stderr)
            left_out.append(f"{path.relative_to(chosen.folder)}: {why}")
    if not found:
        sys.exit(f"{chosen.folder}: no scan in it")
    found.sort(key=lambda each: (each[1].attrs.get("Started", ""), str(each[0])))
    scans = [(f"scan_{number}", *each) for number, each in enumerate(found)]

    root = list_of(scans)
    root.attrs = {"title": "Scans of Lumascan", "Conventions": "CF-1.8",
                  "left_out": "\n".join(left_out)}
    # A file that was begun is never taken for a whole one.
    part = chosen.out.with_name(chosen.out.name + ".part")
    root.to_netcdf(part, engine="netcdf4")
    for group, _, scan in scans:
        scan.to_netcdf(part, mode="a", group=group, engine="netcdf4",
                       encoding={name: {"zlib": True} for name in scan.data_vars})
    os.replace(part, chosen.out)
    print(f"{chosen.out}: {len(scans)} scans, {len(left_out)} files left out")
    sys.exit(1 if left_out else 0)


if __name__ == "__main__":
    main()
