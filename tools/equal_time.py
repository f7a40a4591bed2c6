#!/usr/bin/env python3
"""Renders scenes by plain path tracing and with photons in the same wall time and prints how far the pictures are from a
long reference, as rows of the table in docs/photons.md: tools/equal_time.py build-folder work-folder

The reference of the corridor is path-traced without photons. That of the caustics has many times the photons of the
scene: a path-traced one would still hold more noise of its own than the pictures that it is to judge. For that scene a
path-traced one is rendered too, against which the last rows give the mean difference alone. References are kept in the
work folder and used again. Nothing else should run on the machine meanwhile.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

import radiance_picture

SCENES = pathlib.Path(__file__).resolve().parent.parent / "scenes"
SIZE = "120x80"
SECONDS = (4, 12, 36)
REFERENCE_SECONDS = float(os.environ.get("REFERENCE_SECONDS", 150))
PROBE_FRAMES = 6

# (name, options, photons of the geometry light; None: as the scene says)
METHODS = {"paths alone": (["--path-tracing"], 0), "paths and caustic photons": (["--path-tracing"], None),
           "photons and cells": ([], None), "reference with photons": ([], 5000000)}
TABLE = {"corridor": ("paths alone", "photons and cells"),
         "caustics": ("paths alone", "paths and caustic photons", "photons and cells")}
REFERENCES = {"corridor": "paths alone", "caustics": "reference with photons"}


class Renderer:
    def __init__(self, build, work):
        self.halvorne, self.work = build / "apps/halvorne", work

    def scene(self, name, photons):
        """The scene's folder, or a copy with another number of photons."""
        if photons is None:
            return SCENES / name
        copy = self.work / f"{name}_{photons}"
        shutil.rmtree(copy, ignore_errors=True)
        shutil.copytree(SCENES / name, copy)
        lights = copy / "light/lights.hv"
        lights.write_text(re.sub(r"(?m)^( *photon) [1-9]\d*", rf"\1 {photons}", lights.read_text()))
        return copy

    def render(self, name, method, frames, seed, output):
        """Seconds that the whole run took, and those of a frame by the rates of the report."""
        options, photons = METHODS[method]
        command = [self.halvorne, self.scene(name, photons), "--size", SIZE, "--frames", str(frames), "--seed", str(seed),
                   "--output", output, *options]
        start = time.monotonic()
        report = subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, text=True, errors="replace").stdout
        took = time.monotonic() - start
        rates = [float(rate) for rate in re.findall(r"([\d.]+) \[ frames/second \]", report)]
        return took, sum(1 / rate for rate in rates) / len(rates)

    def render_for(self, name, method, seconds, seed, output):
        """Renders as many frames as fit; returns their number and the seconds taken."""
        took, frame = self.render(name, method, PROBE_FRAMES, seed, output)
        before = max(0.0, took - PROBE_FRAMES * frame)
        frames = min(65535, max(1, round((seconds - before) / frame)))
        return frames, self.render(name, method, frames, seed, output)[0]


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: equal_time.py build-folder work-folder")
    build, work = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    work.mkdir(parents=True, exist_ok=True)
    renderer = Renderer(build, work)
    references = {name: render_reference(renderer, name, method) for name, method in REFERENCES.items()}
    print("| scene | method | frames | seconds | rmse, % | bias, % | rmse without worst, % | bias without worst, % |")
    print("|---|---|---|---|---|---|---|---|")
    for name, methods in TABLE.items():
        for seconds in SECONDS:
            for method in methods:
                output = work / f"{name}_{method.replace(' ', '_')}_{seconds}.hdr"
                frames, took = renderer.render_for(name, method, seconds, 1, output)
                print(f"| {name} | {method} | {frames} | {took:.1f} | {cells(output, references[name])} |", flush=True)
    paths = render_reference(renderer, "caustics", "paths alone")
    print(f"| caustics | its reference against paths | | | {cells(references['caustics'], paths)} |")


def render_reference(renderer, name, method):
    reference = renderer.work / f"{name}_reference_{method.replace(' ', '_')}.hdr"
    if not reference.exists():
        partial = renderer.work / "partial.hdr"
        frames, took = renderer.render_for(name, method, REFERENCE_SECONDS, 77, partial)
        partial.rename(reference)
        print(f"reference of {name}, {method}: {frames} frames, {took:.0f} s", file=sys.stderr)
    return reference


def cells(picture, reference):
    figures = radiance_picture.errors(*map(radiance_picture.luminances, (picture, reference)))
    return " | ".join(f"{100 * value:+.1f}" if k % 2 else f"{100 * value:.1f}" for k, value in enumerate(figures))


if __name__ == "__main__":
    main()
