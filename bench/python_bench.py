#!/usr/bin/env python3
"""What the Python module adds to a batch correction.

Times Calibration.correct() on 10^6 random field points (float64 in, as
numpy users hold them, and float32) against the C++ batch call
(vrncal::Corrector) on the same points in the same process, and prints the
cost per point of each and their ratio.  The Python call includes the
conversion of the input and the allocation of the result.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py [CALIBRATION]
"""
import sys
import time

import numpy as np

import vrncal

REPEATS = 15
N = 1_000_000


def timed(f):
    t0 = time.perf_counter()
    f()
    return time.perf_counter() - t0


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else "examples/sample.cor"
    cal = vrncal.load(path)
    half = cal.val_size / 2
    pts64 = np.random.default_rng(1).uniform(-half, half, (N, 2))
    pts32 = pts64.astype(np.float32)
    cal.correct(pts32[:10])  # builds the corrector's index once, as the C++ call has it
    # Interleaved, best of each: a machine busy with other work slows single
    # runs, not the best one.
    best = {"cpp": [], "float32": [], "float64": []}
    for _ in range(REPEATS):
        best["cpp"].append(cal._time_batch(pts32, 1))
        best["float32"].append(timed(lambda: cal.correct(pts32)))
        best["float64"].append(timed(lambda: cal.correct(pts64)))
    cpp = min(best["cpp"])
    print(f"{path}: {N} points, best of {REPEATS} interleaved runs")
    print(f"  C++ batch (vrncal::Corrector)        {cpp / N * 1e9:8.1f} ns/point")
    for name in ("float32", "float64"):
        t = min(best[name])
        print(f"  Python cal.correct(), {name} input   {t / N * 1e9:8.1f} ns/point   ratio {t / cpp:.3f}")


if __name__ == "__main__":
    main()
