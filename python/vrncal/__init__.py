"""vrncal: field distortion correction for two-axis galvanometer scan heads.

Maps field points (field units, centred on the lens axis) to the device
positions in counts (0 ... resolution) that the head must be driven to, with
exactly the numbers of the C++ library::

    import vrncal
    cal = vrncal.load("examples/sample.cor")
    counts = cal.correct([[12.5, -3.0], [0.0, 0.0]])   # float32 array (N, 2)

The calibration workflow of the ``vrncal`` tool is here too, run by the same
code: the simulated heads (LensModel, MeasuredHead), simulate(),
Calibration.evaluate(), check(), the data behind ``vrncal plot``
(Calibration.plot_data()), and calibrating a machine stage by stage (plan(),
stage_job(), Head.measure(), import_measurements(), Calibration.save_table()).
"""
from collections.abc import Mapping, MutableSequence

from ._vrncal import (Calibration, CalibrationError, Finding, Head, Imported, Job, LensModel,
                      MeasuredHead, Problem, Stage, __version__, check, import_measurements, plan,
                      simulate, stage_job)
from . import _vrncal

__all__ = ["Calibration", "CalibrationError", "Finding", "Head", "Imported", "Job", "LensModel",
           "MeasuredHead", "Problem", "Stage", "check", "import_measurements", "load", "plan",
           "simulate", "stage_job"]


def load(path, field_size=None, force=False):
    """Loads a calibration file: a binary data file (coefficients as stored)
    or a correction table (coefficients fitted from its nine points).

    The calibration is in grid mode (files do not store the mode).
    field_size: the field units spanned by the resolution (FieldSize) for a
    table that does not state its own ([vrncal] FieldSize); a table or data
    file that states another is refused.  Without it: the file's, else 100.
    Raises CalibrationError, naming the file and the line or key, when the
    file cannot be loaded, or when it loads but cannot be right (a grid
    measured with the head driven linearly, values the correction cannot
    use: see ``vrncal check``); force=True loads such a file anyway.
    """
    return _vrncal._load(path, field_size, force)


class RecordView(Mapping):
    """Members of a calibration record by their record names, read and
    written through: ``cal.coefficients["QuadX"]``, ``cal.flags.XInvert = 1``.
    ``dict(view)`` takes a copy."""

    __slots__ = ("_cal", "_names")

    def __init__(self, cal, group):
        object.__setattr__(self, "_cal", cal)
        object.__setattr__(self, "_names", tuple(Calibration._member_names(group)))

    def _known(self, name):
        if name not in self._names:
            raise KeyError(name)
        return name

    def __getitem__(self, name):
        return self._cal._get(self._known(name))

    def __setitem__(self, name, value):
        self._cal._set(self._known(name), value)

    def __iter__(self):
        return iter(self._names)

    def __len__(self):
        return len(self._names)

    def __getattr__(self, name):
        try:
            return self[name]
        except KeyError:
            raise AttributeError(name) from None

    def __setattr__(self, name, value):
        try:
            self[name] = value
        except KeyError:
            raise AttributeError(name) from None

    def __dir__(self):
        return list(self._names)

    def update(self, other=(), **more):
        for name, value in dict(other, **more).items():
            self[name] = value

    def __repr__(self):
        return repr(dict(self))


class Grids(MutableSequence):
    """The measured grids of a calibration, in the order the correction sums
    them.  Each is an (n, n, 4) float32 array: nominal x, y, measured x, y,
    row 0 at the top.  Items read are read-only copies; assign, insert or
    delete items to change the calibration."""

    __slots__ = ("_cal",)

    def __init__(self, cal):
        self._cal = cal

    def __len__(self):
        return self._cal._grid_count()

    def __getitem__(self, i):
        if isinstance(i, slice):
            return [self._cal._grid(j) for j in range(*i.indices(len(self)))]
        return self._cal._grid(i)

    def __setitem__(self, i, grid):
        if isinstance(i, slice):
            grids = list(self)
            grids[i] = grid
            self._cal._set_grids(grids)
        else:
            self._cal._set_grid(i, grid)

    def __delitem__(self, i):
        if isinstance(i, slice):
            grids = list(self)
            del grids[i]
            self._cal._set_grids(grids)
        else:
            self._cal._delete_grid(i)

    def insert(self, i, grid):
        n = len(self)
        i = max(0, min(n, i + n if i < 0 else i))  # as list.insert
        self._cal._insert_grid(i, grid)

    def __repr__(self):
        return "[" + ", ".join("grid %dx%d" % g.shape[:2] for g in self) + "]"


def _view(group, doc):
    def get(self):
        return RecordView(self, group)

    def put(self, values):
        RecordView(self, group).update(values)

    return property(get, put, doc=doc)


Calibration.coefficients = _view("coefficients", """The nine-point model's coefficients
(LinX, QuadX, LinY, QuadY, AxisXL ... Y2XAngle, k0 ... k19, s0 ... s7), read and
written through.  Assigning a mapping sets the members it names.""")
Calibration.flags = _view("flags", """Lens flags: XYFlip, XInvert, YInvert (grid correction and
conversions) and LEN_XYFLIP, LEN_XINVERT, LEN_YINVERT (box correction).  A correction
table sets both copies alike; a data file stores them apart.""")
Calibration.box = _view("box", """Box-correction terms: BoxOffsetX/Y, BoxBarrelX/Y, BoxSkewX/Y,
BoxTrapX/Y, BoxScaleX/Y (percent), BoxGrid, BoxLineCount.""")
Calibration.shift = _view("shift", """Scale about the device centre and shift (field units) that
correct_shifted() applies: SftScaleX, SftScaleY, SftShiftX, SftShiftY.""")
Calibration.grids = property(lambda self: Grids(self), lambda self, grids: self._set_grids(list(grids)),
                             doc=Grids.__doc__)
