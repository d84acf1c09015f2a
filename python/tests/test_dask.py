"""orvane.dask on a LocalCluster: sharded answers equal one Database's, bit for bit."""
import json
import os
import signal
import threading
import time

import numpy as np
import pytest

import orvane

distributed = pytest.importorskip("dask.distributed")
from orvane.dask import ManifestError, ShardError, ShardedDatabase, index_files  # noqa: E402

THRESHOLD = 0.07


def start_cluster(workers):
    # Workers are new processes: they find the package where this process found it.
    package_root = os.path.dirname(os.path.dirname(orvane.__file__))
    paths = [package_root] + [p for p in os.environ.get("PYTHONPATH", "").split(os.pathsep) if p]
    os.environ["PYTHONPATH"] = os.pathsep.join(dict.fromkeys(paths))
    cluster = distributed.LocalCluster(
        n_workers=workers, threads_per_worker=1, processes=True, dashboard_address=":0",
        silence_logs=50,
    )
    return cluster, distributed.Client(cluster)


@pytest.fixture(scope="module")
def client():
    cluster, client = start_cluster(2)
    yield client
    client.close()
    cluster.close()


def photo(rng, height=48, width=64):
    """A varied generated photo: a two-colour gradient with a few coloured blocks."""
    y, x = np.mgrid[0:height, 0:width] / max(height, width)
    a, b = rng.integers(0, 256, 3), rng.integers(0, 256, 3)
    t = (x * rng.uniform(-1, 1) + y * rng.uniform(-1, 1))[..., None] % 1.0
    image = a * (1 - t) + b * t
    for _ in range(rng.integers(1, 6)):
        top, left = rng.integers(0, height - 4), rng.integers(0, width - 4)
        image[top : top + rng.integers(4, height), left : left + rng.integers(4, width)] = (
            rng.integers(0, 256, 3)
        )
    return np.clip(image + rng.normal(0, rng.uniform(0, 12), image.shape), 0, 255).astype(np.uint8)


def variant(rng, image, strength):
    """The same photo, slightly changed: a colour shift and noise growing with strength."""
    changed = image + rng.normal(0, 3 * strength, 3) + rng.normal(0, 2 * strength, image.shape)
    return np.clip(changed, 0, 255).astype(np.uint8)


@pytest.fixture(scope="module")
def signatures():
    """2,100 signatures: 1,500 distinct photos and 600 variants of 100 of them at growing
    strength, so that planted pairs score on both sides of the same-photo threshold."""
    rng = np.random.default_rng(15)
    extractor = orvane.Extractor()
    bases = [photo(rng) for _ in range(1500)]
    variants = [variant(rng, bases[b], s) for b in range(100) for s in (0.5, 1, 2, 3, 4, 6)]
    return [extractor.extract(image) for image in bases + variants]


def stored_items(signatures):
    """(signature, id) in adding order: exact copies under other ids, so that equal scores
    meet in different shards, and ids 8 and 41 stored twice, for other photos."""
    items = [(s, n + 1) for n, s in enumerate(signatures)]
    items += [(signatures[n], 10_000 + n) for n in range(0, 60, 3)]
    items += [(signatures[-7], 8), (signatures[-40], 41)]
    # With 3 shards, the last photo of shard 0 is a copy of photo 3 (id 4, shard 0), and the
    # last photo of all is in shard 1: removing id 1 (shard 0) moves the copy ahead of the
    # original in its shard, but not in the one database.
    items += [(signatures[100 + n], 30_000 + n) for n in range(-len(items) % 3)]
    return items + [(signatures[3], 20_003), (signatures[1], 20_001)]


def filled(client, items, shards, removed=()):
    single = orvane.Database()
    sharded = ShardedDatabase(client, shards=shards)
    for signature, id_ in items:
        single.add(signature, id_)
    sharded.add_many(items[:-50])
    for signature, id_ in items[-50:]:
        sharded.add(signature, id_)
    for id_ in removed:
        single.remove(id_)
        sharded.remove(id_)
    return single, sharded


def test_answers_equal_one_database_in_both_modes(client, signatures):
    items = stored_items(signatures)
    single, sharded = filled(client, items, 3, removed=(1, 8, 41, 5, 10_003, 2000))
    assert len(sharded) == len(single) == len(items) - 6
    near_threshold = [0, 0]
    for query in signatures[3:4] + signatures[::250] + signatures[1500::20]:
        same = sharded.same_photo(query)
        assert same == single.same_photo(query)
        for n in (1, 37):
            assert sharded.nearest(query, n) == single.nearest(query, n)
        everything = sharded.nearest(query, 0)
        assert everything == single.nearest(query, 0)
        scores = [s for _, s in everything]
        near_threshold[0] += sum(0.05 < s <= THRESHOLD for s in scores)
        near_threshold[1] += sum(THRESHOLD < s < 0.09 for s in scores)
    assert min(near_threshold) > 0, near_threshold

    with pytest.raises(orvane.Error, match="^Index not found$"):
        sharded.remove(123_456)
    with pytest.raises(orvane.Error, match="^addSignature Unknown Error$"):
        sharded.add(signatures[0], 0)
    sharded.clear()
    assert len(sharded) == 0
    with pytest.raises(orvane.Error, match="^classifyFloat with 0 items in databases$"):
        sharded.same_photo(signatures[0])


def test_duplicate_pairs_equal_one_database(client, signatures):
    # 2,116 photos: shard 0 holds one more than the others.
    items = [(s, n + 1) for n, s in enumerate(signatures)]
    items += [(signatures[n], 10_000 + n) for n in range(1500, 1606, 7)]
    single, sharded = filled(client, items, 3)
    pairs = sharded.duplicate_pairs()
    assert pairs == single.duplicate_pairs()
    assert any(s == 0 for _, _, s in pairs) and any(0.05 < s <= THRESHOLD for _, _, s in pairs)


