"""orvane: photo identification for numpy, OpenCV and Pillow users.

    import cv2, orvane
    extractor = orvane.Extractor()
    database = orvane.Database()
    database.add(extractor.extract(cv2.imread("a.jpg")), 1)
    database.same_photo(extractor.extract(cv2.imread("b.jpg")))   # [(1, 0.0123)] or []

Images are numpy uint8 arrays of shape (height, width, 3) in blue-green-red order, as
cv2.imread returns them; pass order="rgb" for arrays from Pillow or imageio. Scores are
distances: 0 is identical, and photos at 0.07 or less count as the same photo.

Threads: the library works without the GIL, so threads run in parallel, but one Extractor
and one Database serve one thread at a time: give each thread its own Extractor. Using one
from two threads at once raises RuntimeError.

Weights: load() leaves the weights as a new Database has them, so that scores read the same
before a save and after a load; a caller that set other weights sets them again after load.

The library's failures raise orvane.Error with the library's own text.
"""

from ._orvane import Database, Error, Extractor, Signature, library_version

__all__ = ["Database", "Error", "Extractor", "Signature", "library_version"]

for _class in (Database, Error, Extractor, Signature):
    _class.__module__ = __name__
del _class
