#!/usr/bin/env bash
# run-under-wine.sh TEST_EXE [ARGS]: runs the cross-compiled Windows printing tests under
# headless Wine, whose spooler is a private CUPS scheduler (loopback, ports 18731/18732) with the
# virtual printer; stops all it started when it ends, whatever the outcome.
set -uo pipefail
exe=$(realpath "${1:?test executable}")
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/kps-wine-XXXXXX")
chmod 755 "$work"
export WINEPREFIX="$work/prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
unset DISPLAY
export CUPS_SERVER=localhost:18731 HOME="$work"
cleanup() {
  timeout 20 wineserver -k >/dev/null 2>&1
  "$root/sandbox/cups.sh" stop "$work/cups" >/dev/null 2>&1
  rm -rf "$work"
}
trap cleanup EXIT

"$root/sandbox/cups.sh" start "$work/cups" 18731 18732 >"$work/cups.log" 2>&1 || {
  cat "$work/cups.log"; echo "win32: the private scheduler did not start"; exit 1; }
convert -size 200x600 xc:red -size 200x600 xc:blue +append "$work/photo.jpg"
export KPS_TEST_PICTURE="Z:${work//\//\\}\\photo.jpg"
convert -size 40x60 xc:green "$work/other.bmp"
export KPS_TEST_OTHER="Z:${work//\//\\}\\other.bmp"
node "$root/sandbox/picture-bomb.js" png 30000 30000 "$work/bomb.png"
node "$root/sandbox/picture-bomb.js" svg 32000 32000 "$work/bomb.svg"
export KPS_TEST_BOMB="Z:${work//\//\\}\\bomb.png" KPS_TEST_SVG="Z:${work//\//\\}\\bomb.svg"

timeout 120 wine wineboot --init >/dev/null 2>&1
timeout 60 wineserver -w
timeout 600 wine "$exe" "${@:2}"

