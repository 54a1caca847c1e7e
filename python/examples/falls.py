"""Finds all falls in a folder of recordings and plots the robot's inclination around each.

    python falls.py FOLDER falls.png
"""

import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import List, Tuple

import matplotlib.pyplot as plt
import numpy as np

import gksensors

ANGLES = [f"Device/SubDeviceList/InertialSensor/Angle{axis}/Sensor/Value" for axis in "XY"]
LYING = {"Belly", "Back", "Left", "Right"}
BEFORE, AFTER = 2.0, 2.0  # s

Fall = Tuple[gksensors.Run, gksensors.Event]


def falls_of(path: Path) -> List[Fall]:
    run = gksensors.replay(path, sample=ANGLES)
    return [
        (run, event)
        for event in run.events
        if event.name == "robotPoseChanged" and event.value in LYING
    ]


def main(folder: str, picture: str) -> int:
    files = sorted(
        path for end in ("*.csv", "*.csv.gz", "*.mcap") for path in Path(folder).rglob(end)
    )
    with ThreadPoolExecutor() as pool:  # each replay is a process of its own
        falls = [fall for found in pool.map(falls_of, files) for fall in found]
    print(f"{len(falls)} falls in {len(files)} recordings")
    for run, event in falls:
        print(f"  {Path(run.files[0]).name}: on its {event.value} at {event.time:.2f} s")
    if not falls:
        return len(falls)

    figure, axes = plt.subplots(len(falls), figsize=(8, 2.5 * len(falls)), squeeze=False)
    for (run, event), plot in zip(falls, axes[:, 0]):
        time = run.samples.time - event.time
        near = (time >= -BEFORE) & (time <= AFTER)
        for key, name in zip(ANGLES, ("to the side", "ahead")):
            plot.plot(time[near], np.degrees(run.samples[key][near]), label=name)
        plot.axvline(0.0, color="black", linewidth=0.5)
        plot.set(title=f"{Path(run.files[0]).name}, {event.value}", ylabel="inclination, degrees")
    axes[0, 0].legend()
    axes[-1, 0].set_xlabel("seconds around the event")
    figure.tight_layout()
    figure.savefig(picture)
    return len(falls)


if __name__ == "__main__":
    main(*sys.argv[1:])
