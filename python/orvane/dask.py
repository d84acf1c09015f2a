"""Photo signatures and search past one machine, on a Dask cluster.

``index_files`` decodes photos and extracts their signatures on the workers. A
``ShardedDatabase`` spreads stored signatures over shards, one ``orvane.Database`` per shard,
each held by a Dask actor on a worker, and answers exactly what one ``Database`` holding the
same photos, added in the same order, answers: the same ids, the same scores bit for bit, in
the same order, ties included.

How the answers stay exact: every stored photo carries its position in that one database
(its global position: the insertion sequence, and after a removal the last photo takes the
removed one's position, as a database moves its last item into the gap). A database ranks by
score and keeps equal scores in position order, so merging the shards' partial answers by
(score, global position) gives its answer. Inside a shard, photos are stored under keys of
the shard's own (1, 2, 3, ...), so that a removal takes exactly the photo the one database
would take, even when an id is stored twice; the host's ids travel beside the keys.

Each shard also keeps the signature streams of its photos (about 1.5 KB a photo, beside the
database's 2.3 KB): ``duplicate_pairs`` compares two shards in one task, which receives
both shards' signatures.

Threads: a ``ShardedDatabase`` serves one thread at a time, as a ``Database`` does.
"""
import asyncio
import hashlib
import io
import json
import math
import os
import threading
import time
from typing import Iterable, List, Optional, Tuple, Union

import numpy as np
from dask.distributed import Client

from . import Database, Error, Extractor, Signature

__all__ = ["ShardedDatabase", "ShardError", "ManifestError", "index_files"]

PathLike = Union[str, os.PathLike]
_FEATURE_VERSION = "V6"
_MANIFEST = "manifest.json"
_FORMAT = "orvane sharded database"
_FORMAT_VERSION = 1
# Signatures sent to a shard in one call: large adds go in pieces of a few megabytes.
_ADD_CHUNK = 4096
_INT32 = (-(2**31), 2**31 - 1)
# Seconds the scheduler gets to notice a lost worker after a connection to it broke.
_LOSS_NOTICE = 10


class ShardError(RuntimeError):
    """A shard did not answer: its worker was lost, or the shard failed. ``shard`` is its
    number. No partial answer is given; load the database again from its saved folder."""

    def __init__(self, shard, message):
        super().__init__(message)
        self.shard = shard


class ManifestError(ValueError):
    """A saved sharded database whose manifest does not match its files."""


# ---------------------------------------------------------------------------------------
# index_files

_local = threading.local()


def _extractor():
    # One extractor per worker thread: an extractor serves one thread at a time, and workers
    # started with one thread each (the usual one process per core) hold one per process.
    extractor = getattr(_local, "extractor", None)
    if extractor is None:
        extractor = _local.extractor = Extractor()
    return extractor


def _decode(path):
    """The photo at path as red-green-blue rows, turned upright by its EXIF orientation."""
    from PIL import Image, ImageOps

    with Image.open(path) as image:
        upright = ImageOps.exif_transpose(image)
        return np.asarray(upright.convert("RGB"))


def _index_batch(paths):
    found = []
    for path in paths:
        try:
            found.append((_extractor().extract(_decode(path), order="rgb"), None))
        except Exception as failure:  # a photo that cannot be read is a result, not a stop
            found.append((None, f"{type(failure).__name__}: {failure}"))
    return found


def index_files(
    client: Client, paths: Iterable[PathLike], batch_size: Optional[int] = None
) -> List[Tuple[PathLike, Optional[Signature], Optional[str]]]:
    """[(path, Signature or None, error text or None), ...] in the order of paths.

    Photos are decoded (EXIF orientation applied) and extracted on the workers, batch_size
    photos per task (by default enough tasks to keep every worker thread busy)."""
    paths = list(paths)
    if not paths:
        return []
    if batch_size is None:
        threads = sum(client.nthreads().values()) or 1
        batch_size = max(1, min(16, math.ceil(len(paths) / (4 * threads))))
    batches = [paths[i : i + batch_size] for i in range(0, len(paths), batch_size)]
    futures = client.map(_index_batch, batches, pure=False)
    results = []
    for batch, future in zip(batches, futures):
        for path, (signature, error) in zip(batch, future.result()):
            results.append((path, signature, error))
    return results


