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


def test_calibrating_a_machine_as_the_tool_does(tool, tmp_path):
    """The loop of docs/calibrating-a-machine.md, in Python and with the
    tool: the same tables, byte for byte, and the stated landing error."""
    head = vrncal.MeasuredHead.from_file(EXAMPLES / "head.csv")
    py_table, cli_table = tmp_path / "py.cor", tmp_path / "cli.cor"
    job = vrncal.plan(py_table, field_size=126, val_size=120)
    run(tool, "plan", "new", cli_table, "--field-size", 126, "--val-size", 120, "--template", tmp_path / "c.csv")
    assert (job.stage, job.drive, len(job)) == ("nine points", "linear", 9)
    for stage, seed in (("nine", 1), (9, 9), (17, 17)):
        if stage != "nine":
            job = vrncal.stage_job(py_table, stage)
            run(tool, "plan", "job", cli_table, "--stage", stage, "--template", tmp_path / "c.csv")
        measured = head.measure(job, py_table, noise_um=10, seed=seed)
        job.save_measured(tmp_path / "p.csv", measured)
        run(tool, "simulate", "--job", tmp_path / "c.csv", "--table", cli_table, "--head", EXAMPLES / "head.csv",
            "--noise", 10, "--seed", seed, "-o", tmp_path / "c.csv")
        assert (tmp_path / "p.csv").read_bytes() == (tmp_path / "c.csv").read_bytes()
        imported = vrncal.import_measurements(py_table, tmp_path / "p.csv")
        run(tool, "measure", "import", cli_table, tmp_path / "c.csv")
        assert imported.size == (3 if stage == "nine" else stage) and py_table.read_bytes() == cli_table.read_bytes()
    assert vrncal.load(py_table).evaluate(head)[-1].max_um < 50
    with pytest.raises(vrncal.CalibrationError, match=r"p\.csv"):
        (tmp_path / "p.csv").write_text("index,measured_x,measured_y\n0,1,2\n")
        vrncal.import_measurements(py_table, tmp_path / "p.csv")
    assert py_table.read_bytes() == cli_table.read_bytes()


def test_tables_written_from_records(tmp_path):
    cal = vrncal.load(SAMPLE)
    cal.grids[0] = cal.grids[0] + np.float32(0.001)
    assert cal.save_table(tmp_path / "t.cor", comments=["edited in Python"]) == []
    back = vrncal.load(tmp_path / "t.cor")
    assert (tmp_path / "t.cor").read_text().startswith("; edited in Python\n")
    assert [g.tobytes() for g in back.grids] == [g.tobytes() for g in cal.grids]
    assert back.correct([[3, 4]]).tobytes() == cal.correct([[3, 4]]).tobytes()
