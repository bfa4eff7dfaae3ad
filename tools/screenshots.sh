#!/bin/sh
# Renders the README's pictures of the window and its sheets on the demo's sample data, without a
# display, into docs/screenshots/. A fresh demo folder gets a snapshot and a PDF export first, so
# that the snapshots window and the custody log have something to show.
# Usage: tools/screenshots.sh [build folder]   (default: build)
set -eu
cd "$(dirname "$0")/.."
build="${1:-build}"
[ -x "$build/brindlecourt" ] || cmake --build "$build" -j 2 --target brindlecourt
mkdir -p docs/screenshots
TMPDIR=$(mktemp -d)
export TMPDIR
trap 'chattr -R -i "$TMPDIR" 2>/dev/null || true; rm -rf "$TMPDIR"' EXIT
"$build/brindlecourt" --demo --export-html --snapshot >/dev/null
"$build/brindlecourt" --demo --export-html --chats 1 --title "Sample conversation" --format pdf \
    --out "$TMPDIR/PDF" >/dev/null
QT_QPA_PLATFORM=offscreen BRINDLECOURT_SCREENSHOTS="$PWD/docs/screenshots" \
    "$build/brindlecourt" --demo
echo "Wrote docs/screenshots/: main-window, export-sheet, evidence-tab, exhibit-sheet," \
    "snapshots-window and custody-log-window (.png)"
