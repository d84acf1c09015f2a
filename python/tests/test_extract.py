"""Extractor and Signature: the C++ library's bytes for the same pixels, in every layout."""

import io
import pickle

import numpy as np
import PIL.Image
import pytest

import orvane
from conftest import photo

SIZES = [(640, 480), (1023, 769), (257, 31), (9, 100), (5, 7), (1, 1)]


def padded(image):
    """A view into a larger image: row stride wider than the row, odd offset."""
    h, w, _ = image.shape
    big = np.zeros((h + 4, w + 7, 3), np.uint8)
    big[3 : 3 + h, 5 : 5 + w] = image
    return big[3 : 3 + h, 5 : 5 + w]


def every_other_column(image):
    """A view whose pixels are not adjacent (copied)."""
    h, w, _ = image.shape
    big = np.zeros((h, 2 * w, 3), np.uint8)
    big[:, ::2] = image
    return big[:, ::2]


LAYOUTS = {
    "contiguous": lambda im: (im, "bgr"),
    "padded rows": lambda im: (padded(im), "bgr"),
    "column steps": lambda im: (every_other_column(im), "bgr"),
    "upside-down rows": lambda im: (np.ascontiguousarray(im[::-1])[::-1], "bgr"),
    "planar (Fortran order)": lambda im: (np.asfortranarray(im), "bgr"),
    "rgb": lambda im: (np.ascontiguousarray(im[..., ::-1]), "rgb"),
    "rgb padded": lambda im: (padded(np.ascontiguousarray(im[..., ::-1])), "rgb"),
    "rgb channel view": lambda im: (im[..., ::-1], "rgb"),
    "Pillow image": lambda im: (PIL.Image.fromarray(np.ascontiguousarray(im[..., ::-1])), "rgb"),
}


def test_signature_bytes_equal_the_libraries(reference):
    photos = [photo(w, h, seed) for seed, (w, h) in enumerate(SIZES)]
    expected = reference(["signatures"], photos)
    extractor = orvane.Extractor()
    for image, want in zip(photos, expected):
        for name, layout in LAYOUTS.items():
            given, order = layout(image)
            got = extractor.extract(given, order=order).to_bytes().hex()
            assert got == want, f"{name}, shape {image.shape}"


def extract(image, **options):
    return lambda: orvane.Extractor().extract(image, **options)


def from_bytes(data):
    return lambda: orvane.Signature.from_bytes(data)


SHAPE = "must be a numpy uint8 array of shape (height, width, 3), "


@pytest.mark.parametrize(
    "call, error, text",
    [
        (extract(np.zeros((4, 4), np.uint8)), ValueError, SHAPE + "not an array of 2 dimensions"),
        (extract(np.zeros((4, 4, 4), np.uint8)), ValueError, "image must have 3 channels"),
        (extract(np.zeros((4, 4, 3, 1), np.uint8)), ValueError,
         SHAPE + "not an array of 4 dimensions"),
        (extract(np.zeros((0, 4, 3), np.uint8)), ValueError, "image is empty"),
        (extract(np.zeros((4, 0, 3), np.uint8)), ValueError, "image is empty"),
        (extract(np.zeros((4, 4, 3), np.float32)), TypeError,
         SHAPE + "not an array of dtype float32"),
        (extract(np.zeros((4, 4, 3), np.int8)), TypeError, SHAPE + "not an array of dtype int8"),
        (extract(np.zeros((4, 4, 3), np.uint16)), TypeError,
         SHAPE + "not an array of dtype uint16"),
        (extract([[[0, 0, 0]]]), TypeError, SHAPE + "not an array of dtype int64"),
        (extract(None), TypeError, SHAPE + "not an array of dtype object"),
        (extract(photo(8, 8, 1), order="RGB"), ValueError,
         "order must be 'bgr' or 'rgb', not 'RGB'"),
        (extract(photo(400, 1, 1)), orvane.Error, "Error preprocessing"),
        (from_bytes("ORVF"), TypeError, "expects bytes, bytearray or memoryview, not str"),
        (from_bytes(42), TypeError, "expects bytes, bytearray or memoryview, not int"),
        (from_bytes(b""), orvane.Error, ""),
        (from_bytes(b"ORVF\x00\x00\x00\x05"), orvane.Error, ""),
        (from_bytes(b"not a signature stream"), orvane.Error, ""),
    ],
)
def test_wrong_calls_say_what_was_wrong(call, error, text):
    with pytest.raises(error) as raised:
        call()
    assert text in str(raised.value) and str(raised.value)


def test_signature_round_trips():
    sig = orvane.Extractor().extract(photo(64, 48, 2))
    other = orvane.Extractor().extract(photo(64, 48, 3))
    data = sig.to_bytes()
    copies = [
        orvane.Signature.from_bytes(data),
        orvane.Signature.from_bytes(bytearray(data)),
        orvane.Signature.from_bytes(memoryview(data)),
        pickle.loads(pickle.dumps(sig)),
    ]
    assert bytes(sig) == data and len(sig) == len(data) and data[:4] == b"ORVF"
    assert sig.feature_version == "V6"
    for copy in copies:
        assert copy == sig and hash(copy) == hash(sig) and copy != other
        assert copy.feature_version == "V6"
    assert sig != data and len({sig, *copies, other}) == 2


def test_bytes_after_the_stream_are_refused():
    data = orvane.Extractor().extract(photo(16, 16, 1)).to_bytes()
    with pytest.raises(ValueError, match="3 bytes after the end of the signature stream"):
        orvane.Signature.from_bytes(data + b"xyz")


def test_library_version_and_error_type():
    assert orvane.library_version() == "Orvane.dll 0.2 000"
    assert issubclass(orvane.Error, Exception) and orvane.Error.__module__ == "orvane"
