"""The C API through ctypes, as a Python host without the module would use
it: the same counts, bit for bit, as the Python module."""
import ctypes
import os
import pathlib

import numpy as np
import pytest

import vrncal

SAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "sample.cor"
FLOATS = np.ctypeslib.ndpointer(np.float32, flags="C_CONTIGUOUS")


@pytest.fixture(scope="module")
def lib():
    path = os.environ["VRNCAL_LIBRARY"]
    assert path.endswith("libvrncal.so.1")
    c = ctypes.CDLL(path)
    c.vrncal_create.restype = ctypes.c_void_p
    c.vrncal_destroy.argtypes = [ctypes.c_void_p]
    c.vrncal_load.argtypes = [ctypes.c_void_p, ctypes.c_char_p]
    c.vrncal_message.argtypes = [ctypes.c_void_p]
    c.vrncal_message.restype = ctypes.c_char_p
    c.vrncal_version.restype = ctypes.c_char_p
    c.vrncal_set_flags.argtypes = [ctypes.c_void_p, ctypes.c_uint]
    c.vrncal_correct.argtypes = [ctypes.c_void_p, ctypes.c_float, ctypes.c_float,
                                 ctypes.POINTER(ctypes.c_float), ctypes.POINTER(ctypes.c_float)]
    c.vrncal_correct_points.argtypes = [ctypes.c_void_p, FLOATS, FLOATS, ctypes.c_size_t]
    return c


def test_the_c_api_gives_the_module_bits(lib):
    cal = lib.vrncal_create()
    try:
        assert lib.vrncal_load(cal, b"/nonexistent.cor") == 2
        assert lib.vrncal_message(cal) == b"/nonexistent.cor: cannot open: No such file or directory"
        assert lib.vrncal_load(cal, str(SAMPLE).encode()) == 0
        module = vrncal.load(SAMPLE)
        for flags in (0, 0x3f, 0x05):
            assert lib.vrncal_set_flags(cal, flags) == 0
            module.flags = dict(zip(["XYFlip", "XInvert", "YInvert", "LEN_XYFLIP", "LEN_XINVERT", "LEN_YINVERT"],
                                    [(flags >> b) & 1 for b in range(6)]))
            pts = np.random.default_rng(flags).uniform(-60, 60, (100_000, 2)).astype(np.float32)
            out = np.empty_like(pts)
            assert lib.vrncal_correct_points(cal, pts, out, len(pts)) == 0
            want = module.correct(pts)
            assert out.tobytes() == want.tobytes()
            x, y = ctypes.c_float(), ctypes.c_float()
            for p, w in zip(pts[:500], want[:500]):  # one at a time: the facade
                assert lib.vrncal_correct(cal, p[0], p[1], ctypes.byref(x), ctypes.byref(y)) == 0
                assert np.array([x.value, y.value], np.float32).tobytes() == w.tobytes()
        assert lib.vrncal_version().decode().count(".") == 2
    finally:
        lib.vrncal_destroy(cal)
