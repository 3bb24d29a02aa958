#!/usr/bin/env python3
"""What the Python module adds to a batch correction.

Times Calibration.correct() on 10^6 random field points (float32, and
float64 as numpy users often hold them) against the C++ batch call
(vrncal::Corrector) on the same points in the same process, and prints the
cost per point of each and their ratio to the C++ call.  The C++ call writes
into a buffer allocated once; so does correct(points, out=buffer), while
correct(points) allocates its result (the first touch of fresh pages costs a
few ns per point).

    PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py [CALIBRATION]
"""
import sys
import time

import numpy as np

import vrncal

REPEATS = 31
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
    out = np.empty_like(pts32)  # the C++ call writes into a buffer it already has
    # Interleaved, best of each: a machine busy with other work slows single
    # runs, not the best one.
    calls = {
        "cal.correct(points32, out=buffer)": lambda: cal.correct(pts32, out=out),
        "cal.correct(points32)": lambda: cal.correct(pts32),
        "cal.correct(points64, out=buffer)": lambda: cal.correct(pts64, out=out),
        "cal.correct(points64)": lambda: cal.correct(pts64),
    }
    best = {name: [] for name in ["cpp", *calls]}
    for _ in range(REPEATS):
        best["cpp"].append(cal._time_batch(pts32, out, 1))
        for name, call in calls.items():
            best[name].append(timed(call))
    cpp = min(best["cpp"])
    print(f"{path}: {N} points, best of {REPEATS} interleaved runs")
    print(f"  {'C++ batch call (vrncal::Corrector)':36} {cpp / N * 1e9:7.1f} ns/point")
    for name in calls:
        t = min(best[name])
        print(f"  {name:36} {t / N * 1e9:7.1f} ns/point   ratio {t / cpp:.3f}")


if __name__ == "__main__":
    main()
