"""rokip: the rokIP image-processing library for NumPy arrays.

Every export of the library is bound with ctypes from a table generated from
the library's manifest (rokip._exports). Two ways to call:

    import numpy as np, rokip
    a = np.zeros((480, 640, 3), np.uint8)
    out = rokip.Add(a, a, scaleFactor=1)        # a family: the export is chosen by dtype and layout
                                                # (scaleFactor defaults to 0)
    s = rokip.Sum(a)                            # results come back as NumPy values
    rokip.raw.rokiAdd_8u_C3RSfs(...)            # any export by name, with C arguments

An image is a NumPy array: (height, width) for one channel, (height, width, C)
for C = 1, 3 or 4; the sample type comes from the dtype. Rows may be strided
(slices of a larger array are used in place, never copied), but the channels of
a pixel and the pixels of a row must be contiguous. Pass layout="AC4" for the
forms that leave alpha untouched. Outputs are allocated unless given by name
(out=... or the C argument's name, such as pDst=...); in-place forms
(inplace=True) write into the image given.

Error statuses raise rokip.RokError (with .status, .name, .message); warnings
become rokip.RokWarning through the warnings module. Records that the library
allocates (FFT and DFT specifications, moment states) come back as Record
objects: use them in a with statement, or call close().
"""
import ctypes
import ctypes.util
import os
import re
import textwrap
import warnings
from pathlib import Path

import numpy as np

from ._exports import DOCS, EXPORTS

__all__ = ["RokError", "RokWarning", "Record", "raw", "exports", "families", "set_num_threads", "get_num_threads"]


# ---- the shared library ----

def _load():
    names = []
    if os.environ.get("ROKIP_LIBRARY"):
        names.append(os.environ["ROKIP_LIBRARY"])
    here = Path(__file__).resolve().parent
    # Installed: <prefix>/lib/python3/dist-packages/rokip -> <prefix>/lib; in the source tree: build/.
    for d in (here.parent.parent.parent, here.parent.parent, here.parent.parent.parent / "lib",
              here.parent.parent / "build", here.parent.parent / "lib"):
        names.append(str(d / "librokip.so.7"))
    names += ["librokip.so.7", ctypes.util.find_library("rokip") or ""]
    errors = []
    for n in names:
        if not n:
            continue
        if "/" in n and not os.path.exists(n):
            continue
        try:
            return ctypes.CDLL(n)
        except OSError as e:
            errors.append(str(e))
    raise ImportError("rokip: cannot load librokip.so.7 (set ROKIP_LIBRARY to its path); " + "; ".join(errors))


_lib = _load()
_lib.rokGetStatusString.restype = ctypes.c_char_p
_lib.rokGetStatusString.argtypes = [ctypes.c_int32]


class RokError(Exception):
    """An error status from the library: nothing was written."""

    def __init__(self, status, function):
        self.status = int(status)
        text = _lib.rokGetStatusString(self.status).decode()
        self.name, _, self.message = text.partition(": ")
        self.function = function
        super().__init__(f"{function}: {text}")


class RokWarning(UserWarning):
    """A warning status from the library: the call did its work."""


def _check(status, function):
    if status < 0:
        raise RokError(status, function)
    if status > 0:
        text = _lib.rokGetStatusString(int(status)).decode()
        warnings.warn(f"{function}: {text}", RokWarning, stacklevel=3)
    return status


def set_num_threads(n):
    _check(_lib.rokSetNumThreads(int(n)), "rokSetNumThreads")


def get_num_threads():
    n = ctypes.c_int(0)
    _check(_lib.rokGetNumThreads(ctypes.byref(n)), "rokGetNumThreads")
    return n.value


# ---- C types ----

class Size(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32)]


class Rect(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int32), ("y", ctypes.c_int32), ("width", ctypes.c_int32), ("height", ctypes.c_int32)]


class Point(ctypes.Structure):
    _fields_ = [("x", ctypes.c_int32), ("y", ctypes.c_int32)]


