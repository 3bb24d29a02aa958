"""The example of docs/python.md runs as printed."""
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]


def test_the_raster_example_runs(tmp_path):
    doc = (ROOT / "docs" / "python.md").read_text()
    example = re.search(r"## Example.*?```python\n(.*?)```", doc, re.S).group(1)
    (tmp_path / "examples").symlink_to(ROOT / "examples")
    out = subprocess.run([sys.executable, "-c", example], cwd=tmp_path, capture_output=True, text=True,
                         env=dict(os.environ), timeout=120)
    assert out.returncode == 0, out.stderr
    assert re.fullmatch(r"largest correction \d+ um at the corners, \d+ um at the centre\n", out.stdout)
    assert (tmp_path / "correction.png").read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"


def test_the_one_liner_runs():
    doc = (ROOT / "docs" / "python.md").read_text()
    line = re.search(r'PYTHONPATH=build/python /usr/bin/python3 -c "(.*)"\n +(.*)\n', doc)
    out = subprocess.run([sys.executable, "-c", line.group(1)], cwd=ROOT, capture_output=True, text=True)
    assert out.stdout.strip() == line.group(2)
