"""Context-managed objects over the library's records: moments of an image,
and 2-D DCT and Fourier transforms of a fixed size. Each holds the records it
allocated and frees them at the end of a with block or on close()."""
import ctypes

import numpy as np

from . import Family, Point, Record, Size, exports, _Closing, _record_maker

_SCALING = {"none": 8, "forward": 1, "inverse": 2, "sqrt": 4}


class _Holder(_Closing):
    """Frees the records it holds on close() or at the end of a with block."""

    def __init__(self):
        self._records = []

    def _hold(self, record):
        self._records.append(record)
        return record

    def _check_open(self):
        if not self._records or any(not r._ptr for r in self._records):
            raise ValueError(f"{type(self).__name__} is closed")

    def close(self):
        for r in self._records:
            r.close()


def _shape_of(shape):
    try:
        h, w = (int(v) for v in tuple(shape)[:2])
    except (TypeError, ValueError):
        raise TypeError("shape must be (height, width)") from None
    if len(tuple(shape)) < 2:
        raise TypeError("shape must be (height, width)")
    return h, w


class Moments(_Holder):
    """Spatial moments up to order 3 of each channel, in a double-precision
    moment state of the library:

        with rokip.Moments(image) as m:
            m.hu(0), m.centroid(0), m.central(2, 0, channel=0)

    The image is uint8, uint16 or float32 with 1 or 3 channels; with 4
    channels the colour channels are used and alpha is left out. compute()
    takes another image into the same state."""

    def __init__(self, image=None, hint=2):
        super().__init__()
        self._state = self._hold(_record_maker(exports["rokiMomentInitAlloc_64f"])(int(hint)))
        self.channels = 0
        if image is not None:
            self.compute(image)

    def compute(self, image):
        self._check_open()
        if not isinstance(image, np.ndarray):
            raise TypeError(f"Moments: the image must be a NumPy array, not {type(image).__name__}")
        chans = 1 if image.ndim == 2 else image.shape[-1]
        layout = "AC4" if chans == 4 else None
        Family("Moments64f")(image, self._state, **({"layout": layout} if layout else {}))
        self.channels = 1 if chans == 1 else 3
        return self

    def _value(self, name, *args):
        self._check_open()
        v = ctypes.c_double(0)
        exports[name](self._state.pointer, *args, ctypes.addressof(v))
        return v.value

    def spatial(self, m, n, channel=0, offset=(0, 0)):
        """Sum of x^m y^n I(x, y), x and y counted from offset (the ROI's position in a larger image)."""
        return self._value("rokiGetSpatialMoment_64f", int(m), int(n), int(channel), Point(*offset))

    def normalized_spatial(self, m, n, channel=0, offset=(0, 0)):
        return self._value("rokiGetNormalizedSpatialMoment_64f", int(m), int(n), int(channel), Point(*offset))

    def central(self, m, n, channel=0):
        """Sum of (x - cx)^m (y - cy)^n I(x, y) about the centroid."""
        return self._value("rokiGetCentralMoment_64f", int(m), int(n), int(channel))

    def normalized_central(self, m, n, channel=0):
        return self._value("rokiGetNormalizedCentralMoment_64f", int(m), int(n), int(channel))

    def centroid(self, channel=0):
        """(x, y) of the channel's centre of mass."""
        m00 = self.spatial(0, 0, channel)
        return self.spatial(1, 0, channel) / m00, self.spatial(0, 1, channel) / m00

    def hu(self, channel=0):
        """The seven Hu invariants of the channel, as a float64 array."""
        self._check_open()
        out = np.zeros(7, np.float64)
        exports["rokiGetHuMoments_64f"](self._state.pointer, int(channel), out.ctypes.data)
        return out


