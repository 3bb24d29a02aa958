#!/usr/bin/python3
"""Writes examples/head.csv: a scan head defined by measured data, for
`vrncal simulate --head`, `vrncal evaluate --head` and `vrncal plot --head`.

The data is made up, but of the character of a real head measured over a
9 x 9 grid of drives with the head driven linearly (no correction):

- it spans about +-63 mm in x and +-67 mm in y: 6.8 % more travel per count
  in y than in x;
- a pincushion bow of about 190 um (x) and 280 um (y) at the corners;
- an S-shaped non-linearity along y of about 550 um at the edge;
- left/right and top/bottom asymmetries of 100 to 200 um;
- a small keystone of about 50 um;
- node-to-node measurement scatter of about 45 um (x) and 90 um (y).

None of it is symmetric the way the analytic lens is.  Run from the
repository root:  /usr/bin/python3 examples/make_head.py > examples/head.csv
"""
import numpy as np

HALF_X = 63.0                  # mm at full drive along x
GAIN_Y = 1.068                 # travel per count in y relative to x
S_EDGE = 0.55                  # S-shaped y non-linearity at the edge, mm
BOW_X, BOW_Y = 0.19, 0.28      # pincushion at the corners, mm
ASYM_X, ASYM_Y = 0.15, -0.12   # left/right and top/bottom asymmetry, mm
SMILE = 0.10                   # y of the left and right edges raised, mm
KEYSTONE = 0.05                # x scale differs between top and bottom, mm
SCATTER_X, SCATTER_Y = 0.045, 0.090


def main():
    rng = np.random.default_rng(20240611)
    drives = [0, 8192, 16384, 24576, 32768, 40960, 49152, 57344, 65535]
    print("# Measured head data for vrncal: where the spot landed (x, y in mm, the head's frame)")
    print("# for each drive (u, v in counts), head driven linearly.  Made by examples/make_head.py.")
    print("u,v,x,y")
    for v in drives:
        for u in drives:
            a = (u - 32768) / 32767.5
            b = (v - 32768) / 32767.5
            x = (HALF_X * a + BOW_X * a * b * b + ASYM_X * a * a + KEYSTONE * a * b
                 + rng.normal(0.0, SCATTER_X))
            y = ((HALF_X * GAIN_Y - S_EDGE) * b + S_EDGE * b ** 3 + BOW_Y * b * a * a
                 + ASYM_Y * b * b + SMILE * a * a + rng.normal(0.0, SCATTER_Y))
            print(f"{u},{v},{x:.4f},{y:.4f}")


if __name__ == "__main__":
    main()
