#!/usr/bin/env python3
"""A night without a hand: one area at several laser powers, each map as a picture, and I-V curves
at three of its points.

    night.py [--resource TCPIP::127.0.0.1::5025::SOCKET] [--area LEFT,BOTTOM,WIDTH,HEIGHT]
             [--step UM] [--powers UA,UA,...] [--out FOLDER]

Needs Debian's python3-pyvisa, python3-pyvisa-py, python3-numpy and python3-matplotlib, and the two
check marks for scripts in "Scan options". The curves are left out where the instrument is no
source.
"""
import argparse
import json
import pathlib
import time

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
import pyvisa


class Lumascan:
    """What the program is told, and what it answers; an error of its queue is an exception."""

    def __init__(self, resource):
        self.visa = pyvisa.ResourceManager("@py").open_resource(
            resource, read_termination="\n", write_termination="\n", timeout=10_000)
        self.visa.write("*CLS")  # stops nothing

    def check(self):
        error = self.visa.query("SYST:ERR?")
        if not error.startswith("0,"):
            raise RuntimeError(error)

    def tell(self, command):
        self.visa.write(command)
        self.check()

    def ask(self, question):
        return self.visa.query(question)

    def block(self, question, datatype="f"):
        return self.visa.query_binary_values(question, datatype=datatype, is_big_endian=False,
                                             container=np.array)

    def await_end(self, question):
        """Long work is begun and then asked for: nothing blocks, and the operator may stop it."""
        while (state := self.ask(question)).startswith(("RUN", "PAUSED")):
            time.sleep(0.2)
        self.check()
        if not state.startswith("DONE"):
            raise RuntimeError(f"{question} {state}")

    def go_to(self, x, y):
        self.tell(f"STAG:POS {x},{y}")
        while self.ask("STAT:OPER:COND?") != "0":
            time.sleep(0.05)
        self.check()

    def map(self):
        """The map [row from the top][column] in units of the SI, and its mask."""
        columns, rows = map(int, self.ask("SCAN:DATA:SIZE?").split(","))
        values = self.block("SCAN:DATA? 0").reshape(rows, columns)
        mask = self.block("SCAN:DATA? MASK").reshape(rows, columns)
        return values, mask


def picture(values, mask, area, unit, title, path):
    left, bottom, width, height = area
    plt.figure(figsize=(5, 4), dpi=120)
    plt.imshow(np.ma.masked_where(mask != 1, values), extent=(left, left + width, bottom,
                                                              bottom + height))
    plt.colorbar(label=unit)
    plt.xlabel("X (um)")
    plt.ylabel("Y (um)")
    plt.title(title)
    plt.tight_layout()
    plt.savefig(path)
    plt.close()


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--resource", default="TCPIP::127.0.0.1::5025::SOCKET")
    arguments.add_argument("--area", default="0,0,40,30")
    arguments.add_argument("--step", type=float, default=1.0)
    arguments.add_argument("--powers", default="4,8,16")
    arguments.add_argument("--out", type=pathlib.Path, default=pathlib.Path("night"))
    chosen = arguments.parse_args()
    chosen.out.mkdir(parents=True, exist_ok=True)
    area = [float(each) for each in chosen.area.split(",")]

    scope = Lumascan(chosen.resource)
    print(scope.ask("*IDN?"))
    before = scope.ask("LAS:LEV?")
    home = [float(each) for each in scope.ask("STAG:POS?").split(",")]
    scope.tell(f"SCAN:AREA {chosen.area};STEP {chosen.step}")
    results = []
    for power in (float(each) for each in chosen.powers.split(",")):
        scope.tell(f"LAS:LEV {power}")
        scope.tell("SCAN:STAR")
        scope.await_end("SCAN:STAT?")
        values, mask = scope.map()
        unit = scope.ask("SCAN:CHAN?").split(",")[1].strip('"')
        report = scope.ask("SCAN:REP?")
        print(f"{power} uA: {np.nanmin(values):.4g} to {np.nanmax(values):.4g} {unit}, {report}")
        name = f"map_{power:g}uA"
        np.savetxt(chosen.out / f"{name}.csv", np.where(mask == 1, values, np.nan), delimiter=",")
        picture(values, mask, area, unit, f"{power:g} uA", chosen.out / f"{name}.png")
        results.append({"power": power, "map": name + ".csv", "report": report})
    scope.tell(f"LAS:LEV {before}")

    left, bottom, width, height = area
    for number, part in enumerate((0.25, 0.5, 0.75)):
        scope.go_to(left + part * width, bottom + part * height)
        try:
            scope.tell("SWE:RANG 1;POIN 10;STAR")
        except RuntimeError as error:
            print("no curves:", error)
            break
        scope.await_end("SWE:STAT?")
        curve = scope.block("SWE:DATA?").reshape(-1, 2)
        np.savetxt(chosen.out / f"curve_{number}.csv", curve, delimiter=",", header="V,A")
        print(f"curve {number}: {len(curve)} points")
    scope.go_to(home[0], home[1])
    (chosen.out / "night.json").write_text(json.dumps(
        {"area": area, "step": chosen.step, "unit": unit, "results": results}, indent=1))


if __name__ == "__main__":
    main()
