"""Learns to keep the robot's weight in the middle of its feet while something pushes it.

Random search: eight attempts at once, each in a simulation of its own; the best one is where the
next eight begin, a little nearer. The same seed learns the same.

    python balance.py [ROUNDS]
"""

import sys
from concurrent.futures import ThreadPoolExecutor
from typing import Tuple

import numpy as np
import numpy.typing as npt

import gksensors

PUSH = 4.0  # N, ahead
ATTEMPTS = 8
CELLS = [
    f"Device/SubDeviceList/{side}Foot/FSR/{end}{edge}/Sensor/Value"
    for side in ("L", "R")
    for end in ("Front", "Rear")
    for edge in ("Left", "Right")
]
JOINTS = ["AnklePitch", "HipPitch"]

Leaning = npt.NDArray[np.float64]  # rad, one for each of JOINTS, shape (2,)


def actuator(side: str, joint: str) -> str:
    return f"Device/SubDeviceList/{side}{joint}/Position/Actuator/Value"


def cost(leaning: Leaning) -> float:
    """How far the weight is from the middle: 0 there, 0.5 on the toes, 1 for a robot that fell."""
    with gksensors.Simulation(noise=False) as sim:
        sim.step(0.5)
        stand = sim.get([actuator(side, joint) for side in "LR" for joint in JOINTS])
        lean = {
            actuator(side, joint): angle for side in "LR" for joint, angle in zip(JOINTS, leaning)
        }
        sim["Simulation/Push/X"] = PUSH
        for share in np.linspace(0.1, 1.0, 10):  # slowly: it should not fall by that
            sim.set({key: stand[key] + share * lean[key] for key in lean})
            sim.step(0.04)
        sim.step(0.6)
        total = 0.0
        for _ in range(10):
            sim.step()
            weights = np.array(list(sim.get(CELLS).values()))  # kg, shape (8,)
            if weights.sum() < 2.0:
                return 1.0
            front = weights.reshape(2, 2, 2)[:, 0].sum() / weights.sum()
            total += abs(float(front) - 0.5)
        return total / 10


def learn(rounds: int, seed: int = 1) -> Tuple[Leaning, float]:
    random = np.random.default_rng(seed)
    best: Leaning = np.zeros(len(JOINTS))
    least = cost(best)
    print(f"standing straight: {least:.3f}")
    with ThreadPoolExecutor(ATTEMPTS) as pool:
        for number in range(rounds):
            attempts = [best + random.normal(0.0, 0.06 / (number + 1), 2) for _ in range(ATTEMPTS)]
            costs = list(pool.map(cost, attempts))
            winner = int(np.argmin(costs))
            if costs[winner] < least:
                best, least = attempts[winner], costs[winner]
            print(f"round {number + 1}: {least:.3f} with {np.round(best, 3)} rad")
    return best, least


if __name__ == "__main__":
    learn(int(sys.argv[1]) if len(sys.argv) > 1 else 6)