_DTYPES = {
    "Rok8u": np.uint8, "Rok8s": np.int8, "Rok16u": np.uint16, "Rok16s": np.int16, "Rok32u": np.uint32,
    "Rok32s": np.int32, "Rok32f": np.float32, "Rok64s": np.int64, "Rok64f": np.float64,
    "Rok32fc": np.complex64, "Rok64fc": np.complex128,
    "Rok16sc": np.dtype([("re", np.int16), ("im", np.int16)]),
    "Rok32sc": np.dtype([("re", np.int32), ("im", np.int32)]),
    "int": np.int32, "int32_t": np.int32, "double": np.float64, "float": np.float32,
}
_SCALARS = {
    "int": ctypes.c_int, "int32_t": ctypes.c_int32, "double": ctypes.c_double, "float": ctypes.c_float,
    "Rok8u": ctypes.c_uint8, "Rok8s": ctypes.c_int8, "Rok16u": ctypes.c_uint16, "Rok16s": ctypes.c_int16,
    "Rok32u": ctypes.c_uint32, "Rok32s": ctypes.c_int32, "Rok32f": ctypes.c_float, "Rok64s": ctypes.c_int64,
    "Rok64f": ctypes.c_double, "RokStatus": ctypes.c_int32,
}
_STRUCTS = {"RokiSize": Size, "RokiRect": Rect, "RokiPoint": Point}
_CHANNELS = {"C1": 1, "C2": 2, "C3": 3, "C4": 4, "AC4": 4}
_CONST_CHANNELS = {"C1": 1, "C2": 2, "C3": 3, "C4": 4, "AC4": 3}

_PARAM = re.compile(r"^(const\s+)?(\w+)\s*(\*\s*(?:const\s*)?\**)?\s*(\w+)((?:\[\w*\])*)$")


class Param:
    def __init__(self, text):
        m = _PARAM.match(text.strip())
        if not m:
            raise ValueError(f"cannot parse C argument {text!r}")
        self.const = bool(m.group(1))
        self.base = m.group(2)
        stars = (m.group(3) or "").replace("const", "").replace(" ", "")
        self.depth = len(stars)
        self.name = m.group(4)
        self.dims = [int(d) if d.isdigit() else None for d in re.findall(r"\[(\w*)\]", m.group(5))]
        self.pointer = self.depth > 0 or bool(self.dims)

    def ctype(self):
        if self.pointer:
            return ctypes.c_void_p
        if self.base in _STRUCTS:
            return _STRUCTS[self.base]
        return _SCALARS[self.base]


def _step_name(name):
    """pSrc -> srcStep; xMap -> xMapStep (the coordinate maps of remap)."""
    if name.startswith("p") and len(name) > 1 and name[1].isupper():
        return name[1].lower() + name[2:] + "Step"
    return name + "Step"


def _plane(p):
    """Image arguments not named p... (xMap, yMap) are single-channel planes whatever the layout."""
    return not (p.name.startswith("p") and len(p.name) > 1 and p.name[1].isupper())


class Export:
    def __init__(self, name, family, types, layout, form, ret, args):
        self.name, self.family, self.types, self.layout, self.form = name, family, types, layout, form
        self.ret = ret
        self.params = [Param(a) for a in args.split(",")] if args.strip() else []
        self._fn = None
        # image arguments: a pointer and its step, next to it or after the
        # image's size (pSrc, srcSize, srcStep): index of the pointer -> index of the step
        self.images = {}
        for i, p in enumerate(self.params):
            if p.depth != 1 or p.dims:
                continue
            for j in (i + 1, i + 2):
                if j < len(self.params) and self.params[j].name == _step_name(p.name) and self.params[j].base == "int":
                    self.images[i] = j
                    break
        self.steps = set(self.images.values())

    @property
    def fn(self):
        if self._fn is None:
            f = getattr(_lib, self.name)
            f.argtypes = [p.ctype() for p in self.params]
            f.restype = None if self.ret == "void" else _SCALARS.get(self.ret, ctypes.c_void_p)
            self._fn = f
        return self._fn

    def __call__(self, *args):
        r = self.fn(*args)
        return _check(r, self.name) if self.ret == "RokStatus" else r

    def __repr__(self):
        return f"<rokip export {self.name}({', '.join(p.name for p in self.params)})>"


