"""Plots keys of a running host, live.

    gk run &
    python live_plot.py 127.0.0.1:8090 [SECONDS]
"""

import queue
import sys
import threading
import time
from collections import deque
from typing import Deque, Dict, Tuple

import matplotlib.pyplot as plt

import gksensors

KEYS = [f"Device/SubDeviceList/InertialSensor/Angle{axis}/Sensor/Value" for axis in "XY"]
SHOWN = 20.0  # s
PAUSE = 0.05  # s


def main(address: str, seconds: float = float("inf")) -> Dict[str, int]:
    changes: "queue.SimpleQueue[Tuple[float, gksensors.Change]]" = queue.SimpleQueue()
    host = gksensors.connect(address)
    watching = host.watch(*KEYS)

    def read() -> None:
        try:
            for change in watching:
                changes.put((time.monotonic(), change))
        except ConnectionError as gone:
            print(gone)

    reader = threading.Thread(target=read, daemon=True)
    reader.start()

    figure, axes = plt.subplots()
    points: Dict[str, Deque[Tuple[float, float]]] = {key: deque() for key in KEYS}
    lines = {key: axes.plot([], [], label=key.split("/")[3])[0] for key in KEYS}
    axes.set(xlabel="s", ylabel="inclination, rad", xlim=(-SHOWN, 0.0), ylim=(-2.0, 2.0))
    axes.legend(loc="upper left")
    begin = time.monotonic()
    shown = dict.fromkeys(KEYS, 0)
    while plt.fignum_exists(figure.number) and reader.is_alive():
        now = time.monotonic()
        if now - begin > seconds:
            break
        while not changes.empty():
            at, change = changes.get()
            points[change.key].append((at, change.value))
            shown[change.key] += 1
        for key, line in lines.items():
            while points[key] and points[key][0][0] < now - SHOWN:
                points[key].popleft()
            line.set_data([at - now for at, _ in points[key]], [value for _, value in points[key]])
        figure.canvas.draw_idle()
        plt.pause(PAUSE)
    host.close()
    reader.join()
    plt.close(figure)
    return shown


if __name__ == "__main__":
    main(sys.argv[1], *map(float, sys.argv[2:]))
