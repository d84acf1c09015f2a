#!/usr/bin/python3
"""Same-photo recall and false positives of the orvane tool on a variant set.

Makes changed copies of the photographs of Debian's mate-backgrounds package (resized,
re-encoded at low quality, cropped a little, brightened, blurred, mirrored, turned by 90
degrees, made grey), indexes the originals into a library, full and --fast, and asks `find`
for every copy. A copy is recalled when its original is among the photos that count as the
same photo; every other original found is a false positive. The originals are also asked for
each other, which are all distinct photos.

Usage: bench/variant_set.py PATH-OF-THE-ORVANE-TOOL [--keep]
Needs the packages mate-backgrounds and libvips-tools (scripts/install-deps.sh adds them
when given their names).
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile

SOURCE = "/usr/share/backgrounds/mate/nature"

# name: the vips command that makes the copy from (source, target).
VARIANTS = {
    "resized": lambda s, t: ["resize", s, t, "0.4"],
    "quality10": lambda s, t: ["copy", s, t + "[Q=10]"],
    "cropped": None,  # 5 % off each side; needs the size
    "brightened": lambda s, t: ["linear", s, t, "1.15", "20", "--uchar"],
    "blurred": lambda s, t: ["gaussblur", s, t, "2"],
    "mirrored": lambda s, t: ["flip", s, t, "horizontal"],
    "turned90": lambda s, t: ["rot", s, t, "d90"],
    "grey": lambda s, t: ["colourspace", s, t, "b-w"],
}


def vips(*arguments):
    subprocess.run(["vips", *arguments], check=True)


def size_of(path):
    out = subprocess.run(["vipsheader", "-f", "width", path], check=True, capture_output=True,
                         text=True).stdout
    width = int(out)
    out = subprocess.run(["vipsheader", "-f", "height", path], check=True, capture_output=True,
                         text=True).stdout
    return width, int(out)


def make_set(work):
    originals = os.path.join(work, "originals")
    copies = os.path.join(work, "copies")
    os.makedirs(originals)
    os.makedirs(copies)
    names = sorted(n for n in os.listdir(SOURCE) if n.lower().endswith(".jpg"))
    for name in names:
        source = os.path.join(SOURCE, name)
        shutil.copy(source, originals)
        stem = os.path.splitext(name)[0]
        for variant, command in VARIANTS.items():
            target = os.path.join(copies, "%s-%s.jpg" % (stem, variant))
            if command is None:
                width, height = size_of(source)
                vips("crop", source, target, str(width // 20), str(height // 20),
                     str(width - width // 10), str(height - height // 10))
            else:
                vips(*command(source, target))
    return originals, copies, names


def find(tool, library, photos):
    out = subprocess.run([tool, "find", library, *photos, "--json"], capture_output=True,
                         text=True)
    if out.returncode not in (0, 1):
        sys.exit("find failed: " + out.stderr)
    return json.loads(out.stdout)


def measure(tool, work, originals, copies, names, fast):
    library = os.path.join(work, "fast.orvane" if fast else "full.orvane")
    indexed = subprocess.run([tool, "index", library, originals] + (["--fast"] if fast else []),
                             capture_output=True, text=True)
    if indexed.returncode != 0:
        sys.exit("index failed: " + indexed.stderr)
    stems = [os.path.splitext(n)[0] for n in names]
    queries = [os.path.join(copies, "%s-%s.jpg" % (stem, variant))
               for variant in VARIANTS for stem in stems]
    recalled = {variant: 0 for variant in VARIANTS}
    wrong = {variant: 0 for variant in VARIANTS}
    for answer in find(tool, library, queries):
        stem, variant = os.path.basename(answer["photo"])[:-4].rsplit("-", 1)
        found = [os.path.basename(m["path"])[:-4] for m in answer["matches"]]
        recalled[variant] += stem in found
        wrong[variant] += sum(1 for f in found if f != stem)
    distinct = 0
    for answer in find(tool, library, [os.path.join(originals, n) for n in names]):
        own = os.path.basename(answer["photo"])
        distinct += sum(1 for m in answer["matches"] if os.path.basename(m["path"]) != own)
    return recalled, wrong, distinct


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    tool = os.path.realpath(sys.argv[1])
    work = tempfile.mkdtemp(prefix="orvane-variants.")
    originals, copies, names = make_set(work)
    results = {fast: measure(tool, work, originals, copies, names, fast) for fast in (False, True)}
    count = len(names)
    print("%d photographs of %s, %d changed copies each" % (count, SOURCE, len(VARIANTS)))
    print("%-12s %18s %18s" % ("copy", "recall full", "recall --fast"))
    for variant in VARIANTS:
        cells = ["%2d/%d (%2d wrong)" % (results[f][0][variant], count, results[f][1][variant])
                 for f in (False, True)]
        print("%-12s %18s %18s" % (variant, *cells))
    totals = ["%2d/%d (%2d wrong)" % (sum(results[f][0].values()), count * len(VARIANTS),
                                      sum(results[f][1].values())) for f in (False, True)]
    print("%-12s %18s %18s" % ("all", *totals))
    pairs = count * (count - 1)
    print("%-12s %18s %18s" % ("distinct", *["%d/%d pairs" % (results[f][2], pairs)
                                             for f in (False, True)]))
    print("(wrong: other photographs found as the same photo)")
    if "--keep" in sys.argv:
        print("set kept in " + work)
    else:
        shutil.rmtree(work)


if __name__ == "__main__":
    main()
