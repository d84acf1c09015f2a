"""orvane.dask on a LocalCluster: sharded answers equal one Database's, bit for bit."""
import json
import os
import signal

import numpy as np
import pytest

import orvane
from conftest import photo

distributed = pytest.importorskip("dask.distributed")
from orvane.dask import ManifestError, ShardError, ShardedDatabase, index_files  # noqa: E402

THRESHOLD = 0.07


@pytest.fixture(scope="module")
def client():
    # Workers are new processes: they find the package where this process found it.
    paths = [os.path.dirname(os.path.dirname(orvane.__file__)), os.environ.get("PYTHONPATH")]
    os.environ["PYTHONPATH"] = os.pathsep.join(p for p in paths if p)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=":0",
                                  silence_logs=50) as cluster:
        with distributed.Client(cluster) as client:
            yield client


@pytest.fixture(scope="module")
def signatures():
    """1,500 photos and 600 variants of 100 of them: pairs on both sides of the threshold."""
    rng = np.random.default_rng(15)
    images = [photo(64, 48, seed) for seed in range(1500)]
    images += [np.clip(image + rng.normal(0, 3 * s, 3) + rng.normal(0, 2 * s, image.shape), 0, 255)
               for image in images[:100] for s in (0.5, 1, 2, 3, 4, 6)]
    return list(map(orvane.Extractor().extract, (image.astype(np.uint8) for image in images)))


def stored_items(signatures):
    """(signature, id) in adding order: exact copies under other ids, so that equal scores
    meet in different shards, and ids 8 and 41 stored twice, for other photos."""
    items = [(s, n + 1) for n, s in enumerate(signatures)]
    items += [(signatures[n], 10_000 + n) for n in range(0, 60, 3)]
    items += [(signatures[-7], 8), (signatures[-40], 41)]
    # With 3 shards, shard 0 ends with a copy of photo 3 (id 4, shard 0), and the last photo is in
    # shard 1: removing id 1 moves the copy ahead of the original in its shard, not in one database.
    items += [(signatures[100 + n], 30_000 + n) for n in range(-len(items) % 3)]
    return items + [(signatures[3], 20_003), (signatures[1], 20_001)]


def filled(client, items, shards, removed=()):
    single, sharded = orvane.Database(), ShardedDatabase(client, shards=shards)
    for signature, id_ in items:
        single.add(signature, id_)
    sharded.add_many(items[:-50])
    for signature, id_ in items[-50:]:
        sharded.add(signature, id_)
    for id_ in removed:
        single.remove(id_)
        sharded.remove(id_)
    return single, sharded


def test_answers_and_pairs_equal_one_database(client, signatures):
    items = stored_items(signatures)
    single, sharded = filled(client, items, 3, removed=(1, 8, 41, 5, 10_003, 2000))
    assert len(sharded) == len(single) == len(items) - 6
    for query in signatures[3:4] + signatures[::250] + signatures[1500::20]:
        assert sharded.same_photo(query) == single.same_photo(query)
        for n in (1, 37, 0):
            assert sharded.nearest(query, n) == single.nearest(query, n)
    assert any(THRESHOLD < s < 0.09 for _, s in single.nearest(signatures[1500], 0))
    pairs = sharded.duplicate_pairs()
    assert pairs == single.duplicate_pairs()
    assert any(s == 0 for _, _, s in pairs) and any(0.05 < s <= THRESHOLD for _, _, s in pairs)

    with pytest.raises(orvane.Error, match="^Index not found$"):
        sharded.remove(123_456)
    with pytest.raises(orvane.Error, match="^addSignature Unknown Error$"):
        sharded.add(signatures[0], 0)
    sharded.clear()
    with pytest.raises(orvane.Error, match="^classifyFloat with 0 items in databases$"):
        sharded.same_photo(signatures[0])
    assert len(sharded) == 0


@pytest.mark.parametrize("shards", [1, 3])
def test_save_load_round_trip_and_mismatched_manifests(client, signatures, tmp_path, shards):
    single, sharded = filled(client, stored_items(signatures[:400]), shards, removed=(8, 17))
    for db in (single, sharded):
        db.set_weight(0, 30.0)
    sharded.save(tmp_path)
    loaded = ShardedDatabase.load(client, tmp_path)
    assert len(loaded) == len(single) and loaded.get_weight(0) == single.get_weight(0)
    for query in signatures[:400:37]:
        assert loaded.nearest(query, 0) == single.nearest(query, 0)
    # Adding goes on where the saved database stopped.
    for db in (single, loaded):
        db.add(signatures[500], 500)
    assert loaded.nearest(signatures[500], 9) == single.nearest(signatures[500], 9)

    manifest_path = tmp_path / "manifest.json"
    manifest = json.loads(manifest_path.read_text())
    shard_file = tmp_path / manifest["files"][-1]["database"]
    for path, changed in [
        (manifest_path, json.dumps(dict(manifest, photos=manifest["photos"] + 1)).encode()),
        (manifest_path, json.dumps(dict(manifest, shards=2)).encode()),
        (shard_file, shard_file.read_bytes()[:-1]),
        (shard_file, None),
    ]:
        kept = path.read_bytes()
        path.unlink() if changed is None else path.write_bytes(changed)
        with pytest.raises(ManifestError):
            ShardedDatabase.load(client, tmp_path)
        path.write_bytes(kept)


def test_index_files_reads_upright_photos_and_reports_unreadable_ones(client, tmp_path):
    from PIL import Image

    image = photo(90, 60, 1)
    order = [str(tmp_path / name) for name in ("upright.png", "missing.jpg", "rotated.jpg")]
    Image.fromarray(image).save(order[0])
    # Lying on its side, with the EXIF orientation that turns it upright (6: 90 degrees clockwise).
    exif = Image.Exif()
    exif[0x0112] = 6
    Image.fromarray(np.rot90(image).copy()).save(order[2], quality=95, exif=exif)

    found = index_files(client, order, batch_size=2)
    assert [path for path, _, _ in found] == order
    upright = np.asarray(Image.open(order[2]).transpose(Image.Transpose.ROTATE_270))
    assert upright.shape == image.shape
    for index, image in ((0, image), (2, upright)):
        assert found[index][1:] == (orvane.Extractor().extract(image, order="rgb"), None)
    assert found[1][1] is None and "No such file" in found[1][2]


def test_lost_worker_fails_every_call_with_the_shard_named(client, signatures, tmp_path):
    single, sharded = filled(client, [(s, n + 1) for n, s in enumerate(signatures[:600])], 2)
    sharded.save(tmp_path)
    expected = single.nearest(signatures[3], 0)
    assert sharded.nearest(signatures[3], 0) == expected
    pids = client.run(os.getpid)
    for shard, calls in [
        (1, [lambda: sharded.nearest(signatures[3], 0), sharded.duplicate_pairs]),
        (0, [lambda: sharded.get_weight(0), lambda: sharded.same_photo(signatures[3])]),
    ]:
        os.kill(pids[sharded._workers[shard]], signal.SIGKILL)
        for call in calls:
            lost = f"shard {shard} of 2 is lost: its worker {sharded._workers[shard]}"
            with pytest.raises(ShardError, match=lost):
                call()
    client.wait_for_workers(2)
    assert ShardedDatabase.load(client, tmp_path).nearest(signatures[3], 0) == expected