class DCT(_Holder):
    """Forward and inverse 2-D discrete cosine transform of float32 images
    of one size (1, 3 or 4 channels, each transformed on its own):

        with rokip.DCT((480, 640)) as dct:
            c = dct.forward(x)
            y = dct.inverse(c)"""

    def __init__(self, shape, hint=0):
        super().__init__()
        self.shape = _shape_of(shape)
        size = Size(self.shape[1], self.shape[0])
        self._fwd = self._hold(_record_maker(exports["rokiDCTFwdInitAlloc_32f"])(size, int(hint)))
        try:
            self._inv = self._hold(_record_maker(exports["rokiDCTInvInitAlloc_32f"])(size, int(hint)))
        except Exception:
            self.close()
            raise

    def _run(self, family, record, x, out):
        self._check_open()
        if not isinstance(x, np.ndarray):
            raise TypeError(f"{type(self).__name__}: the image must be a NumPy array, not {type(x).__name__}")
        if x.shape[:2] != self.shape:
            raise ValueError(f"{type(self).__name__}: the image is {x.shape[:2]}, the transform {self.shape}")
        return Family(family)(x, record, **({"out": out} if out is not None else {}))

    def forward(self, x, out=None):
        return self._run("DCTFwd", self._fwd, x, out)

    def inverse(self, c, out=None):
        return self._run("DCTInv", self._inv, c, out)


class Fourier(DCT):
    """Forward and inverse 2-D Fourier transform of real float32 images of
    one size, the spectrum in the library's packed layout (same shape as the
    image). Sizes that are powers of two use the FFT records, others the DFT
    records. scaling: "none", "forward" (1/(w h) on the forward transform),
    "inverse" (the default: the inverse undoes the forward one) or "sqrt"."""

    def __init__(self, shape, scaling="inverse", hint=0):
        _Holder.__init__(self)
        self.shape = h, w = _shape_of(shape)
        if scaling not in _SCALING:
            raise ValueError(f"Fourier: scaling takes {', '.join(_SCALING)}, not {scaling!r}")
        flag = _SCALING[scaling]
        self.fft = w > 0 and h > 0 and w & (w - 1) == 0 and h & (h - 1) == 0
        if self.fft:
            rec = _record_maker(exports["rokiFFTInitAlloc_R_32f"])(w.bit_length() - 1, h.bit_length() - 1, flag, int(hint))
        else:
            rec = _record_maker(exports["rokiDFTInitAlloc_R_32f"])(w, h, flag, int(hint))
        self._fwd = self._inv = self._hold(rec)
        self._prefix = "FFT" if self.fft else "DFT"

    def forward(self, x, out=None):
        return self._run(self._prefix + "Fwd_RToPack", self._fwd, x, out)

    def inverse(self, c, out=None):
        return self._run(self._prefix + "Inv_PackToR", self._inv, c, out)


_HAAR = 0.70710678118654752


