"""rokip against NumPy references, on arrays of several dtypes, shapes and
strides, and its error paths (checked before any call, or raised from the
library's status)."""
import warnings

import numpy as np
import pytest

import rokip

RNG = np.random.default_rng(7)


def image(h, w, c, dtype):
    shape = (h, w) if c == 0 else (h, w, c)
    if np.dtype(dtype).kind == "f":
        return (RNG.random(shape) * 200 - 50).astype(dtype)
    info = np.iinfo(dtype)
    return RNG.integers(info.min, info.max, shape, endpoint=True).astype(dtype)


def half_even_shift(x, sf):
    """x * 2^-sf rounded half to even (sf >= 1), in wide integers."""
    q = np.floor_divide(x, 1 << sf)
    r = x - q * (1 << sf)
    half = 1 << (sf - 1)
    return q + ((r > half) | ((r == half) & (q % 2 == 1)))


@pytest.mark.parametrize("dtype,c", [(np.uint8, 0), (np.uint8, 3), (np.uint16, 4), (np.int16, 1), (np.uint8, 4)])
@pytest.mark.parametrize("w", [1, 7, 33, 70])
def test_add_and_sub_saturate_with_the_scale_factor(dtype, c, w):
    a, b = image(5, w, c, dtype), image(5, w, c, dtype)
    info = np.iinfo(dtype)
    wide_a, wide_b = a.astype(np.int64), b.astype(np.int64)
    for sf in (0, 1, 3):
        want = wide_a + wide_b if sf == 0 else half_even_shift(wide_a + wide_b, sf)
        np.testing.assert_array_equal(rokip.Add(a, b, scaleFactor=sf), np.clip(want, info.min, info.max))
    # first minus second in the library's order: Sub(x, y) = y - x
    np.testing.assert_array_equal(rokip.Sub(b, a, scaleFactor=0), np.clip(wide_a - wide_b, info.min, info.max))


def test_float_forms_and_strided_views_are_used_in_place():
    big = image(20, 40, 3, np.float32)
    view = big[3:17:2, 5:30]  # rows strided, pixels contiguous
    other = image(7, 25, 3, np.float32)
    np.testing.assert_array_equal(rokip.Add(view, other), view + other)
    out = np.zeros((7, 25, 3), np.float32)
    got = rokip.Mul(view, other, out=out)
    assert got is out
    np.testing.assert_array_equal(out, view * other)
    # in place: the second image is updated
    target = other.copy()
    rokip.Add(view, target, inplace=True)
    np.testing.assert_array_equal(target, other + view)


def test_ac4_leaves_alpha_as_it_was():
    a, b = image(4, 9, 4, np.uint8), image(4, 9, 4, np.uint8)
    out = np.full((4, 9, 4), 77, np.uint8)
    rokip.Add(a, b, scaleFactor=1, layout="AC4", out=out)
    assert (out[..., 3] == 77).all()
    want = half_even_shift(a[..., :3].astype(np.int64) + b[..., :3], 1)
    np.testing.assert_array_equal(out[..., :3], np.clip(want, 0, 255))


@pytest.mark.parametrize("dtype,c", [(np.uint8, 0), (np.uint8, 3), (np.uint16, 4), (np.float32, 0), (np.float32, 3)])
def test_statistics(dtype, c):
    a = image(13, 21, c, dtype)
    flat = a.reshape(-1, max(c, 1)).astype(np.float64)
    hint = {"hint": 2} if np.dtype(dtype).kind == "f" else {}
    s = rokip.Sum(a, **hint)
    np.testing.assert_allclose(s, flat.sum(0) if c else flat.sum(), rtol=1e-6)
    mn, mx = rokip.MinMax(a)
    np.testing.assert_array_equal(mn, a.reshape(-1, max(c, 1)).min(0) if c else a.min())
    np.testing.assert_array_equal(mx, a.reshape(-1, max(c, 1)).max(0) if c else a.max())
    l2 = rokip.Norm_L2(a, **hint)
    np.testing.assert_allclose(l2, np.sqrt((flat ** 2).sum(0)) if c else np.sqrt((flat ** 2).sum()), rtol=1e-6)


