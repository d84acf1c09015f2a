#!/usr/bin/env bash
# make demo: duplicates found among real photographs. Copies a few photographs of Debian's
# mate-backgrounds package into a temporary folder, adds changed copies of some (smaller,
# re-encoded at low JPEG quality, cropped), indexes the folder and shows what orvane finds.
# Usage: scripts/demo.sh PATH-OF-THE-ORVANE-TOOL
set -euo pipefail
tool=$(realpath "$1")
cd "$(dirname "$0")/.."
scripts/install-deps.sh mate-backgrounds libvips-tools >&2

source=/usr/share/backgrounds/mate/nature
work=$(mktemp -d "${TMPDIR:-/tmp}/orvane-demo.XXXXXX")
photos=$work/photos
mkdir "$photos"
for name in Aqua Dune FreshFlower LadyBird Storm TwoWings Wood YellowFlower; do
  cp "$source/$name.jpg" "$photos/"
done
vips resize "$source/Dune.jpg" "$photos/Dune-small.jpg" 0.4
vips copy "$source/Storm.jpg" "$photos/Storm-q15.jpg[Q=15]"
vips crop "$source/LadyBird.jpg" "$photos/LadyBird-cropped.jpg" 100 60 2360 1480
vips thumbnail "$source/YellowFlower.jpg" "$photos/YellowFlower-web.jpg[Q=40]" 800

library=$work/photos.orvane
run() {
  echo
  echo "\$ orvane $*"
  "$tool" "$@" || true
}
echo "$(ls "$photos" | wc -l) photos in $photos"
run index "$library" "$photos"
run dups "$library"
run find "$library" "$photos/Storm-q15.jpg"
run find "$library" "$photos/Aqua.jpg" --near 3
run dups "$library" --html "$work/review.html"
echo
echo "(the folder stays for you to try more: $work; open review.html in a browser)"
