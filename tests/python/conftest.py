"""Shared fixtures: the bundled examples, calibrations in several
configurations, field points that probe them, and a bit-exact comparison."""
import os
import pathlib

import numpy as np
import pytest

import vrncal

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"
SAMPLE = EXAMPLES / "sample.cor"


def _with(cal, **members):
    for view, values in members.items():
        getattr(cal, view).update(values)
    return cal


def _box(cal):
    cal.mode = "box"
    cal.apply_box_file(EXAMPLES / "box.ini")
    return _with(cal, flags={"LEN_XINVERT": 1})


def _data_file(tmp):
    cal = vrncal.load(SAMPLE)
    cal.save(tmp / "sample.dat")
    return vrncal.load(tmp / "sample.dat")


# Calibrations the batch path must reproduce bit for bit.
CONFIGS = {
    "sample": lambda tmp: vrncal.load(SAMPLE),
    "sample as data file": _data_file,
    "nine points only": lambda tmp: vrncal.simulate(grids=[], noise_um=2, seed=5),
    "six grids": lambda tmp: vrncal.simulate(grids=[5, 9, 17, 33, 65, 25], noise_um=1, seed=3),
    "rotated head, small field": lambda tmp: vrncal.simulate(
        vrncal.LensModel(rotation=0.4, gain_x=0.01, offset_y=0.2), grids=[33], val_size=60,
        noise_um=3, seed=9),
    "flags exchanged and inverted": lambda tmp: _with(
        vrncal.load(SAMPLE), flags={"XYFlip": 1, "XInvert": 1, "YInvert": 0}),
    "box mode": lambda tmp: _box(vrncal.load(SAMPLE)),
}


@pytest.fixture(params=sorted(CONFIGS))
def config(request, tmp_path):
    return request.param, CONFIGS[request.param](tmp_path)


def probe_points(cal, n=100_000, seed=0):
    """n random points over 1.5 times the calibrated field, then the grid
    nodes, their float neighbours, and hostile values."""
    half = cal.val_size / 2
    rng = np.random.default_rng(seed)
    pts = [rng.uniform(-1.5 * half, 1.5 * half, (n, 2)).astype(np.float32)]
    for g in list(cal.grids) + [cal.nine_points]:
        nodes = g[..., :2].reshape(-1, 2)
        pts += [nodes, np.nextafter(nodes, np.float32(np.inf)), np.nextafter(nodes, np.float32(-np.inf))]
    odd = [0.0, -0.0, half, -half, 1e30, -1e30, np.inf, -np.inf, np.nan]
    pts.append(np.array([(x, y) for x in odd for y in odd], np.float32))
    return np.concatenate(pts)


def assert_same_bits(a, b):
    """Equal bits wherever either is a number; NaN in the same places."""
    assert a.dtype == b.dtype == np.float32 and a.shape == b.shape
    nan = np.isnan(a)
    np.testing.assert_array_equal(nan, np.isnan(b))
    differ = np.flatnonzero(a.view(np.uint32)[~nan] != b.view(np.uint32)[~nan])
    assert differ.size == 0, f"{differ.size} values differ, first at {differ[:5]}"


@pytest.fixture
def tool():
    path = os.environ.get("VRNCAL_TOOL")
    if not path:
        pytest.skip("the vrncal tool is not built")
    return path
