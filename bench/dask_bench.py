#!/usr/bin/python3
"""Benchmark of orvane.dask on a LocalCluster with 1 and 2 worker processes (one thread each,
one shard per worker). Reported, not timed by the tests.

Workloads:
  index_files      photos/s decoding and extracting a folder of real photographs (every photo
                   of the folder, the list repeated to --repeat times its length).
  add_many         signatures/s adding --stored signatures to the shards.
  same_photo       queries/s against --stored signatures, --queries queries one after the
                   other (each a round trip to every shard); beside it the same queries
                   against one in-process orvane.Database.
  duplicate_pairs  seconds for --pairs signatures.

Stored signatures: --extracted signatures of collages of two to four crops of the folder's
photographs, each zoomed, turned and recoloured (one in fifty a near copy of another), shrunk
to 160 pixels (extraction works on a fixed 256 by 256 image); the rest are DERIVED from them
in their streams: tiles shuffled and mass moved between neighbouring bins (see derive). They
are made once and kept in --cache. Run: PYTHONPATH=build/python bench/dask_bench.py
"""
import argparse
import glob
import os
import time

import numpy as np

import orvane
from dask.distributed import Client, LocalCluster
from orvane.dask import ShardedDatabase, index_files


def photographs(folder):
    return sorted(
        p for p in glob.glob(os.path.join(folder, "**", "*"), recursive=True)
        if p.lower().endswith((".jpg", ".jpeg", ".png"))
    )


