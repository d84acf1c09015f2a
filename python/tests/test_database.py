"""Database: the C++ library's answers, errors, weights, save/load and pickling."""

import io
import pickle

import numpy as np
import pytest

import orvane
from conftest import brighter, photo

PHOTOS = [photo(320, 240, seed) for seed in range(1, 9)]
QUERY = brighter(PHOTOS[2])


@pytest.fixture(scope="module")
def signatures():
    extractor = orvane.Extractor()
    return [extractor.extract(p) for p in PHOTOS], extractor.extract(QUERY)


@pytest.fixture
def database(signatures):
    stored, _ = signatures
    database = orvane.Database()
    for id, sig in enumerate(stored, 1):
        database.add(sig, id)
    return database


def answers(database, query):
    return database.same_photo(query), database.nearest(query, 0)


def test_answers_equal_the_libraries(reference, database, signatures):
    lines = reference(["classify"], PHOTOS + [QUERY])
    expected = {0: [], 1: []}
    for line in lines:
        mode, id, score = line.split()
        expected[int(mode)].append((int(id), float.fromhex(score)))
    same, nearest = answers(database, signatures[1])
    assert same == expected[0] and nearest == expected[1]
    assert [id for id, _ in same] == [3] and len(nearest) == len(PHOTOS)
    assert database.classify(signatures[1], 0, 0) == same
    assert database.classify(signatures[1], 0, 7) == nearest
    assert database.nearest(signatures[1], 3) == nearest[:3]
    assert database.nearest(signatures[1], 2**40) == nearest


def test_add_remove_clear(database, signatures):
    stored, query = signatures
    assert len(database) == 8
    database.remove(3)
    assert len(database) == 7 and database.same_photo(query) == []
    database.add(stored[2], -5, tag=9)
    assert database.same_photo(query)[0][0] == -5
    database.clear()
    assert len(database) == 0


def reweighted():
    database = orvane.Database()
    database.set_weight(0, 60.0)
    return database


@pytest.mark.parametrize(
    "call, error, text",
    [
        (lambda db, s: db.add(s, 0), orvane.Error, "addSignature Unknown Error"),
        (lambda db, s: orvane.Database().same_photo(s),
         orvane.Error, "classifyFloat with 0 items in databases"),
        (lambda db, s: orvane.Database().remove(1),
         orvane.Error, "Database is emty, item can not be removed"),
        (lambda db, s: reweighted().duplicate_pairs(), ValueError, "weights of a new Database"),
        (lambda db, s: db.duplicate_pairs(reweighted()), ValueError, "weights of a new Database"),
        (lambda db, s: db.add(s, 2**31), ValueError, "id must be a 32-bit signed integer"),
        (lambda db, s: db.nearest(s, -1), ValueError, "0 (all) or more, not -1"),
        (lambda db, s: db.add(b"ORVF", 1), TypeError, "incompatible function arguments"),
        (lambda db, s: db.save(3), TypeError, "expects a path or a binary file object, not int"),
        (lambda db, s: db.load(io.StringIO("x")), TypeError, "not a text file"),
        (lambda db, s: db.load("/nonexistent/db"), FileNotFoundError, "/nonexistent/db"),
        (lambda db, s: db.save("/nonexistent/db"), FileNotFoundError, "/nonexistent/db"),
        (lambda db, s: db.load("/"), IsADirectoryError, "Is a directory"),
    ],
)
def test_wrong_calls_raise(database, signatures, call, error, text):
    with pytest.raises(error) as raised:
        call(database, signatures[0][0])
    assert text in str(raised.value)


def test_weights():
    database = orvane.Database()
    database.set_weight(0, 80.0)
    assert [database.get_weight(mode) for mode in (0, 1, 2)] == [80.0, 50.0, None]


@pytest.mark.parametrize("medium", ["path", "path object", "BytesIO", "pickle"])
def test_save_load_round_trips(database, signatures, tmp_path, medium):
    query = signatures[1]
    before = answers(database, query)
    database.set_weight(1, 20.0)
    reweighted = answers(database, query)
    assert reweighted != before
    if medium == "pickle":
        # A pickle carries the weights: the copy scores as the original does now.
        copy = pickle.loads(pickle.dumps(database))
        assert answers(copy, query) == reweighted and copy.get_weight(1) == 20.0
        return
    copy = orvane.Database()
    copy.set_weight(0, 10.0)
    if medium == "BytesIO":
        buffer = io.BytesIO()
        database.save(buffer)
        buffer.seek(0)
        copy.load(buffer)
    else:
        path = tmp_path / "photos.orvdb"
        database.save(str(path) if medium == "path" else path)
        copy.load(str(path) if medium == "path" else path)
    # A load leaves the weights of a new database, whatever they were.
    assert (copy.get_weight(0), copy.get_weight(1)) == (50.0, 50.0)
    assert answers(copy, query) == before and len(copy) == len(database)


@pytest.fixture(scope="module")
def near_threshold():
    """Photos, brighter copies and crops as (id, signature), interleaved: pairs near the
    threshold; ids ascend."""
    extractor = orvane.Extractor()
    images = []
    for p in PHOTOS[:5]:
        images += [p, brighter(p), p[6:, 4:], brighter(brighter(p))[10:, :-12]]
    return [(100 + i, extractor.extract(image)) for i, image in enumerate(images)]


def test_duplicate_pairs_equal_classify_photo_by_photo(near_threshold):
    stored = near_threshold
    database = orvane.Database()
    for id, sig in stored:
        database.add(sig, id)
    expected = []
    for position, (id, sig) in enumerate(stored):
        later = {other for other, _ in stored[position + 1 :]}
        expected += [(id, other, score) for other, score in database.same_photo(sig) if other in later]
    expected.sort(key=lambda pair: (pair[0], pair[1]))
    pairs = database.duplicate_pairs()
    assert pairs == expected and len(pairs) >= 10
    assert pickle.loads(pickle.dumps(database)).duplicate_pairs() == pairs
    assert orvane.Database().duplicate_pairs() == []


def test_duplicate_pairs_across_two_databases_equal_classify(near_threshold):
    queries, others = orvane.Database(), orvane.Database()
    for position, (id, sig) in enumerate(near_threshold):
        (queries if position % 3 == 0 else others).add(sig, id)
    expected = []
    for id, sig in near_threshold[::3]:
        expected += sorted((id, other, score) for other, score in others.same_photo(sig))
    pairs = queries.duplicate_pairs(others)
    assert pairs == expected and len(pairs) >= 5
    # Against itself, every photo finds itself.
    itself = {a for a, b, _ in queries.duplicate_pairs(queries) if a == b}
    assert itself == {id for id, _ in near_threshold[::3]}
