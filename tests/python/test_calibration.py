"""Loading, saving and editing calibrations from Python."""
import subprocess

import numpy as np
import pytest

import vrncal
from conftest import SAMPLE

TABLE = SAMPLE.read_text()

# A bad file: its content (None: not created; "dir": a directory), and what
# the message says after "PATH".
BAD_FILES = {
    "missing": (None, ": no such file"),
    "directory": ("dir", ": is a directory, not a file"),
    "empty": (b"", ": the file is empty: no calibration in it"),
    "not a calibration": (b"\x00\x01binary\xff\n", ": a binary file (it holds zero bytes), but not a data file"),
    "truncated data file": (b"VRNCLDT2" + bytes(100), ": truncated data file: it ends at byte 108"),
    "data file version 3": (b"VRNCLDT3" + bytes(5000), ": data file version '3' is not supported"),
    "a nine point missing": (TABLE.replace("PNT4=", "PNTX=").encode(),
                             ":14: PNT4 of the nine calibration points is missing"),
    "a number that is not one": (TABLE.replace("Resolution=65535", "Resolution=abc").encode(),
                                 ":9: Resolution = 'abc' in [CalCoefs] is not a number"),
}


@pytest.mark.parametrize("case", sorted(BAD_FILES))
def test_a_bad_file_raises_naming_it(case, tmp_path):
    content, says = BAD_FILES[case]
    path = tmp_path / "cal.cor"
    if content == "dir":
        path.mkdir()
    elif content is not None:
        path.write_bytes(content)
    with pytest.raises(vrncal.CalibrationError) as e:
        vrncal.load(path)
    assert str(e.value).startswith(str(path) + says)
    line = says.split(":")[1]
    assert (e.value.path, e.value.line) == (str(path), int(line) if line.isdigit() else None)


def test_bad_arguments_raise_and_leave_the_calibration_alone():
    cal = vrncal.load(SAMPLE)
    before = cal.correct([[10, 10]])
    for name, value, error in [("field_size", 0.0, ValueError), ("val_size", float("nan"), ValueError),
                               ("resolution", 0, ValueError), ("mode", "linear", ValueError),
                               ("nine_points", np.zeros((4, 4, 4)), ValueError),
                               ("nine_points", np.full((3, 3, 4), np.inf), ValueError)]:
        with pytest.raises(error):
            setattr(cal, name, value)
    for view, key, value, error in [("coefficients", "QuadZ", 1.0, KeyError), ("coefficients", "QuadX", "x", TypeError),
                                    ("coefficients", "k3", float("inf"), ValueError),
                                    ("flags", "XInvert", 0.5, TypeError), ("box", "BoxLineCount", 101, ValueError),
                                    ("shift", "SftScaleX", 1e39, ValueError)]:
        with pytest.raises(error):
            getattr(cal, view)[key] = value
    with pytest.raises(vrncal.CalibrationError):
        cal.apply_box_file(SAMPLE)  # no [Box] section
    with pytest.raises(ValueError, match="grid 1: expected an array of shape"):
        cal.grids[1] = np.zeros((5, 4, 4))
    with pytest.raises(IndexError):
        cal.grids[2]
    with pytest.raises(ValueError, match="read-only"):
        cal.grids[0][0, 0, 0] = 1.0
    with pytest.raises(vrncal.CalibrationError, match="cannot create a temporary file in /nonexistent-folder"):
        cal.save("/nonexistent-folder/x.dat")
    assert cal.correct([[10, 10]]).tobytes() == before.tobytes()
    with pytest.raises(ValueError):
        vrncal.load(SAMPLE, field_size=-1)


def test_members_read_and_write_through(tmp_path):
    with pytest.raises(vrncal.CalibrationError, match="the field size given, 110, disagrees"):
        vrncal.load(SAMPLE, field_size=110.0)  # the table states its own
    (tmp_path / "t.cor").write_text(TABLE.replace("[vrncal]\nFieldSize=100\n", ""))
    cal = vrncal.load(tmp_path / "t.cor", field_size=110.0)
    assert (cal.format, cal.mode) == ("correction table", "grid")
    assert (cal.resolution, cal.half_resolution, cal.field_size, cal.val_size) == (65535, 32768, 110.0, 80.0)
    assert len(cal.coefficients) == 51 and list(cal.coefficients)[:4] == ["LinX", "QuadX", "LinY", "QuadY"]
    assert cal.coefficients["QuadX"] == cal.coefficients.QuadX == -7.49127642529253e-05
    assert dict(cal.flags) == dict.fromkeys(["XYFlip", "XInvert", "YInvert", "LEN_XYFLIP", "LEN_XINVERT",
                                             "LEN_YINVERT"], 0)
    cal.coefficients = {"k5": 2.5, "s7": -1.0}
    cal.flags.YInvert = True
    cal.shift.SftShiftX = 0.1  # stored as float
    cal.box.BoxLineCount = 21
    assert (cal.coefficients.k5, cal.coefficients.s7, cal.flags.YInvert) == (2.5, -1.0, 1)
    assert cal.shift.SftShiftX == float(np.float32(0.1)) and cal.box["BoxLineCount"] == 21
    copy = cal.copy()
    copy.coefficients.k5 = 0.0
    assert cal.coefficients.k5 == 2.5


