#!/usr/bin/python3
"""Same-photo recall and false positives of the orvane tool on a variant set.

Makes changed copies of the photographs of Debian's mate-backgrounds package (resized,
re-encoded at low quality, cropped a little, brightened, blurred, mirrored, turned by 90
degrees, made grey), indexes the originals into a library, full and --fast, and asks `find`
for every copy. A copy is recalled when its original is among the photos that count as the
same photo; every other original found is a false positive. The originals are also asked for
each other, which are all distinct photos. A third column asks `find --any-orientation` of
the full library, with more mirrored and turned copies.

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
    "turned180": lambda s, t: ["rot", s, t, "d180"],
    "turned270": lambda s, t: ["rot", s, t, "d270"],
    "flipped": lambda s, t: ["flip", s, t, "vertical"],  # mirrored, turned 180
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


def find(tool, library, photos, options):
    out = subprocess.run([tool, "find", library, *photos, "--json", *options],
                         capture_output=True, text=True)
    if out.returncode not in (0, 1):
        sys.exit("find failed: " + out.stderr)
    return json.loads(out.stdout)


def measure(tool, work, originals, copies, names, fast, options):
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
    for answer in find(tool, library, queries, options):
        stem, variant = os.path.basename(answer["photo"])[:-4].rsplit("-", 1)
        found = [os.path.basename(m["path"])[:-4] for m in answer["matches"]]
        recalled[variant] += stem in found
        wrong[variant] += sum(1 for f in found if f != stem)
    distinct = 0
    for answer in find(tool, library, [os.path.join(originals, n) for n in names], options):
        own = os.path.basename(answer["photo"])
        distinct += sum(1 for m in answer["matches"] if os.path.basename(m["path"]) != own)
    return recalled, wrong, distinct


def distinct_backgrounds(tool, work, options):
    """False positives among all of the package's pictures, photographs and drawn patterns
    alike, each made a JPEG (which drops the transparency that would turn several patterns
    white); Elephants_<size> are the same photo as Elephants."""
    folder = os.path.join(work, "backgrounds")
    if not os.path.isdir(folder):
        os.makedirs(folder)
        for d, _, files in os.walk(os.path.dirname(SOURCE)):
            for n in files:
                if n.lower().endswith((".jpg", ".png")):
                    vips("copy", os.path.join(d, n),
                         os.path.join(folder, os.path.splitext(n)[0] + ".jpg[Q=92]"))
    pictures = sorted(os.path.join(folder, n) for n in os.listdir(folder))
    library = os.path.join(work, "backgrounds.orvane")
    subprocess.run([tool, "index", library, folder], capture_output=True, check=True)
    photo = lambda path: os.path.basename(path).split("_")[0].split(".")[0]
    wrong = pairs = 0
    for answer in find(tool, library, pictures, options):
        wrong += sum(1 for m in answer["matches"] if photo(m["path"]) != photo(answer["photo"]))
        pairs += sum(1 for p in pictures if photo(p) != photo(answer["photo"]))
    return "%d/%d pairs" % (wrong, pairs)


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    tool = os.path.realpath(sys.argv[1])
    work = tempfile.mkdtemp(prefix="orvane-variants.")
    originals, copies, names = make_set(work)
    modes = {"full": (False, []), "--fast": (True, []),
             "any orientation": (False, ["--any-orientation"])}
    results = [measure(tool, work, originals, copies, names, *mode) for mode in modes.values()]
    count = len(names)
    print("%d photographs of %s, %d changed copies each" % (count, SOURCE, len(VARIANTS)))
    print("%-12s" % "recall of" + "".join("%20s" % mode for mode in modes))
    for variant in VARIANTS:
        print("%-12s" % variant + "".join("%20s" % ("%2d/%d (%2d wrong)" % (
            r[0][variant], count, r[1][variant])) for r in results))
    print("%-12s" % "all" + "".join("%20s" % ("%2d/%d (%2d wrong)" % (
        sum(r[0].values()), count * len(VARIANTS), sum(r[1].values()))) for r in results))
    pairs = count * (count - 1)
    print("%-12s" % "distinct" + "".join("%20s" % ("%d/%d pairs" % (r[2], pairs))
                                         for r in results))
    print("distinct among all the package's pictures: %s as is, %s in any orientation" % tuple(
        distinct_backgrounds(tool, work, option) for option in ([], ["--any-orientation"])))
    print("(wrong: other photographs found as the same photo)")
    if "--keep" in sys.argv:
        print("set kept in " + work)
    else:
        shutil.rmtree(work)


if __name__ == "__main__":
    main()
