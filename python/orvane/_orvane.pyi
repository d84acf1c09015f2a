"""Type stubs of the orvane extension module."""

import os
from typing import Any, BinaryIO, Literal, Optional, Protocol, Union

import numpy as np
import numpy.typing as npt

_Image = Union[npt.NDArray[np.uint8], Any]  # or anything numpy.asarray makes one of
_BytesLike = Union[bytes, bytearray, memoryview]
_Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

class _Readable(Protocol):
    def read(self) -> bytes: ...

class _Writable(Protocol):
    def write(self, data: bytes, /) -> Any: ...

class Error(Exception):
    """A failure of the library, with the library's own text."""

def library_version() -> str:
    """The library's version text, "Orvane.dll 0.2 000"."""

class Signature:
    """The signature of one photo. Immutable; equal when the streams are equal."""

    @staticmethod
    def from_bytes(data: _BytesLike) -> Signature:
        """Reads a signature stream, as to_bytes() writes it."""
    def to_bytes(self) -> bytes:
        """The signature stream."""
    def __bytes__(self) -> bytes: ...
    def __len__(self) -> int:
        """The length of the signature stream."""
    @property
    def feature_version(self) -> str:
        """The feature version of the signature ("V6")."""
    def __eq__(self, other: object) -> bool: ...
    def __hash__(self) -> int: ...

class Extractor:
    """Computes signatures of photos. One thread at a time."""

    def __init__(self) -> None: ...
    def extract(self, image: _Image, order: Literal["bgr", "rgb"] = "bgr") -> Signature:
        """The signature of a uint8 image of shape (height, width, 3).

        Rows of blue-green-red triples (any row stride) are read in place; any other layout,
        and order="rgb", is copied once.
        """

class Database:
    """Stored photo signatures under ids. One thread at a time."""

    def __init__(self) -> None: ...
    def add(self, signature: Signature, id: int, tag: int = 0) -> None:
        """Stores the signature under id (not 0; ids are not checked for uniqueness)."""
    def remove(self, id: int) -> None:
        """Removes the signature stored under id."""
    def __len__(self) -> int: ...
    def clear(self) -> None:
        """Removes every stored signature; the weights stay."""
    def same_photo(self, signature: Signature) -> list[tuple[int, float]]:
        """The stored photos that count as the same photo (score <= 0.07), closest first."""
    def nearest(self, signature: Signature, n: int) -> list[tuple[int, float]]:
        """The n nearest stored photos, closest first; n=0 gives all."""
    def classify(
        self, signature: Signature, max_results: int, mode: int
    ) -> list[tuple[int, float]]:
        """The library's classify: mode 0 same photo, mode 1 nearest max_results."""
    def set_weight(self, key: int, percent: float) -> None:
        """Sets the weight of key 0 (colour) or 1 (edges), in percent."""
    def get_weight(self, key: int) -> Optional[float]:
        """The weight of key in percent; None for a key without a weight."""
    def save(self, target: Union[_Path, _Writable, BinaryIO]) -> None:
        """Writes the database stream to a path or a binary file object."""
    def load(self, source: Union[_Path, _Readable, BinaryIO]) -> None:
        """Reads a database stream; the weights become those of a new Database."""
    def duplicate_pairs(self, other: Optional[Database] = None) -> list[tuple[int, int, float]]:
        """Every pair of stored photos that count as the same photo (score <= 0.07).

        (id_a, id_b, score), id_a stored before id_b, in stored order; exact, through the
        search engine, on all cores. With other: the pairs of a photo here (id_a, scored as
        the query) and one of other (id_b), by position here, then there. Needs the weights
        of a new Database on both.
        """