exports = {e[0]: Export(*e) for e in EXPORTS}
families = {}
for _e in exports.values():
    families.setdefault(_e.family, []).append(_e)


class _Raw:
    """Every export by its C name, called with C arguments (addresses as integers)."""

    def __getattr__(self, name):
        try:
            return exports[name]
        except KeyError:
            raise AttributeError(name) from None

    def __dir__(self):
        return list(exports)


raw = _Raw()


# ---- records ----

class _Closing:
    """close() at the end of a with block, and when garbage-collected."""

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        try:
            self.close()
        except Exception:
            pass


class Record(_Closing):
    """A record the library allocated; freed by close() or at the end of a with block."""

    def __init__(self, ctype_name, pointer, free):
        self.ctype_name, self._ptr, self._free = ctype_name, pointer, free

    @property
    def pointer(self):
        if not self._ptr:
            raise ValueError(f"{self.ctype_name} record is closed")
        return self._ptr

    def close(self):
        if self._ptr:
            p, self._ptr = self._ptr, None
            self._free(p)

    def __repr__(self):
        return f"<rokip.Record {self.ctype_name} {'closed' if not self._ptr else hex(self._ptr)}>"


def _free_for(ctype_name, made_by=None):
    """The Free export of a record type; where several take it (one per
    layout), the one whose name ends as the allocating export's does."""
    found = [e for e in exports.values()
             if "Free" in e.name and len(e.params) == 1 and e.params[0].base == ctype_name and e.params[0].depth == 1]
    if made_by is not None and "InitAlloc" in made_by:
        tail = made_by.split("InitAlloc", 1)[1]
        for e in found:
            if e.name.endswith(tail):
                return e
    return found[0] if found else None


def _buffer_query(record):
    # RokiFFTSpec_R_32f -> rokiFFTGetBufSize_R_32f, RokiDCTFwdSpec_32f -> rokiDCTFwdGetBufSize_32f
    m = re.match(r"Roki(\w+?)Spec_(\w+)$", record.ctype_name)
    if m:
        return exports.get(f"roki{m.group(1)}GetBufSize_{m.group(2)}")
    return None


def _work_buffer_size(export, c_args, records):
    """Bytes of the work buffer a call needs: from the record's buffer query,
    or from the family's size query over the arguments bound so far (the
    buffer comes last)."""
    size = ctypes.c_int(0)
    for r in records:
        query = _buffer_query(r)
        if query is not None:
            query(r.pointer, ctypes.addressof(size))
            return size.value
    arg = {p.name: c_args[i] for i, p in enumerate(export.params)}
    nc = int(export.layout[-1]) if export.layout[-1:].isdigit() else 1
    if export.family == "ResizeSqrPixel":
        query = exports["rokiResizeGetBufSize_64f" if export.types == "64f" else "rokiResizeGetBufSize"]
        query(arg["srcRoi"], arg["dstRoi"], nc, arg["interpolation"], ctypes.addressof(size))
        return size.value
    if export.family == "FilterMedian" and f"rokiFilterMedianGetBufferSize_{export.types}" in exports:
        query = exports[f"rokiFilterMedianGetBufferSize_{export.types}"]
        query(arg["dstRoiSize"], arg["maskSize"], nc, ctypes.addressof(size))
        return size.value
    return None


# ---- NumPy images ----

def _channels(arr):
    return 1 if arr.ndim == 2 else arr.shape[2]