def test_grids_round_trip_through_numpy_and_files(tmp_path):
    cal = vrncal.load(SAMPLE)
    g9, g17 = cal.grids
    assert g9.shape == (9, 9, 4) and g17.shape == (17, 17, 4) and g9.dtype == np.float32
    assert g9[0, 0].tolist() == [-40, 40, g9[0, 0, 2], g9[0, 0, 3]] and g9[8, 8, :2].tolist() == [40, -40]
    nine = cal.nine_points
    assert nine.shape == (3, 3, 4) and nine[1, 1, :2].tolist() == [0, 0]

    edited = g17.astype(np.float64)
    edited[..., 2:] += 0.001 * np.arange(17 * 17 * 2).reshape(17, 17, 2) / 578
    cal.grids[1] = edited
    cal.grids.append(g9)
    del cal.grids[0]
    cal.grids.insert(0, g9[::2, ::2])  # 5 x 5
    assert [g.shape[0] for g in cal.grids] == [5, 17, 9]
    np.testing.assert_array_equal(cal.grids[1], edited.astype(np.float32))

    cal.save(tmp_path / "edited.dat")
    assert (cal.path, cal.format) == (str(tmp_path / "edited.dat"), "data file")
    back = vrncal.load(tmp_path / "edited.dat")
    assert back.format == "data file"
    for a, b in zip(list(cal.grids) + [cal.nine_points], list(back.grids) + [back.nine_points]):
        assert a.tobytes() == b.tobytes()
    assert dict(back.coefficients) == dict(cal.coefficients)
    pts = np.random.default_rng(2).uniform(-40, 40, (5000, 2))
    assert back.correct(pts).tobytes() == cal.correct(pts).tobytes()

    cal.grids = []
    assert len(cal.grids) == 0 and repr(cal.grids) == "[]"


def test_a_new_calibration_from_nine_points(tmp_path):
    cal = vrncal.Calibration()
    assert cal.path == "" and cal.mode == "grid" and len(cal.grids) == 0
    nine = vrncal.load(SAMPLE).nine_points
    cal.nine_points = nine
    residuals = cal.fit()
    assert residuals.shape == (3, 3, 2)
    fitted, loaded = dict(cal.coefficients), dict(vrncal.load(SAMPLE).coefficients)
    unused = [f"k{i}" for i in range(4, 20)]  # the table loader sets them to 1, the fit leaves them
    assert {k: v for k, v in fitted.items() if k not in unused} == {k: v for k, v in loaded.items() if k not in unused}
    cal.save(tmp_path / "new.dat")
    assert vrncal.load(tmp_path / "new.dat").nine_points.tobytes() == nine.tobytes()


def test_repr_reads_like_vrncal_info(tool, tmp_path):
    cal = vrncal.load(SAMPLE)
    cal.save(tmp_path / "s.dat")
    for c in (cal, vrncal.load(tmp_path / "s.dat")):
        info = subprocess.run([tool, "info", c.path], capture_output=True, text=True, check=True).stdout
        assert repr(c) == info + "  mode          grid correction (CalMode 1)"
    assert repr(vrncal.Calibration()).startswith("new calibration (not saved)\n  resolution    65535 counts")


def test_validate_lists_the_problems():
    cal = vrncal.load(SAMPLE)
    assert cal.validate() == []
    g = cal.grids[0].copy()
    g[3, 3, 0] = g[3, 4, 0] + 1  # a node pushed past its right-hand neighbour
    cal.grids[0] = g
    assert [(p.code, p.grid) for p in cal.validate()] == [("grid-not-regular", 0), ("grid-pitch-mismatch", 0)]
    assert cal.validate()[0].message.startswith("grid 0 (9 x 9): 1 of 64 cells can never be found")


def test_a_calibration_that_cannot_be_right_loads_only_with_force(tmp_path):
    path = tmp_path / "cal.cor"
    path.write_text(TABLE.replace("ValSize=", "ValSize =", 1))
    with pytest.raises(vrncal.CalibrationError, match=r":8: key 'ValSize ' has blanks around it") as e:
        vrncal.load(path)
    assert "refused: 3 errors above" in str(e.value)
    assert vrncal.load(path, force=True).val_size == 100  # the record's default: the key is not read