def test_convert_threshold_and_mirror():
    a = image(6, 11, 3, np.uint8)
    f = rokip.Convert(a, dtype=np.float32)
    np.testing.assert_array_equal(f, a.astype(np.float32))
    back = rokip.Convert(f + np.float32(0.5), roundMode=1, dtype=np.uint8)  # x.5 to even
    np.testing.assert_array_equal(back, np.clip(np.round(a + 0.5), 0, 255).astype(np.uint8))
    g = image(6, 11, 0, np.uint8)
    np.testing.assert_array_equal(rokip.Threshold(g, np.uint8(100), 4), np.minimum(g, 100))  # greater: clamp above
    np.testing.assert_array_equal(rokip.Mirror(a, 2), a[::-1, ::-1])


def test_box_filter_on_a_view_with_a_border():
    big = image(12, 16, 0, np.uint8)
    inner = big[1:11, 1:15]  # the filter reads one pixel around
    got = rokip.FilterBox(inner, maskSize=(3, 3), anchor=(1, 1))
    wide = big.astype(np.int64)
    sums = sum(wide[dy:dy + 10, dx:dx + 14] for dy in range(3) for dx in range(3))
    # the mean rounds to nearest; ties cannot occur with 9 terms
    np.testing.assert_array_equal(got, (sums * 2 + 9) // 18)


def test_fft_record_as_context_manager():
    x = image(8, 16, 0, np.float32)
    with rokip.FFTInitAlloc_R_32f(4, 3, 8, 0) as spec:  # orders 2^4 x 2^3, no division
        packed = rokip.FFTFwd_RToPack(x, spec)
        assert packed[0, 0] == pytest.approx(float(x.astype(np.float64).sum()), rel=1e-5)
        assert packed[0, 0] == pytest.approx(np.fft.fft2(x.astype(np.float64))[0, 0].real, rel=1e-5)
    with pytest.raises(ValueError, match="closed"):
        rokip.FFTFwd_RToPack(x, spec)


def test_errors_before_any_call():
    a = image(4, 5, 3, np.uint8)
    with pytest.raises(TypeError, match="no form for dtype float64"):
        rokip.Add(a.astype(np.float64), a.astype(np.float64))
    with pytest.raises(ValueError, match="3 channel"):
        rokip.Add(a, image(4, 5, 2, np.uint8))
    with pytest.raises(TypeError, match="dtype uint8"):
        rokip.Add(a, a, out=np.zeros((4, 5, 3), np.uint16))
    with pytest.raises(ValueError, match="contiguous"):
        rokip.Sum(a[:, :, 0])  # one channel of an RGB array: pixels are 3 samples apart
    with pytest.raises(ValueError, match="read-only"):
        ro = np.zeros((4, 5, 3), np.uint8)
        ro.flags.writeable = False
        rokip.Add(a, a, out=ro)
    with pytest.raises(TypeError, match="missing image"):
        rokip.Add(a)
    with pytest.raises(TypeError, match="NumPy arrays"):
        rokip.Sum([[1, 2], [3, 4]])


def test_statuses_become_exceptions_and_warnings():
    with pytest.raises(rokip.RokError) as e:
        rokip.FFTInitAlloc_R_32f(40, 2, 8, 0)
    assert e.value.name == "rokStatusBadFftOrder" and e.value.status < 0
    a = image(3, 4, 0, np.uint8)
    with pytest.raises(rokip.RokError, match="rokStatusBadSize"):
        rokip.Add(a[:0], a[:0])  # zero rows
    num = np.ones((2, 3), np.float32)
    den = np.array([[1, 0, 2], [4, 0, 1]], np.float32)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        rokip.Div(den, num)  # num / den
    assert any(issubclass(w.category, rokip.RokWarning) and "rokStatusDivByZero" in str(w.message) for w in caught)


def test_raw_exports_and_threads():
    assert "rokiAdd_8u_C1RSfs" in rokip.exports
    doc = rokip.FilterBox.__doc__  # the family's header comment and its forms, for help()
    assert "Mean of a maskSize.width x maskSize.height box" in doc and "8u_C3" in doc
    n = rokip.get_num_threads()
    rokip.set_num_threads(1)
    assert rokip.get_num_threads() == 1
    rokip.set_num_threads(n)
    with pytest.raises(rokip.RokError):
        rokip.raw.rokiAdd_8u_C1RSfs(0, 1, 0, 1, 0, 1, rokip.Size(1, 1), 0)  # null pointers


def dct_matrix(n):
    k = np.arange(n)[:, None]
    m = np.cos(np.pi * (2 * np.arange(n)[None, :] + 1) * k / (2 * n)) * np.sqrt(2.0 / n)
    m[0] /= np.sqrt(2.0)
    return m


@pytest.mark.parametrize("dtype,c", [(np.uint8, 0), (np.uint16, 3), (np.float32, 4), (np.uint8, 3)])
def test_moments_object_against_numpy(dtype, c):
    a = image(11, 17, c, dtype)
    if np.dtype(dtype).kind == "f":
        a = np.abs(a)
    view = a[1:10, 2:15]  # a strided view, used in place
    y, x = np.mgrid[0:view.shape[0], 0:view.shape[1]].astype(np.float64)
    with rokip.Moments(view) as m:
        assert m.channels == (1 if c == 0 else 3)
        for ch in range(m.channels):
            img = (view if c == 0 else view[..., ch]).astype(np.float64)
            m00 = img.sum()
            cx, cy = (x * img).sum() / m00, (y * img).sum() / m00
            np.testing.assert_allclose(m.spatial(2, 1, ch), (x * x * y * img).sum(), rtol=1e-9)
            np.testing.assert_allclose(m.spatial(1, 0, ch, offset=(5, 3)), ((x + 5) * img).sum(), rtol=1e-9)
            np.testing.assert_allclose(m.centroid(ch), (cx, cy), rtol=1e-9)
            mu = lambda p, q: ((x - cx) ** p * (y - cy) ** q * img).sum()
            np.testing.assert_allclose(m.central(1, 2, ch), mu(1, 2), rtol=1e-6, atol=1e-6 * m00)
            eta = lambda p, q: mu(p, q) / m00 ** ((p + q) / 2 + 1)
            h1, h2 = eta(2, 0) + eta(0, 2), (eta(2, 0) - eta(0, 2)) ** 2 + 4 * eta(1, 1) ** 2
            np.testing.assert_allclose(m.hu(ch)[:2], (h1, h2), rtol=1e-6)
    with pytest.raises(ValueError, match="closed"):
        m.hu(0)


def test_dct_and_fourier_objects():
    x = image(6, 10, 0, np.float32)
    want = dct_matrix(6) @ x.astype(np.float64) @ dct_matrix(10).T
    with rokip.DCT(x.shape) as d:
        c = d.forward(x)
        np.testing.assert_allclose(c, want, rtol=1e-4, atol=1e-3)
        np.testing.assert_allclose(d.inverse(c), x, rtol=1e-4, atol=1e-3)
        with pytest.raises(ValueError, match=r"\(6, 10\)"):
            d.forward(image(6, 11, 0, np.float32))
        with pytest.raises(TypeError, match="dtype"):
            d.forward(x.astype(np.float64))
    with pytest.raises(ValueError, match="closed"):
        d.forward(x)
    for shape in [(8, 16), (6, 10)]:  # FFT records, then DFT records
        x = image(*shape, 3, np.float32)
        with rokip.Fourier(shape) as f:
            assert f.fft == (shape == (8, 16))
            packed = f.forward(x)
            np.testing.assert_allclose(packed[0, 0], x.astype(np.float64).sum((0, 1)), rtol=1e-5)
            np.testing.assert_allclose(f.inverse(packed), x, rtol=1e-4, atol=1e-3)
    with pytest.raises(ValueError, match="scaling"):
        rokip.Fourier((8, 8), scaling="ortho")
    with pytest.raises(TypeError, match="height, width"):
        rokip.DCT(8)


def test_work_buffers_sizes_and_maps_are_found_for_the_caller():
    a = image(20, 30, 3, np.uint8)
    out = np.zeros((10, 15, 3), np.uint8)
    got = rokip.ResizeSqrPixel(a, pDst=out, dstRoi=rokip.Rect(0, 0, 15, 10), xFactor=0.5, yFactor=0.5, xShift=0, yShift=0,
                               interpolation=8)  # super-sampling: the mean of each 2x2 block
    assert got is out
    assert np.abs(out.astype(np.int64) - a.reshape(10, 2, 15, 2, 3).mean((1, 3))).max() <= 0.5
    f = image(12, 14, 0, np.float32)
    ref = np.median(np.stack([f[dy:dy + 10, dx:dx + 12] for dy in range(3) for dx in range(3)]), axis=0)
    np.testing.assert_array_equal(rokip.FilterMedian(f[1:-1, 1:-1], maskSize=(3, 3), anchor=(1, 1)), ref)
    mx = np.tile(np.arange(15, dtype=np.float32) * 2, (10, 1))
    my = np.tile(np.arange(10, dtype=np.float32)[:, None] * 2, (1, 15))
    np.testing.assert_array_equal(rokip.Remap(a, mx, my, pDst=np.zeros((10, 15, 3), np.uint8), interpolation=1), a[::2, ::2])


G = image(4, 5, 0, np.uint8)


@pytest.mark.parametrize("call,error,match", [
    (lambda: rokip.Sum(np.arange(5, dtype=np.uint8)), ValueError, "height, width"),
    (lambda: rokip.Sum(np.zeros((1, 4, 5, 3), np.uint8)), ValueError, "height, width"),
    (lambda: rokip.Sum(np.zeros((3, 3, 5), np.uint8)), ValueError, "1 to 4 channels"),
    (lambda: rokip.Sum(G[::-1]), ValueError, "forward"),
    (lambda: rokip.Sum(np.asfortranarray(image(5, 6, 0, np.uint8))), ValueError, "contiguous"),
    (lambda: rokip.Sum(G.astype(">u2")), TypeError, "no sample type"),
    (lambda: rokip.Sum(G.astype(bool)), TypeError, "no sample type"),
    (lambda: rokip.Add(G, G[:3]), ValueError, "smaller than the ROI"),
    (lambda: rokip.Add(G, G, out=np.zeros((4, 4), np.uint8)), ValueError, "smaller than the ROI"),
    (lambda: rokip.ResizeSqrPixel(G, pDst=np.zeros((2, 2), np.uint8), dstRoi=rokip.Rect(0, 0, 3, 2), xFactor=0.5,
                                  yFactor=0.5, xShift=0, yShift=0, interpolation=1), ValueError, "not inside"),
    (lambda: rokip.ResizeSqrPixel(G, srcSize=rokip.Size(6, 4), pDst=np.zeros((2, 2), np.uint8), xFactor=0.5, yFactor=0.5,
                                  xShift=0, yShift=0, interpolation=1), ValueError, "larger than the source"),
    (lambda: rokip.Moments(G.astype(np.float64)), TypeError, "no form for dtype float64"),
    (lambda: rokip.Sum(np.lib.stride_tricks.as_strided(G, shape=(2, 4), strides=(2 ** 31, 1))), ValueError, "32 bits"),
])
def test_arrays_that_do_not_fit_are_refused_before_the_call(call, error, match):
    with pytest.raises(error, match=match):
        call()


@pytest.mark.parametrize("shape", [(9, 12), (10, 14, 3)])
def test_wavelet_object_haar_bands_and_back(shape):
    x = image(*shape, np.float32) if len(shape) == 3 else image(*shape, 0, np.float32)
    with rokip.Wavelet(1 if len(shape) == 2 else 3) as wt:
        a, dx, dy, dxy = wt.forward(x)
        e = x[:shape[0] // 2 * 2].astype(np.float64)
        p00, p01, p10, p11 = e[0::2, 0::2], e[0::2, 1::2], e[1::2, 0::2], e[1::2, 1::2]
        for got, want in ((a, p00 + p01 + p10 + p11), (dx, p10 + p11 - p00 - p01), (dy, p01 + p11 - p00 - p10),
                          (dxy, p00 + p11 - p01 - p10)):
            np.testing.assert_allclose(got, want / 2, atol=1e-3)
        np.testing.assert_allclose(wt.inverse(a, dx, dy, dxy), e, atol=1e-3)
        with pytest.raises(ValueError, match="detail_y"):
            wt.inverse(a, dx, dy[:-1], dxy)
        with pytest.raises(TypeError, match="float32"):
            wt.forward(x.astype(np.float64))
    with pytest.raises(ValueError, match="closed"):
        wt.forward(x)


def test_wavelet_object_longer_filters_reconstruct_inside():
    h0 = np.array([0.4829629131445341, 0.8365163037378079, 0.2241438680420134, -0.1294095225512604])  # Daubechies 4
    h1 = np.array([(-1) ** k * h0[3 - k] for k in range(4)])
    x = image(16, 20, 0, np.float32)
    with rokip.Wavelet(1, analysis=(h0, 3, h1, 3), synthesis=(h0[::-1], 0, h1[::-1], 0)) as wt:
        y = wt.inverse(*wt.forward(x))
    np.testing.assert_allclose(y[4:-4, 4:-4], x[4:-4, 4:-4], atol=1e-3)
    with pytest.raises(rokip.RokError, match="rokStatusBadAnchor"):
        rokip.Wavelet(1, analysis=(h0, 4, h1, 3))
    with pytest.raises(ValueError, match="1 or 3"):
        rokip.Wavelet(4)
