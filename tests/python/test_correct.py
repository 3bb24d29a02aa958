"""Corrections through the module give exactly the library's bits."""
import threading

import numpy as np
import pytest

import vrncal
from conftest import SAMPLE, assert_same_bits, probe_points


def test_batch_gives_the_facade_bits(config):
    name, cal = config
    pts = probe_points(cal)
    assert_same_bits(cal.correct(pts), cal._correct_facade(pts))


def test_sample_counts_as_the_tool_prints_them():
    cal = vrncal.load(SAMPLE)
    got = cal.correct([[0, 0], [12.5, -3.0], [-40, 40]])
    assert [[str(v) for v in p] for p in got] == [["32687.873", "32820.49"], ["40842.816", "30823.656"],
                                                 ["6784.506", "59669.383"]]
    assert cal.correct_point(12.5, -3.0) == (40842.81640625, 30823.65625)


P = np.random.default_rng(3).uniform(-45, 45, (60, 2))

# Ways numpy users hold points; each must convert once, to the nearest float.
INPUTS = {
    "list": (lambda: P.tolist(), (60, 2)),
    "float64": (lambda: P, (60, 2)),
    "float32": (lambda: P.astype(np.float32), (60, 2)),
    "fortran order": (lambda: np.asfortranarray(P), (60, 2)),
    "strided view": (lambda: np.repeat(P, 2, axis=0)[::2], (60, 2)),
    "int": (lambda: P.astype(np.int32), (60, 2)),
    "one point": (lambda: P[7], (2,)),
    "raster": (lambda: P.reshape(6, 10, 2), (6, 10, 2)),
}


@pytest.mark.parametrize("kind", sorted(INPUTS))
def test_any_array_of_points(kind):
    cal = vrncal.load(SAMPLE)
    make, shape = INPUTS[kind]
    want = cal._correct_facade(np.asarray(make(), np.float64).reshape(-1, 2).astype(np.float32))
    want = want.reshape(shape)
    for method in ("correct", "correct_linear", "correct_shifted"):
        got = getattr(cal, method)(make())
        assert got.shape == shape and got.dtype == np.float32
        if method == "correct":
            assert_same_bits(got, want)


@pytest.mark.parametrize("bad", [[1, 2, 3], [[1, 2, 3]], np.zeros((4, 3)), np.zeros(0), "text", [["a", "b"]]])
def test_points_of_another_shape_are_refused(bad):
    with pytest.raises((ValueError, TypeError)):
        vrncal.load(SAMPLE).correct(bad)


def test_empty_batch():
    assert vrncal.load(SAMPLE).correct(np.zeros((0, 2))).shape == (0, 2)


def test_linear_and_shifted_conversions():
    cal = vrncal.Calibration()  # Resolution 65535, half 32768, FieldSize 100
    got = cal.correct_linear([[0, 0], [50, -50], [80, 80], [np.nan, 1]])
    assert got[:3].tolist() == [[32768, 32768], [65535, 0.5], [65535, 65535]]
    assert np.isnan(got[3, 0]) and got[3, 1] == np.float32(32768 + 655.35)
    cal = vrncal.load(SAMPLE)
    pts = probe_points(cal, 1000)
    assert_same_bits(cal.correct_shifted(pts), cal.correct(pts))  # scale 1, shift 0
    cal.shift = {"SftScaleX": 1.001, "SftShiftY": 0.05}
    moved = cal.correct_shifted([[0, 0]])[0] - cal.correct([[0, 0]])[0]
    assert moved[1] == pytest.approx(0.05 * 655.35, abs=0.01) and moved[0] != 0


def test_an_edit_reaches_the_next_batch():
    cal = vrncal.load(SAMPLE)
    pts = probe_points(cal, 2000)
    before = cal.correct(pts)
    grid = cal.grids[1].copy()
    grid[8, 8, 2:] += 0.005  # the centre node measured 5 um off
    cal.grids[1] = grid
    after = cal.correct(pts)
    assert_same_bits(after, cal._correct_facade(pts))
    assert not np.array_equal(before, after)
    cal.coefficients.QuadX *= 2
    assert_same_bits(cal.correct(pts), cal._correct_facade(pts))


def test_threads_correct_while_another_edits():
    cal = vrncal.load(SAMPLE)
    pts = probe_points(cal, 200_000)
    results, errors = [], []

    def work():
        try:
            for _ in range(3):
                results.append(cal.correct(pts))
        except Exception as e:  # pragma: no cover - reported below
            errors.append(e)

    threads = [threading.Thread(target=work) for _ in range(3)]
    for t in threads:
        t.start()
    for k in range(50):
        cal.coefficients.k2 = 0.001 * (k % 2)
    for t in threads:
        t.join()
    assert not errors and len(results) == 9
    a, b = vrncal.load(SAMPLE), vrncal.load(SAMPLE)
    a.coefficients.k2, b.coefficients.k2 = 0.0, 0.001
    allowed = [a.correct(pts), b.correct(pts), vrncal.load(SAMPLE).correct(pts)]
    for r in results:  # each batch saw one record, not a mix
        assert any(np.array_equal(r, x, equal_nan=True) for x in allowed)


def test_results_into_a_buffer():
    cal = vrncal.load(SAMPLE)
    pts = probe_points(cal, 5000)
    want = cal.correct(pts)
    out = np.full_like(pts, np.nan)
    assert cal.correct(pts, out=out) is out
    assert_same_bits(out, want)
    assert_same_bits(cal.correct(pts.astype(np.float64), out=out), want)
    inplace = pts.copy()
    cal.correct(inplace, out=inplace)
    assert_same_bits(inplace, want)
    n = len(pts)
    read_only = want.copy()
    read_only.flags.writeable = False
    for bad in (np.empty((n, 2)), np.empty((n - 1, 2), np.float32), np.empty((2, n), np.float32).T, out[::-1],
                read_only):
        with pytest.raises(ValueError):
            cal.correct(pts, out=bad)
    with pytest.raises(ValueError, match="overlaps"):
        cal.correct(pts[:-1], out=pts[1:])
    with pytest.raises(ValueError, match="overlaps"):
        wide = pts.astype(np.float64)
        cal.correct(wide, out=wide.view(np.float32).reshape(-1)[:2 * n].reshape(n, 2))