def _check_image(arr, p, layout, export):
    if not isinstance(arr, np.ndarray):
        raise TypeError(f"{export.name}: {p.name} must be a NumPy array, not {type(arr).__name__}")
    want = np.dtype(_DTYPES[p.base])
    if arr.dtype != want:
        raise TypeError(f"{export.name}: {p.name} must have dtype {want}, not {arr.dtype}")
    if arr.ndim not in (2, 3):
        raise ValueError(f"{export.name}: {p.name} must be (height, width) or (height, width, channels)")
    nc = _CHANNELS.get(layout, 1)
    if _channels(arr) != nc:
        raise ValueError(f"{export.name}: {p.name} must have {nc} channel(s) for {layout}, not {_channels(arr)}")
    item = arr.itemsize
    if arr.size == 0:  # no samples: the library reports the size
        return arr.ctypes.data, max(int(arr.strides[0]), 1)
    if arr.ndim == 3 and arr.shape[2] > 1 and arr.strides[2] != item:
        raise ValueError(f"{export.name}: {p.name}: the channels of a pixel must be contiguous")
    if arr.shape[1] > 1 and arr.strides[1] != nc * item:
        raise ValueError(f"{export.name}: {p.name}: the pixels of a row must be contiguous")
    if arr.shape[0] > 1 and arr.strides[0] <= 0:
        raise ValueError(f"{export.name}: {p.name}: rows must go forward in memory")
    if not p.const and not arr.flags.writeable:
        raise ValueError(f"{export.name}: {p.name} is read-only")
    step = arr.strides[0] if arr.shape[0] > 1 else arr.shape[1] * nc * item
    if step >= 2 ** 31 or max(arr.shape[:2]) >= 2 ** 31:
        raise ValueError(f"{export.name}: {p.name}: the row step and the sizes must fit in 32 bits")
    return arr.ctypes.data, int(step)


def _layout_of(arr, layout):
    if layout:
        return layout
    return {1: "C1", 2: "C2", 3: "C3", 4: "C4"}.get(_channels(arr), None)


def _type_token(arr):
    for token, d in (("8u", np.uint8), ("8s", np.int8), ("16u", np.uint16), ("16s", np.int16), ("32u", np.uint32),
                     ("32s", np.int32), ("32f", np.float32), ("64s", np.int64), ("64f", np.float64),
                     ("32fc", np.complex64), ("64fc", np.complex128)):
        if arr.dtype == d:
            return token
    if arr.dtype == _DTYPES["Rok16sc"]:
        return "16sc"
    if arr.dtype == _DTYPES["Rok32sc"]:
        return "32sc"
    return None