# ---------------------------------------------------------------------------------------
# The shard actor


def _rank(score):
    # The database's order of scores: ascending, -0 with +0, NaN after everything.
    return (True, 0.0) if score != score else (False, score)


def _sha256(data):
    return hashlib.sha256(data).hexdigest()


class _Shard:
    """One shard: a Database whose items are stored under the shard's own keys, and per key
    the host's id, the global position (-1 once removed) and the signature stream."""

    def __init__(self):
        self.db = Database()
        self._forget()

    def _forget(self):
        self.ids = []
        self.positions = []
        self.streams = []

    def add(self, items):
        """Adds (stream, id, tag, position) items; all or none of them."""
        first = len(self.ids)
        try:
            for stream, id_, tag, position in items:
                self.db.add(Signature.from_bytes(stream), len(self.ids) + 1, tag)
                self.ids.append(id_)
                self.positions.append(position)
                self.streams.append(stream)
        except BaseException:
            # Each added item is the last one, so removing them newest first takes exactly
            # these items out again.
            for key in range(len(self.ids), first, -1):
                self.db.remove(key)
            del self.ids[first:], self.positions[first:], self.streams[first:]
            raise

    def first_position(self, id_):
        """The lowest global position stored under the host's id here, or -1."""
        return min(
            (p for i, p in zip(self.ids, self.positions) if i == id_ and p >= 0), default=-1
        )

    def remove_at(self, position, last):
        """Removes the item at global position `position`, and moves the item at `last`
        (the highest position) to it."""
        for key, p in enumerate(self.positions):
            if p == position:
                self.db.remove(key + 1)
                self.positions[key] = -1
                self.streams[key] = b""
                break
        if last != position:
            for key, p in enumerate(self.positions):
                if p == last:
                    self.positions[key] = position
                    break

    def clear(self):
        self.db.clear()
        self._forget()

    def set_weight(self, key, percent):
        self.db.set_weight(key, percent)

    def get_weight(self, key):
        return self.db.get_weight(key)

    def query(self, stream, count, mode):
        """[(score, global position, id), ...]: mode 0, the same photos; otherwise every item
        that can be among the `count` nearest of all shards (all of them for 0)."""
        if len(self.db) == 0:
            return []
        signature = Signature.from_bytes(stream)
        if mode == 0:
            matches = self.db.same_photo(signature)
        else:
            matches = self._nearest(signature, count)
        return [(s, self.positions[k - 1], self.ids[k - 1]) for k, s in matches]

    def _nearest(self, signature, count):
        # The shard ranks equal scores by its own item order, which after removals is not the
        # global order: fetch every item scoring like the count-th, so the merge can choose.
        if count == 0:
            return self.db.nearest(signature, 0)
        fetch = count
        while True:
            matches = self.db.nearest(signature, fetch)
            if len(matches) < fetch or _rank(matches[-1][1]) > _rank(matches[count - 1][1]):
                break
            fetch *= 2
        cut = _rank(matches[count - 1][1])
        return [m for m in matches if _rank(m[1]) <= cut]

    def export(self):
        """The stored items as (global positions, ids, signature streams), position order."""
        live = sorted((p, i, s) for p, i, s in zip(self.positions, self.ids, self.streams) if p >= 0)
        return [p for p, _, _ in live], [i for _, i, _ in live], [s for _, _, s in live]

    def save(self, folder, number):
        stream = io.BytesIO()
        self.db.save(stream)
        database = stream.getvalue()
        lengths = np.array([len(s) for s in self.streams], dtype=np.int64)
        table = io.BytesIO()
        np.savez(
            table,
            ids=np.array(self.ids, dtype=np.int32),
            positions=np.array(self.positions, dtype=np.int64),
            lengths=lengths,
            streams=np.frombuffer(b"".join(self.streams), dtype=np.uint8),
        )
        items = table.getvalue()
        names = (f"shard-{number:04d}.orvdb", f"shard-{number:04d}.items.npz")
        for name, data in zip(names, (database, items)):
            with open(os.path.join(folder, name), "wb") as out:
                out.write(data)
        return {
            "database": names[0],
            "items": names[1],
            "photos": len(self.db),
            "sha256": {names[0]: _sha256(database), names[1]: _sha256(items)},
        }

    def load(self, folder, entry, weights):
        """Restores the shard from its files after checking them against the manifest's
        entry; answers the global positions it holds."""
        data = {}
        for name in (entry["database"], entry["items"]):
            if os.path.basename(name) != name:
                raise ManifestError(f"manifest names a file outside its folder: {name!r}")
            try:
                with open(os.path.join(folder, name), "rb") as source:
                    data[name] = source.read()
            except OSError as error:
                raise ManifestError(f"{name} listed in the manifest cannot be read: {error}")
            if _sha256(data[name]) != entry["sha256"].get(name):
                raise ManifestError(f"{name} does not match the manifest")
        with np.load(io.BytesIO(data[entry["items"]]), allow_pickle=False) as table:
            ids, positions = table["ids"], table["positions"]
            lengths, streams = table["lengths"], table["streams"].tobytes()
        if not (len(ids) == len(positions) == len(lengths)) or int(lengths.sum()) != len(streams):
            raise ManifestError(f"{entry['items']} is inconsistent")
        self.db.load(io.BytesIO(data[entry["database"]]))
        live = positions[positions >= 0]
        if len(self.db) != entry["photos"] or len(live) != entry["photos"]:
            raise ManifestError(f"{entry['database']} does not hold {entry['photos']} photos")
        for key, percent in weights:
            self.db.set_weight(key, percent)
        ends = np.cumsum(lengths)
        self.ids = ids.tolist()
        self.positions = positions.tolist()
        self.streams = [streams[e - n : e] for e, n in zip(ends.tolist(), lengths.tolist())]
        return live.tolist()