def _generate(paths, start, count):
    """count signature streams, numbered from start, of varied crops of the photographs."""
    from PIL import Image

    sources = []
    for path in paths:
        with Image.open(path) as image:
            image = image.convert("RGB")
            image.thumbnail((320, 320))
            sources.append(np.asarray(image))
    extractor = orvane.Extractor()
    streams = []
    for n in range(start, start + count):
        rng = np.random.default_rng(n // 50 if n % 50 == 49 else n)
        # A collage of two to four crops of different photographs, each zoomed, turned and
        # recoloured on its own.
        pieces = []
        for _ in range(rng.integers(2, 5)):
            source = sources[rng.integers(len(sources))]
            h, w = source.shape[:2]
            ch, cw = int(h * rng.uniform(0.1, 0.6)), int(w * rng.uniform(0.1, 0.6))
            top, left = rng.integers(0, h - ch + 1), rng.integers(0, w - cw + 1)
            piece = source[top : top + ch, left : left + cw][:, :, rng.permutation(3)]
            piece = Image.fromarray(np.rot90(piece, rng.integers(4)).copy()).resize((80, 80))
            pieces.append(np.asarray(piece) * rng.uniform(0.5, 1.5, 3))
        layout = rng.integers(len(pieces), size=4)
        pixels = np.block([[[pieces[layout[0]]], [pieces[layout[1]]]],
                           [[pieces[layout[2]]], [pieces[layout[3]]]]])
        if n % 50 == 49:  # a near copy of photo n // 50: the same crop, a little noise
            pixels = pixels + np.random.default_rng(n).normal(0, 2, pixels.shape)
        image = np.clip(pixels, 0, 255).astype(np.uint8)
        streams.append(extractor.extract(image, order="rgb").to_bytes())
    return streams


# Where an extracted signature's stream holds its four float vectors (big-endian f32), with
# the tiles of each: "EDG" 16 tiles of 6 bins, "HUE" 9 of 16, "SAT" and "VAL" 9 of 4.
FEATURES = ((77, 16, 6), (528, 9, 16), (1171, 9, 4), (1382, 9, 4))
STREAM_SIZE = 1526


def derive(streams, count, seed):
    """count signature streams made from extracted ones: the colour tiles and the edge tiles
    of each shuffled (another layout of the same content), and a random share of every bin's
    mass moved to its neighbour within the tile."""
    base = np.frombuffer(b"".join(streams), np.uint8).reshape(len(streams), STREAM_SIZE)
    rng = np.random.default_rng(seed)
    rows = base[rng.integers(len(base), size=count)].copy()
    colour = np.argsort(rng.random((count, 9)), axis=1)[:, :, None]
    edges = np.argsort(rng.random((count, 16)), axis=1)[:, :, None]
    for (start, tiles, bins), order in zip(FEATURES, (edges, colour, colour, colour)):
        end = start + 4 * tiles * bins
        v = rows[:, start:end].copy().view(">f4").reshape(count, tiles, bins).astype(np.float32)
        v = np.take_along_axis(v, order, axis=1)
        moved = v[:, :, :-1] * rng.uniform(0, 0.5, (count, tiles, 1)).astype(np.float32)
        v[:, :, :-1] -= moved
        v[:, :, 1:] += moved
        rows[:, start:end] = v.astype(">f4").reshape(count, -1).view(np.uint8)
    return [row.tobytes() for row in rows]


def stored_signatures(client, paths, count, extracted, cache):
    """count signatures: `extracted` extracted ones, then derived ones (kept in cache)."""
    if os.path.exists(cache):
        with np.load(cache) as table:
            if len(table["lengths"]) >= count:
                lengths, blob = table["lengths"][:count], table["blob"].tobytes()
                ends = np.cumsum(lengths).tolist()
                return [orvane.Signature.from_bytes(blob[e - n : e])
                        for e, n in zip(ends, lengths.tolist())]
    extracted = min(count, extracted)
    step = 500
    starts = list(range(0, extracted, step))
    futures = client.map(_generate, [paths] * len(starts), starts,
                         [min(step, extracted - s) for s in starts])
    streams = [s for f in futures for s in f.result()]
    if any(len(s) != STREAM_SIZE for s in streams):
        raise SystemExit("extracted signature streams are not laid out as FEATURES says")
    streams += derive(streams, count - extracted, seed=count)
    np.savez(cache, lengths=np.array([len(s) for s in streams]),
             blob=np.frombuffer(b"".join(streams), dtype=np.uint8))
    return [orvane.Signature.from_bytes(s) for s in streams]


def _cpu_seconds(client):
    # This process (client and scheduler) and every worker process: on a busy shared machine
    # the processor time a workload takes is steadier than its wall time.
    return time.process_time() + sum(client.run(time.process_time).values())


def timed(client, work):
    """(wall seconds, processor seconds of all processes, answer) of work()."""
    cpu, start = _cpu_seconds(client), time.perf_counter()
    answer = work()
    wall = time.perf_counter() - start
    return wall, _cpu_seconds(client) - cpu, answer


def report(what, count, unit, wall, cpu):
    print(f"{what}: {count} in {wall:.1f} s wall, {cpu:.1f} s processor: {count / wall:.1f} "
          f"{unit}/s, {count / cpu:.1f} {unit} per processor second (load {os.getloadavg()[0]:.1f})")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--photos", default="/usr/share/backgrounds")
    parser.add_argument("--repeat", type=int, default=4)
    parser.add_argument("--stored", type=int, default=200_000)
    parser.add_argument("--queries", type=int, default=200)
    parser.add_argument("--pairs", type=int, default=100_000)
    parser.add_argument("--extracted", type=int, default=10_000)
    parser.add_argument("--workers", default="1,2")
    parser.add_argument("--cache", default="/tmp/orvane-dask-bench-signatures.npz")
    args = parser.parse_args()
    paths = photographs(args.photos)
    if not paths:
        raise SystemExit(f"no photographs in {args.photos}")
    print(f"cores: {os.cpu_count()}, load average at start: {os.getloadavg()}")
    for workers in [int(w) for w in args.workers.split(",")]:
        with LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=":0",
                          silence_logs=50) as cluster, Client(cluster) as client:
            print(f"== {workers} worker process(es), load average {os.getloadavg()}")
            listed = paths * args.repeat
            if listed:
                index_files(client, paths[:workers])  # the workers import and warm up
                wall, cpu, found = timed(client, lambda: index_files(client, listed))
                failed = sum(error is not None for _, _, error in found)
                report(f"index_files ({failed} failed)", len(listed), "photos", wall, cpu)
            count = max(args.stored, args.pairs)
            signatures = stored_signatures(client, paths, count, args.extracted, args.cache)
            sdb = ShardedDatabase(client, shards=workers)
            if args.stored:
                queries_per_second(client, sdb, signatures, args, workers)
            if args.pairs:
                sdb.clear()
                sdb.add_many([(s, n + 1) for n, s in enumerate(signatures[: args.pairs])])
                wall, cpu, pairs = timed(client, sdb.duplicate_pairs)
                print(f"duplicate_pairs over {len(sdb)}: {len(pairs)} pairs in "
                      f"{wall:.1f} s wall, {cpu:.1f} s processor (load {os.getloadavg()[0]:.1f})")
                if workers == 1:
                    single = orvane.Database()
                    for n, s in enumerate(signatures[: args.pairs]):
                        single.add(s, n + 1)
                    wall, cpu, same = timed(client, single.duplicate_pairs)
                    print(f"  one in-process Database: {len(same)} pairs in {wall:.1f} s wall, "
                          f"{cpu:.1f} s processor; equal: {same == pairs}")
            del sdb


def queries_per_second(client, sdb, signatures, args, workers):
    items = [(s, n + 1) for n, s in enumerate(signatures[: args.stored])]
    report("add_many", len(items), "signatures", *timed(client, lambda: sdb.add_many(items))[:2])
    # Half of the queries are stored photos, half are not.
    queries = signatures[: args.queries // 2] + signatures[-(args.queries // 2) :]
    sdb.same_photo(queries[0])  # connections to every shard's worker are open
    wall, cpu, _ = timed(client, lambda: [sdb.same_photo(q) for q in queries])
    report(f"same_photo against {len(sdb)}", len(queries), "queries", wall, cpu)
    if workers == 1:
        single = orvane.Database()
        for s, n in items:
            single.add(s, n)
        wall, cpu, _ = timed(client, lambda: [single.same_photo(q) for q in queries])
        report("  one in-process Database", len(queries), "queries", wall, cpu)


if __name__ == "__main__":
    main()
