#!/usr/bin/env bash
# Checks a built .deb as a user's machine would meet it: lintian finds no error, every package it
# depends on exists here in a version that satisfies it, and the program runs from the unpacked
# tree alone, with no library path pointing back into the build.
# Usage: tests/package/installed-package.sh path/to/brindlecourt_VERSION_ARCH.deb
set -euo pipefail

deb=$(realpath "$1")
work=$(mktemp -d)
trap 'chattr -R -i "$work" 2>/dev/null || true; rm -rf "$work"' EXIT
fail() { echo "Package check failed: $*" >&2; exit 1; }

lintian --fail-on error --tag-display-limit 0 "$deb" 2>&1 | grep -v "root privileges" || true
lintian --fail-on error "$deb" >/dev/null 2>&1 || fail "lintian reports errors."

# Each comma-separated group needs one alternative installed in a version that satisfies it.
satisfied() {
    local alternative name relation version installed
    IFS='|' read -ra alternatives <<<"$1"
    for alternative in "${alternatives[@]}"; do
        read -r name relation version <<<"$(sed -E 's/[()]//g' <<<"$alternative")"
        name=${name%%:*}
        installed=$(dpkg-query -W -f='${Version}' "$name" 2>/dev/null) || continue
        [ -z "$installed" ] && continue
        [ -z "$relation" ] && return 0
        dpkg --compare-versions "$installed" "$relation" "$version" && return 0
    done
    return 1
}
IFS=',' read -ra groups <<<"$(dpkg-deb -f "$deb" Depends)"
for group in "${groups[@]}"; do
    satisfied "$group" || fail "nothing installed here satisfies the dependency \"${group# }\"."
done

root="$work/root"
dpkg-deb -x "$deb" "$root"
program="$root/usr/bin/brindlecourt"
run() { env -u LD_LIBRARY_PATH HOME="$work/home" TMPDIR="$work/tmp" "$program" "$@"; }
mkdir -p "$work/home" "$work/tmp"

version=$(dpkg-deb -f "$deb" Version)
run --version | grep -qx "Brindlecourt $version ([0-9]*)" || fail "--version does not say $version."

run --demo --export-html --chats 1 --title "Installed" --out "$work/export" >/dev/null
(cd "$work/export" && sha256sum --quiet -c checksums.txt) || fail "the export's checksums do not hold."
ls "$work/export"/*.html >/dev/null || fail "the export has no page."
[ -z "$(ls -A "$work/home")" ] || fail "demo mode wrote into the home folder."

# The manual page and --help name the same options.
options() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }
manual=$(zcat "$root/usr/share/man/man1/brindlecourt.1.gz" | sed 's/\\-/-/g' | options)
help=$(run --help | options)
[ "$manual" = "$help" ] || fail "the manual page and --help list different options:
$(diff <(echo "$manual") <(echo "$help") || true)"

echo "The package is clean, its dependencies are met, and the unpacked program runs and exports."