class Wavelet(_Holder):
    """One level of the separable 2-D wavelet transform of float32 images
    with 1 or 3 channels, in forward and inverse records of the library:

        with rokip.Wavelet() as wt:                      # Haar unless filters are given
            approx, detail_x, detail_y, detail_xy = wt.forward(x)
            y = wt.inverse(approx, detail_x, detail_y, detail_xy)

    analysis and synthesis are (low taps, low anchor, high taps, high anchor);
    band j = sum_k taps[k] * x[2j + anchor - k]. The bands are half the
    image's size (an odd last row or column is left out); the pixels the
    filters read beyond the image or the bands are its edge pixels repeated,
    so filters longer than 2 taps reconstruct exactly only away from the
    edges. detail_x is high-pass along columns, detail_y along rows."""

    def __init__(self, channels=1, analysis=None, synthesis=None):
        super().__init__()
        if channels not in (1, 3):
            raise ValueError(f"Wavelet: channels is 1 or 3, not {channels!r}")
        self.channels = channels
        self._lay = "C1" if channels == 1 else "C3"
        self._banks = []
        for kind, bank, default in (("Fwd", analysis, ((_HAAR, _HAAR), 1, (_HAAR, -_HAAR), 1)),
                                    ("Inv", synthesis, ((_HAAR, _HAAR), 0, (-_HAAR, _HAAR), 0))):
            low, alow, high, ahigh = bank if bank is not None else default
            low, high = np.ascontiguousarray(low, np.float32), np.ascontiguousarray(high, np.float32)
            if low.ndim != 1 or high.ndim != 1:
                raise ValueError("Wavelet: the taps are one-dimensional sequences")
            self._banks.append((low, int(alow), high, int(ahigh)))
            try:
                rec = _record_maker(exports[f"rokiWT{kind}InitAlloc_32f_{self._lay}R"])(
                    low, len(low), int(alow), high, len(high), int(ahigh))
            except Exception:
                self.close()
                raise
            self._hold(rec)
        self._fwd, self._inv = self._records

    def _check(self, x, what):
        if not isinstance(x, np.ndarray):
            raise TypeError(f"Wavelet: {what} must be a NumPy array, not {type(x).__name__}")
        if x.dtype != np.float32:
            raise TypeError(f"Wavelet: {what} must have dtype float32, not {x.dtype}")
        chans = 1 if x.ndim == 2 else (x.shape[2] if x.ndim == 3 else 0)
        if chans != self.channels:
            raise ValueError(f"Wavelet: {what} must be (height, width{', 3' if self.channels == 3 else ''}), not {x.shape}")

    def _pad(self, x, before, after):
        width = ((before, after), (before, after)) + (((0, 0),) if x.ndim == 3 else ())
        return np.ascontiguousarray(np.pad(x, width, mode="edge"))

    def _run(self, name, record, arrays, out, roi, border):
        size = ctypes.c_int(0)
        exports[f"rokiWT{name}GetBufSize_{self._lay}R"](record.pointer, ctypes.addressof(size))
        buf = np.zeros(max(size.value, 1), np.uint8)
        args = []
        for a in arrays:
            item = a.strides[1]
            args += [a.ctypes.data + border * a.strides[0] + border * item, a.strides[0]]
        call = exports[f"rokiWT{name}_32f_{self._lay}R"]
        if name == "Fwd":
            call(*args, *[v for o in out for v in (o.ctypes.data, o.strides[0])], roi, record.pointer, buf.ctypes.data)
        else:
            call(*args, roi, out[0].ctypes.data, out[0].strides[0], record.pointer, buf.ctypes.data)

    def forward(self, x):
        """The four bands (approx, detail_x, detail_y, detail_xy) of x."""
        self._check_open()
        self._check(x, "the image")
        h, w = x.shape[0] // 2, x.shape[1] // 2
        if h < 1 or w < 1:
            raise ValueError("Wavelet: the image must be at least 2x2")
        low, alow, high, ahigh = self._banks[0]
        before = max(len(low) - alow - 1, len(high) - ahigh - 1, 0)
        after = max(alow - 1, ahigh - 1, 0)
        src = self._pad(x[:2 * h, :2 * w], before, after)
        # the border is the same on both sides of each axis, so the region starts at (before, before)
        bands = [np.zeros((h, w) + x.shape[2:], np.float32) for _ in range(4)]
        self._run("Fwd", self._fwd, [src], bands, Size(w, h), before)
        return tuple(bands)

    def inverse(self, approx, detail_x, detail_y, detail_xy):
        """The image (twice the bands' size) from the four bands."""
        self._check_open()
        bands = (approx, detail_x, detail_y, detail_xy)
        for b, n in zip(bands, ("approx", "detail_x", "detail_y", "detail_xy")):
            self._check(b, n)
            if b.shape != approx.shape:
                raise ValueError(f"Wavelet: {n} is {b.shape}, approx {approx.shape}")
        h, w = approx.shape[:2]
        low, alow, high, ahigh = self._banks[1]
        before = max((len(low) - 1 - alow) // 2, (len(high) - 1 - ahigh) // 2, 0)
        after = max((alow + 1) // 2, (ahigh + 1) // 2, 0)
        padded = [self._pad(b, before, after) for b in bands]
        out = np.zeros((2 * h, 2 * w) + approx.shape[2:], np.float32)
        self._run("Inv", self._inv, padded, [out], Size(w, h), before)
        return out