def test_save_load_round_trip_and_mismatched_manifests(client, signatures, tmp_path):
    items = stored_items(signatures[:400])
    single, sharded = filled(client, items, 3, removed=(8, 17))
    for db in (single, sharded):
        db.set_weight(0, 30.0)
    sharded.save(tmp_path)
    loaded = ShardedDatabase.load(client, tmp_path)
    assert len(loaded) == len(single) and loaded.get_weight(0) == single.get_weight(0)
    for query in signatures[:400:37]:
        assert loaded.nearest(query, 0) == single.nearest(query, 0)
    # Adding goes on where the saved database stopped.
    single.add(signatures[500], 500)
    loaded.add(signatures[500], 500)
    assert loaded.nearest(signatures[500], 9) == single.nearest(signatures[500], 9)

    manifest_path = tmp_path / "manifest.json"
    manifest = json.loads(manifest_path.read_text())
    shard_file = tmp_path / manifest["files"][1]["database"]
    original = shard_file.read_bytes()

    def refused(change):
        change()
        with pytest.raises(ManifestError):
            ShardedDatabase.load(client, tmp_path)
        manifest_path.write_text(json.dumps(manifest))
        shard_file.write_bytes(original)

    recounted = dict(manifest, photos=manifest["photos"] + 1)
    refused(lambda: manifest_path.write_text(json.dumps(recounted)))
    fewer = dict(manifest, shards=2)
    refused(lambda: manifest_path.write_text(json.dumps(fewer)))
    refused(lambda: shard_file.write_bytes(original[:-1] + bytes([original[-1] ^ 1])))
    refused(lambda: shard_file.unlink())


def test_one_shard_saves_and_loads(client, signatures, tmp_path):
    single, sharded = filled(client, [(s, n + 1) for n, s in enumerate(signatures[:80])], 1)
    sharded.save(tmp_path)
    loaded = ShardedDatabase.load(client, tmp_path)
    assert loaded.nearest(signatures[5], 0) == single.nearest(signatures[5], 0)


def test_lost_worker_fails_every_query_with_the_shard_named(signatures, tmp_path):
    cluster, client = start_cluster(2)
    try:
        items = [(s, n + 1) for n, s in enumerate(signatures[:600])]
        single, sharded = filled(client, items, 2)
        sharded.save(tmp_path)
        expected = single.nearest(signatures[3], 0)
        answers, failures = [], []

        def ask():
            while not failures:
                try:
                    answers.append(sharded.nearest(signatures[3], 0))
                except ShardError as error:
                    failures.append(error)

        asking = threading.Thread(target=ask)
        asking.start()
        while len(answers) < 3 and asking.is_alive():
            time.sleep(0.01)
        pids = client.run(os.getpid)
        lost = sharded._workers[1]
        os.kill(pids[lost], signal.SIGKILL)
        asking.join(120)
        assert failures and all(a == expected for a in answers)
        shard = failures[0].shard
        assert f"shard {shard} of 2 is lost" in str(failures[0]) and lost in str(failures[0])
        for call in (lambda: sharded.same_photo(signatures[3]), sharded.duplicate_pairs):
            with pytest.raises(ShardError, match=f"shard {shard} of 2 is lost"):
                call()
        # A worker lost while no call is under way fails the next call to its shard.
        os.kill(pids[sharded._workers[0]], signal.SIGKILL)
        with pytest.raises(ShardError, match="shard 0 of 2 is lost"):
            sharded.get_weight(0)
        client.wait_for_workers(2)
        assert ShardedDatabase.load(client, tmp_path).nearest(signatures[3], 0) == expected
    finally:
        client.close()
        cluster.close()


def test_index_files_reads_upright_photos_and_reports_unreadable_ones(client, tmp_path):
    from PIL import Image

    rng = np.random.default_rng(7)
    images = [photo(rng, 60, 90) for _ in range(3)]
    paths = []
    for n, image in enumerate(images):
        paths.append(str(tmp_path / f"photo{n}.png"))
        Image.fromarray(image).save(paths[-1])
    # Stored lying on its side, with the EXIF orientation that turns it upright (6: rotate
    # 90 degrees clockwise to view).
    rotated = str(tmp_path / "rotated.jpg")
    exif = Image.Exif()
    exif[0x0112] = 6
    Image.fromarray(np.rot90(images[0]).copy()).save(rotated, quality=95, exif=exif)
    truncated = tmp_path / "truncated.jpg"
    Image.fromarray(images[1]).save(truncated, quality=95)
    truncated.write_bytes(truncated.read_bytes()[:300])
    (tmp_path / "notes.jpg").write_text("not a photo")
    order = [paths[0], str(tmp_path / "missing.jpg"), paths[1], rotated, str(truncated),
             str(tmp_path / "notes.jpg"), paths[2]]

    found = index_files(client, order, batch_size=2)
    assert [path for path, _, _ in found] == order
    extractor = orvane.Extractor()
    for n, index in enumerate((0, 2, 6)):
        assert found[index][1] == extractor.extract(images[n], order="rgb") and found[index][2] is None
    upright = np.asarray(Image.open(rotated).transpose(Image.Transpose.ROTATE_270))
    assert upright.shape == images[0].shape
    assert found[3][1] == extractor.extract(upright, order="rgb")
    for index in (1, 4, 5):
        assert found[index][1] is None and found[index][2]
    assert "No such file" in found[1][2]