# ---------------------------------------------------------------------------------------
# duplicate_pairs tasks


def _export(shard):
    return shard.export().result()


def _database_of(streams, weights):
    db = Database()
    for key, percent in weights:
        db.set_weight(key, percent)
    for key, stream in enumerate(streams, start=1):
        db.add(Signature.from_bytes(stream), key)
    return db


def _pairs(weights, first, second=None):
    """The same-photo pairs within one exported shard, or between two, as arrays of
    position a, position b, id a, id b and score, with position a below position b."""
    parts = [first] if second is None else [first, second]
    positions, ids = ([x for part in parts for x in part[n]] for n in range(2))
    # Keys 1 to `split` are the first shard's photos, in position order; then the second's.
    split = len(first[0])
    if second is None:
        found = _database_of(first[2], weights).duplicate_pairs()
    else:
        found = _database_of(first[2], weights).duplicate_pairs(_database_of(second[2], weights))
        found = [(a, b + split, score) for a, b, score in found]
    # As arrays: a list of hundreds of thousands of tuples costs Dask far more to move.
    keys = np.array([(a, b) for a, b, _ in found], dtype=np.int64).reshape(-1, 2) - 1
    positions, ids = np.array(positions, dtype=np.int64), np.array(ids, dtype=np.int32)
    swap = positions[keys[:, 0]] > positions[keys[:, 1]]
    first, second = np.where(swap, keys[:, 1], keys[:, 0]), np.where(swap, keys[:, 0], keys[:, 1])
    # The scores are 32-bit floats: float32 holds them exactly.
    scores = np.array([score for _, _, score in found], dtype=np.float32)
    return positions[first], positions[second], ids[first], ids[second], scores