def _bind(export, arrays, scalars, kw):
    """C arguments for the export from the arrays and values given, and the
    outputs to return; raises TypeError/ValueError when they do not fit."""
    kw = dict(kw)
    arrays = list(arrays)
    scalars = list(scalars)
    c_args = [None] * len(export.params)
    outputs = []
    keep = []  # arrays that must live through the call
    images = []  # (parameter, array) of every image argument
    first = arrays[0] if arrays else None
    out_image = None
    nc = _CONST_CHANNELS.get(export.layout, 1)
    records = [a for a in scalars if isinstance(a, Record)] + [v for v in kw.values() if isinstance(v, Record)]
    i = 0
    while i < len(export.params):
        p = export.params[i]
        if i in export.images:
            inplace = "SrcDst" in p.name
            if p.const or inplace:
                if p.name in kw:
                    arr = kw.pop(p.name)
                elif arrays:
                    arr = arrays.pop(0)
                else:
                    raise TypeError(f"{export.name}: missing image {p.name}")
                if inplace:
                    outputs.append(arr)
                    out_image = arr
            else:
                arr = kw.pop(p.name, None)
                if arr is None:
                    arr = kw.pop("out", None)
                if arr is None:
                    if first is None:
                        raise TypeError(f"{export.name}: pass the output {p.name}=...")
                    chans = _CHANNELS.get(export.layout, 1)
                    shape = first.shape[:2] + ((chans,) if (chans > 1 or first.ndim == 3) else ())
                    arr = np.zeros(shape, _DTYPES[p.base])
                outputs.append(arr)
                out_image = arr
            ptr, step = _check_image(arr, p, "C1" if _plane(p) else export.layout, export)
            images.append((p, arr))
            c_args[i], c_args[export.images[i]] = ptr, step
            keep.append(arr)
            i += 1
            continue
        if i in export.steps:  # set with its image
            i += 1
            continue
        if p.name in kw:
            v = kw.pop(p.name)
        else:
            v = None
        if p.depth == 2:  # a record the call allocates
            holder = ctypes.c_void_p(0)
            keep.append(holder)
            c_args[i] = ctypes.addressof(holder)
            outputs.append(("record", p.base, holder))
        elif p.pointer and p.base.startswith("Roki") and p.base not in _STRUCTS:  # a record passed on
            rec = v if v is not None else next((r for r in records if r.ctype_name == p.base), None)
            if rec is None and scalars and isinstance(scalars[0], Record):
                rec = scalars.pop(0)
            if rec is None:
                raise TypeError(f"{export.name}: pass a {p.base} record for {p.name}")
            if rec in scalars:
                scalars.remove(rec)
            c_args[i] = rec.pointer
        elif p.pointer and p.name == "pBuffer" and v is None:
            size = _work_buffer_size(export, c_args, records)
            if size is None:
                raise TypeError(f"{export.name}: pass pBuffer= (a uint8 array of the size the family's GetBufferSize gives)")
            buf = np.zeros(max(size, 1), np.uint8)
            keep.append(buf)
            c_args[i] = buf.ctypes.data
        elif p.pointer:
            length = 1
            for d in p.dims:
                length *= d if d is not None else nc
            if p.depth == 1 and p.dims:  # Rok32s* const pHist[4]: an array of pointers
                if v is None:
                    raise TypeError(f"{export.name}: pass {p.name}=[arrays]")
                arrs = [np.ascontiguousarray(x, dtype=_DTYPES.get(p.base, np.uint8)) for x in v]
                keep.extend(arrs)
                ptrs = (ctypes.c_void_p * len(arrs))(*[a.ctypes.data for a in arrs])
                keep.append(ptrs)
                c_args[i] = ctypes.addressof(ptrs)
            elif p.const or v is not None:
                if v is None:
                    if not scalars:
                        raise TypeError(f"{export.name}: missing argument {p.name}")
                    v = scalars.pop(0)
                arr = np.ascontiguousarray(v, dtype=_DTYPES.get(p.base, np.uint8))
                if p.dims and arr.size < length:
                    raise ValueError(f"{export.name}: {p.name} needs {length} values")
                if p.dims and arr.ndim == 0:
                    arr = np.full(length, arr, arr.dtype)
                keep.append(arr)
                c_args[i] = arr.ctypes.data
                if not p.const and p.name != "pBuffer":
                    outputs.append(arr)
            else:  # a result the call writes
                arr = np.zeros(length if p.dims else (nc if p.base in _DTYPES and "C" in export.layout and nc > 1 else 1),
                               _DTYPES.get(p.base, np.uint8))
                keep.append(arr)
                c_args[i] = arr.ctypes.data
                outputs.append(("value", arr))
        elif p.base in _STRUCTS:
            if v is None:
                v = _default_struct(p, first, out_image)
            if v is None:
                if not scalars:
                    raise TypeError(f"{export.name}: missing argument {p.name}")
                v = scalars.pop(0)
            c_args[i] = v if isinstance(v, _STRUCTS[p.base]) else _STRUCTS[p.base](*v)
        else:
            if v is None and p.name == "scaleFactor" and not scalars:
                v = 0  # integer results unscaled unless asked
            if v is None:
                if not scalars:
                    raise TypeError(f"{export.name}: missing argument {p.name}")
                v = scalars.pop(0)
            c_args[i] = v
        i += 1
    _check_roi(export, c_args, images)
    if arrays or scalars or kw:
        left = [f"{len(arrays)} image(s)"] if arrays else []
        left += [repr(s) for s in scalars] + list(kw)
        raise TypeError(f"{export.name}: unused arguments: {', '.join(left)}")
    return c_args, outputs, keep


