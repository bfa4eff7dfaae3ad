#!/bin/sh
# Renders the main window and the export sheet on the demo's sample data, without a display, into docs/screenshots/.
# Usage: tools/screenshots.sh [build folder]   (default: build)
set -eu
cd "$(dirname "$0")/.."
build="${1:-build}"
[ -x "$build/brindlecourt" ] || cmake --build "$build" -j 2 --target brindlecourt
mkdir -p docs/screenshots
QT_QPA_PLATFORM=offscreen BRINDLECOURT_SCREENSHOTS="$PWD/docs/screenshots" \
    "$build/brindlecourt" --demo
echo "Wrote docs/screenshots/main-window.png and export-sheet.png"
