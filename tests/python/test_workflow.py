"""The workflow the tool runs, reached from Python: the same code, so the
same numbers as the tool."""
import json
import subprocess

import numpy as np
import pytest

import vrncal
from conftest import EXAMPLES, SAMPLE


def run(tool, *args):
    return subprocess.run([tool, *map(str, args)], capture_output=True, text=True).stdout


def test_simulate_writes_the_sample_table_again(tmp_path):
    lens = vrncal.LensModel.from_file(EXAMPLES / "lens.ini")
    cal = vrncal.simulate(lens, grids=[9, 17], noise_um=2, seed=7, path=tmp_path / "s.cor")
    assert (tmp_path / "s.cor").read_bytes() == SAMPLE.read_bytes()
    assert cal.path == str(tmp_path / "s.cor") and cal.format == "correction table"
    unsaved = vrncal.simulate(lens, grids=[9, 17], noise_um=2, seed=7)
    assert unsaved.path == "" and unsaved.grids[1].tobytes() == cal.grids[1].tobytes()
    assert list(tmp_path.iterdir()) == [tmp_path / "s.cor"]


@pytest.mark.parametrize("args, message", [
    (dict(grids=[7]), "simulate: grid size 7: a grid has 5, 9, 17, 25, 33 or 65 points per side"),
    (dict(grids=[9, 9]), "simulate: grid size 9 is listed twice"),
    (dict(val_size=120), "simulate: the calibrated field (ValSize) must be above 1"),
    (dict(noise_um=-1), "simulate: the noise must not be negative"),
])
def test_simulate_refuses_a_run_it_cannot_make(args, message):
    with pytest.raises(vrncal.CalibrationError) as e:
        vrncal.simulate(**args)
    assert str(e.value).startswith(message)


def test_evaluate_gives_the_tools_numbers(tool):
    lens = vrncal.LensModel.from_file(EXAMPLES / "lens.ini")
    stages = vrncal.load(SAMPLE).evaluate(lens, pattern=21)
    printed = json.loads(run(tool, "evaluate", SAMPLE, "--lens", EXAMPLES / "lens.ini", "--pattern", 21, "--json"))
    assert [(s.name, s.max_um, s.rms_um, s.p95_um, s.count) for s in stages] == [
        (s["stage"], s["max_um"], s["rms_um"], s["p95_um"], 441) for s in printed["stages"]]
    with pytest.raises(vrncal.CalibrationError, match="2 to 2001 targets"):
        vrncal.load(SAMPLE).evaluate(lens, pattern=1)


def test_check_finds_what_the_tool_finds(tool, tmp_path):
    bad = tmp_path / "bad.cor"
    bad.write_text(SAMPLE.read_text().replace("PNT4=", "PNTX=").replace("[Cal9]", "[Cal9]\nPNT0 = 1 2 3 4"))
    findings = vrncal.check(bad)
    assert [f.text for f in findings] == run(tool, "check", bad).splitlines()[:-1]
    assert findings[0].severity == "error" and findings[0].line > 0
    assert vrncal.check(SAMPLE) == []


def test_the_lens_model():
    lens = vrncal.LensModel(rotation=0.15, offset_x=0.12)
    assert (lens.focal, lens.rotation, lens.offset_x) == (160.0, 0.15, 0.12)
    assert "rotation=0.15" in lens.to_ini() and repr(lens).startswith("LensModel(focal=160.0")
    cal = vrncal.Calibration()
    hit = lens.land(cal, cal.correct_linear([[0, 0], [20, -10]]))
    assert hit.dtype == np.float64 and hit.shape == (2, 2)
    assert hit[0] == pytest.approx([0.12, 0.0], abs=1e-3) and hit[1] == pytest.approx([20, -10], abs=0.5)
    for bad in (dict(focal=0), dict(distance=-20)):
        with pytest.raises(vrncal.CalibrationError):
            vrncal.LensModel(**bad)


def test_plot_data():
    cal = vrncal.load(SAMPLE)
    d = cal.plot_data(lines=5)
    assert len(d["nominal"]) == len(d["drive"]) == 10 and d["error_um"] is None
    assert d["factor"] > 1 and d["max_deviation"] > 0 and d["val_size"] == 80
    d = cal.plot_data(lines=3, factor=10, head=vrncal.LensModel.from_file(EXAMPLES / "lens.ini"))
    assert d["factor"] == 10 and d["error_um"].shape == (120, 120) and np.nanmax(d["error_um"]) < 20