def _check_roi(export, c_args, images):
    """Every image the ROI covers must hold it: all images for a roiSize, the
    destinations for a dstRoiSize (sources are read around it: the caller
    leaves that border, as in C), the source for a srcSize and the destination
    for a dstRoi rectangle. Checked before the call, so that a wrong array
    raises ValueError rather than letting the library read or write outside
    it."""
    for i, p in enumerate(export.params):
        if c_args[i] is None:
            continue
        if p.base == "RokiSize" and p.name == "srcSize":  # the whole source image
            src = next((arr for q, arr in images if q.const), None)
            if src is not None and (src.shape[0] < c_args[i].height or src.shape[1] < c_args[i].width):
                raise ValueError(f"{export.name}: srcSize {c_args[i].height}x{c_args[i].width} is larger than the "
                                 f"source, {src.shape[0]}x{src.shape[1]} (rows x columns)")
        if p.base == "RokiRect" and p.name == "dstRoi":
            r = c_args[i]
            for q, arr in images:
                if not q.const and (r.x < 0 or r.y < 0 or r.x + r.width > arr.shape[1] or r.y + r.height > arr.shape[0]):
                    raise ValueError(f"{export.name}: dstRoi ({r.x}, {r.y}, {r.width}, {r.height}) is not inside "
                                     f"{q.name}, {arr.shape[0]}x{arr.shape[1]} (rows x columns)")
        if p.base != "RokiSize" or p.name not in ("roiSize", "dstRoiSize"):
            continue
        roi = c_args[i]
        for q, arr in images:
            if p.name == "dstRoiSize" and q.const:
                continue
            if arr.shape[0] < roi.height or arr.shape[1] < roi.width:
                raise ValueError(f"{export.name}: {q.name} is {arr.shape[0]}x{arr.shape[1]} (rows x columns), "
                                 f"smaller than the ROI {roi.height}x{roi.width}")


def _default_struct(p, first, out):
    """Sizes and rectangles default to the images': the destination's for dst*, else the first source's."""
    img = out if (p.name.startswith("dst") and out is not None) else first
    if img is None:
        return None
    h, w = img.shape[:2]
    if p.base == "RokiSize" and ("roi" in p.name.lower() or p.name == "srcSize"):
        return Size(w, h)
    if p.base == "RokiRect" and "roi" in p.name.lower():
        return Rect(0, 0, w, h)
    return None


def _finish(export, outputs):
    res = []
    for o in outputs:
        if isinstance(o, tuple) and o[0] == "record":
            free = _free_for(o[1], export.name)
            res.append(Record(o[1], o[2].value, free))
        elif isinstance(o, tuple) and o[0] == "value":
            a = o[1]
            res.append(a[0].item() if a.size == 1 else a)
        else:
            res.append(o)
    if not res:
        return None
    return res[0] if len(res) == 1 else tuple(res)