# ---------------------------------------------------------------------------------------
# ShardedDatabase


async def _gather(calls):
    return await asyncio.gather(*calls, return_exceptions=True)


def _check_id(id_):
    if not isinstance(id_, (int, np.integer)) or isinstance(id_, bool):
        raise TypeError(f"id must be an int, not {type(id_).__name__}")
    if not _INT32[0] <= id_ <= _INT32[1]:
        raise ValueError(f"id must be a 32-bit signed integer, not {id_}")
    return int(id_)


def _check_signature(signature):
    if not isinstance(signature, Signature):
        raise TypeError(f"expected an orvane.Signature, not {type(signature).__name__}")


def _write_manifest(folder, text):
    temporary = os.path.join(folder, _MANIFEST + ".tmp")
    with open(temporary, "w", encoding="utf-8") as out:
        out.write(text)
    os.replace(temporary, os.path.join(folder, _MANIFEST))


def _read_manifest(folder):
    with open(os.path.join(folder, _MANIFEST), encoding="utf-8") as source:
        return source.read()


def _make_folder(folder):
    os.makedirs(folder, exist_ok=True)


class ShardedDatabase:
    """Stored signatures spread over shards on a Dask cluster; answers as one Database.

    Photos go to the shards in turn (the n-th added photo to shard n mod shards). Shards are
    placed on the workers in turn; ``workers`` limits them to the given addresses."""

    def __init__(
        self, client: Client, shards: Optional[int] = None, workers: Optional[List[str]] = None
    ):
        workers = sorted(workers or client.scheduler_info()["workers"])
        if not workers:
            raise ValueError("the cluster has no workers")
        count = len(workers) if shards is None else shards
        if not isinstance(count, int) or count < 1:
            raise ValueError(f"shards must be a positive int, not {count!r}")
        self._client = client
        self._workers = [workers[n % len(workers)] for n in range(count)]
        self._futures = [
            client.submit(_Shard, workers=[w], allow_other_workers=False, actor=True, pure=False)
            for w in self._workers
        ]
        self._shards = [f.result() for f in self._futures]
        self._lost = {}
        self._size = 0
        self._added = 0

    @property
    def shards(self) -> int:
        return len(self._shards)

    def __len__(self):
        return self._size

    def __repr__(self):
        return f"<orvane.dask.ShardedDatabase of {self._size} photos in {self.shards} shards>"

    # Every call to shards goes through here: all or nothing.
    def _call(self, method, *args, each=None, numbers=None):
        numbers = range(self.shards) if numbers is None else numbers
        for n in numbers:
            status = self._futures[n].status
            if n not in self._lost and status != "finished":  # lost while idle
                self._shard_failed(n, RuntimeError(f"the shard's actor is {status}"))
            if n in self._lost:
                raise ShardError(n, self._lost[n])
        calls = []
        for n in numbers:
            shard_args = each[n] if each is not None else args
            calls.append((n, getattr(self._shards[n], method)(*shard_args)))
        # One wait for all answers: each wait of its own is a hand-over to the client's
        # event loop thread and back, which costs more than the merge.
        outcomes = self._client.sync(_gather, [call for _, call in calls])
        failure = None
        for (n, _), outcome in zip(calls, outcomes):
            if isinstance(outcome, (Error, ManifestError)):
                failure = failure or outcome
            elif isinstance(outcome, Exception):
                failure = failure or self._shard_failed(n, outcome)
        if failure is not None:
            raise failure
        return outcomes

    def _shard_failed(self, number, error):
        if not self._is_lost(number, wait=_LOSS_NOTICE if isinstance(error, OSError) else 0):
            return ShardError(number, f"shard {number} of {self.shards} failed: {error!r}")
        worker = self._workers[number]
        self._lost[number] = (
            f"shard {number} of {self.shards} is lost: its worker {worker} is gone "
            f"({type(error).__name__}: {error}); no answer without it, load the database "
            "again from its saved folder"
        )
        return ShardError(number, self._lost[number])

    def _is_lost(self, number, wait):
        # A broken connection can reach us before the scheduler has noticed the worker's
        # death: give it a moment before calling the failure the shard's own.
        deadline = time.monotonic() + wait
        while True:
            if (
                self._futures[number].status != "finished"
                or self._workers[number] not in self._client.scheduler_info()["workers"]
            ):
                return True
            if time.monotonic() >= deadline:
                return False
            time.sleep(0.1)

    def add(self, signature: Signature, id: int, tag: int = 0) -> None:
        """Stores the signature under id (not 0), as Database.add does."""
        self.add_many([(signature, id, tag)])

    def add_many(self, items: Iterable[tuple]) -> None:
        """Adds (signature, id) or (signature, id, tag) items in order. Every item is checked
        before any is added: a bad item adds none."""
        batches = [[] for _ in range(self.shards)]
        n = 0
        for item in items:
            signature, id_, tag = item if len(item) == 3 else (*item, 0)
            _check_signature(signature)
            id_ = _check_id(id_)
            if not isinstance(tag, (int, np.integer)) or not 0 <= tag < 2**32:
                raise ValueError(f"tag must be an unsigned 32-bit int, not {tag!r}")
            if signature.feature_version != _FEATURE_VERSION:
                raise Error("Wrong Feature Version")
            if id_ == 0:
                raise Error("addSignature Unknown Error")
            shard = (self._added + n) % self.shards
            batches[shard].append((signature.to_bytes(), id_, int(tag), self._size + n))
            n += 1
        rounds = max(math.ceil(len(b) / _ADD_CHUNK) for b in batches)
        for r in range(rounds):
            chunks = {s: b[r * _ADD_CHUNK : (r + 1) * _ADD_CHUNK] for s, b in enumerate(batches)}
            numbers = [s for s, chunk in chunks.items() if chunk]
            self._call("add", each={s: (chunks[s],) for s in numbers}, numbers=numbers)
        self._size += n
        self._added += n

    def remove(self, id: int) -> None:
        """Removes the photo stored under id that one Database would remove: the one at the
        lowest position; the last photo takes its position."""
        id_ = _check_id(id)
        if self._size == 0:
            raise Error("Database is emty, item can not be removed")
        found = [p for p in self._call("first_position", id_) if p >= 0]
        if not found:
            raise Error("Index not found")
        self._call("remove_at", min(found), self._size - 1)
        self._size -= 1

    def clear(self) -> None:
        """Removes every photo; the weights stay."""
        self._call("clear")
        self._size = 0
        self._added = 0

    def set_weight(self, key: int, percent: float) -> None:
        self._call("set_weight", key, percent)

    def get_weight(self, key: int) -> Optional[float]:
        return self._call("get_weight", key, numbers=[0])[0]

    def same_photo(self, signature: Signature) -> List[Tuple[int, float]]:
        """[(id, score), ...]: the stored photos that count as the same photo, closest
        first."""
        return self._query(signature, 0, 0)

    def nearest(self, signature: Signature, n: int) -> List[Tuple[int, float]]:
        """[(id, score), ...]: the n nearest stored photos, closest first; n=0 gives all."""
        if not isinstance(n, (int, np.integer)) or n < 0:
            raise ValueError(f"the number of results must be 0 (all) or more, not {n!r}")
        return self._query(signature, int(n), 1)

    def _query(self, signature, count, mode):
        _check_signature(signature)
        if self._size == 0:
            # The database's own checks, in its order.
            if signature.feature_version != _FEATURE_VERSION:
                raise Error("Wrong Feature Version")
            raise Error("classifyFloat with 0 items in databases")
        parts = self._call("query", signature.to_bytes(), count, mode)
        merged = sorted((m for part in parts for m in part), key=lambda m: (_rank(m[0]), m[1]))
        if count:
            merged = merged[:count]
        return [(id_, score) for score, _, id_ in merged]

    def duplicate_pairs(self) -> List[Tuple[int, int, float]]:
        """[(id_a, id_b, score), ...]: every pair of stored photos that count as the same
        photo, the photo stored earlier first, in stored order, as Database.duplicate_pairs
        answers (and, like it, only with the weights of a new database).

        Each shard is compared with itself and with every other shard as separate tasks."""
        for n in self._lost:
            raise ShardError(n, self._lost[n])
        client = self._client
        weights = self._weights()
        exports = [
            client.submit(_export, shard, workers=[w], pure=False)
            for shard, w in zip(self._shards, self._workers)
        ]
        tasks = []
        for a in range(self.shards):
            tasks.append(client.submit(_pairs, weights, exports[a], pure=False))
            for b in range(a + 1, self.shards):
                tasks.append(client.submit(_pairs, weights, exports[a], exports[b], pure=False))
        try:
            parts = [task.result() for task in tasks]
        except Exception as error:
            for n in range(self.shards):
                if self._workers[n] not in client.scheduler_info()["workers"]:
                    raise self._shard_failed(n, error) from error
            raise
        p, q, i, j, scores = (np.concatenate([part[k] for part in parts]) for k in range(5))
        order = np.lexsort((q, p))
        return list(zip(i[order].tolist(), j[order].tolist(), scores[order].tolist()))

    def _weights(self):
        return [(key, percent) for key in (0, 1) if (percent := self.get_weight(key)) is not None]

    def save(self, folder: PathLike) -> None:
        """Writes each shard's database stream and item table into folder (which every worker
        must reach), then the manifest, last: an interrupted save leaves a manifest that does
        not match its files, which load refuses."""
        folder = os.fspath(folder)
        self._client.submit(_make_folder, folder, pure=False).result()
        entries = self._call("save", each={n: (folder, n) for n in range(self.shards)})
        manifest = {
            "format": _FORMAT,
            "version": _FORMAT_VERSION,
            "shards": self.shards,
            "photos": self._size,
            "added": self._added,
            "weights": self._weights(),
            "files": entries,
        }
        text = json.dumps(manifest, indent=1)
        self._client.submit(_write_manifest, folder, text, pure=False).result()

    @classmethod
    def load(
        cls, client: Client, folder: PathLike, workers: Optional[List[str]] = None
    ) -> "ShardedDatabase":
        """A ShardedDatabase restored from a saved folder: shards, order and weights. A
        manifest that does not match its files raises ManifestError."""
        folder = os.fspath(folder)
        text = client.submit(_read_manifest, folder, pure=False).result()
        try:
            manifest = json.loads(text)
            if manifest["format"] != _FORMAT or manifest["version"] != _FORMAT_VERSION:
                raise ManifestError(f"{_MANIFEST} is not a sharded database manifest")
            shards, photos, entries = manifest["shards"], manifest["photos"], manifest["files"]
            weights = [(int(k), float(p)) for k, p in manifest["weights"]]
            added = int(manifest["added"])
        except (ValueError, KeyError, TypeError) as error:
            if isinstance(error, ManifestError):
                raise
            raise ManifestError(f"{_MANIFEST} cannot be read: {error!r}") from error
        if not isinstance(shards, int) or shards < 1 or len(entries) != shards:
            raise ManifestError(f"{_MANIFEST} lists {len(entries)} files for {shards} shards")
        if sum(e["photos"] for e in entries) != photos:
            raise ManifestError(f"{_MANIFEST} counts {photos} photos, its shards another number")
        sdb = cls(client, shards, workers)
        held = sdb._call("load", each={n: (folder, entries[n], weights) for n in range(shards)})
        positions = sorted(p for part in held for p in part)
        if positions != list(range(photos)):
            raise ManifestError(f"the shards in {folder} do not hold positions 0 to {photos - 1}")
        sdb._size = photos
        sdb._added = added
        return sdb