class Family:
    """Calls the export of a family that fits the arrays given."""

    def __init__(self, name):
        self.name = name
        self.members = families[name]

    def candidates(self, arrays, kw):
        layout = kw.pop("layout", None)
        inplace = kw.pop("inplace", False)
        dtype = kw.pop("dtype", None)
        if not arrays:
            return list(self.members)
        a = arrays[0]
        if not isinstance(a, np.ndarray):
            raise TypeError(f"{self.name}: images must be NumPy arrays, not {type(a).__name__}")
        if a.ndim not in (2, 3) or (a.ndim == 3 and not 1 <= a.shape[2] <= 4):
            raise ValueError(f"{self.name}: an image is (height, width) or (height, width, channels) with 1 to 4 "
                             f"channels, not shape {a.shape}")
        token = _type_token(a)
        if token is None:
            raise TypeError(f"{self.name}: no sample type for dtype {a.dtype}")
        lay = _layout_of(a, layout)
        out = []
        for e in self.members:
            if e.layout and e.layout != lay:
                continue
            if dtype is not None:
                dt = np.dtype(dtype)
                want = token + next((t for t, d in _TOKENS if np.dtype(d) == dt), "?")
                if e.types != want:
                    continue
            elif e.types != token and not (e.types.startswith(token) and e.types[len(token):] in dict(_TOKENS)):
                continue
            if bool(inplace) != ("I" in e.form):
                continue
            out.append(e)
        if not out:
            types = sorted({e.types for e in self.members})
            lays = sorted({e.layout for e in self.members})
            raise TypeError(f"{self.name}: no form for dtype {a.dtype} ({token}) with layout {lay}"
                            f"{' in place' if inplace else ''}; it takes {' '.join(types)} in {' '.join(lays)}")
        return out

    def __call__(self, *args, **kw):
        arrays = [a for a in args if isinstance(a, np.ndarray)]
        scalars = [a for a in args if not isinstance(a, np.ndarray)]
        if not arrays and any(e.images for e in self.members) and not any(k.startswith("p") for k in kw):
            raise TypeError(f"{self.name}: images must be NumPy arrays"
                            + (f", not {type(args[0]).__name__}" if args else ""))
        cands = self.candidates(arrays, kw)
        # Prefer the form without a scale factor when none is given, and the
        # two-type forms of the source type (Convert) in table order.
        cands.sort(key=lambda e: ("Sfs" in e.form and "scaleFactor" not in kw, len(e.params)))
        errors = []
        for e in cands:
            try:
                c_args, outputs, keep = _bind(e, arrays, scalars, kw)
            except (TypeError, ValueError) as err:
                errors.append(err)
                continue
            e(*c_args)
            del keep
            return _finish(e, outputs)
        raise errors[0] if len(errors) == 1 or not isinstance(errors[0], TypeError) else errors[-1]

    def __repr__(self):
        return f"<rokip family {self.name}: {len(self.members)} exports>"


_TOKENS = (("8u", np.uint8), ("8s", np.int8), ("16u", np.uint16), ("16s", np.int16), ("32u", np.uint32),
           ("32s", np.int32), ("32f", np.float32), ("64s", np.int64), ("64f", np.float64),
           ("32fc", np.complex64), ("64fc", np.complex128))


def _family_doc(name):
    forms = {}
    for e in families[name]:
        forms.setdefault((e.form, ", ".join(p.name for p in e.params)), []).append(f"{e.types}_{e.layout}")
    lines = [f"rokip.{name}(images..., arguments...): calls the export of roki{name} that fits the arrays.", ""]
    if name in DOCS:
        lines += [textwrap.fill(par, 79) + "\n" for par in DOCS[name].split("\n")]
    lines.append("Forms (C arguments by name; images are NumPy arrays, sizes default to theirs):")
    for (form, args), which in forms.items():
        lines.append(textwrap.fill(f"  {form or '-'}({args}): {' '.join(which)}", 79, subsequent_indent="      "))
    return "\n".join(lines)


def __getattr__(name):
    if name in families:
        cls = type(name, (Family,), {"__doc__": _family_doc(name)})
        return cls(name)
    if "roki" + name in exports and exports["roki" + name].params and exports["roki" + name].params[0].depth == 2:
        return _record_maker(exports["roki" + name])
    raise AttributeError(f"module 'rokip' has no attribute {name!r}")


def _record_maker(export):
    def make(*args, **kw):
        c_args, outputs, keep = _bind(export, [], list(args), kw)
        export(*c_args)
        return _finish(export, outputs)
    make.__name__ = export.name[4:]
    return make


def __dir__():
    return sorted(set(globals()) | set(families))


from ._objects import DCT, Fourier, Moments, Wavelet  # noqa: E402  (they build on the names above)

__all__ += ["Moments", "DCT", "Fourier", "Wavelet", "Size", "Rect", "Point"]
