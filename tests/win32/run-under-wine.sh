#!/usr/bin/env bash
# run-under-wine.sh TEST_EXE: runs the cross-compiled Windows printing tests under headless Wine,
# whose spooler is a private CUPS scheduler (loopback, ports 18731/18732) with the virtual
# printer; then checks the page the Windows code printed. Everything it starts is stopped by
# PID when it ends, whatever the outcome.
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
convert -size 400x600 xc:red \( -size 200x600 xc:blue \) -geometry +200+0 -composite \
  -quality 95 "$work/photo.jpg"
export KPS_TEST_PICTURE="Z:${work//\//\\}\\photo.jpg"

timeout 120 wine wineboot --init >/dev/null 2>&1
timeout 60 wineserver -w
timeout 600 wine "$exe" "${@:2}"
status=$?
[ $status -eq 0 ] || { echo "win32: the test program failed ($status)"; exit $status; }

# The kept page: the picture 3.70 x 5.70 in at 100 dpi is 370 x 570 pixels, red left of blue.
# CUPS hands the job on to the printer after the test program has seen it submitted.
kept=""
for _ in $(seq 300); do
  kept=$(ls -t "$work/cups/eve/"*.pdf "$work/cups/eve/"*.ps 2>/dev/null | head -1)
  [ -n "$kept" ] && [ -z "$(CUPS_SERVER=localhost:18731 lpstat -o 2>/dev/null)" ] && break
  sleep 0.1
done
[ -n "$kept" ] || { echo "win32: the virtual printer kept no page"; ls -la "$work/cups/eve"; exit 1; }
case "$kept" in
  *.pdf) pdftoppm -r 100 -png -singlefile "$kept" "$work/page" ;;
  *) gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=png16m -r100 -o "$work/page.png" "$kept" ;;
esac
read -r width height left top < <(convert "$work/page.png" -fuzz 10% -trim -format '%w %h %X %Y\n' info: | tr -d '+')
pixel() { convert "$work/page.png" -format "%[pixel:p{$1,$2}]" info:; }
red=$(pixel $((left + 20)) $((top + 285)))
blue=$(pixel $((left + 350)) $((top + 285)))
echo "win32: kept page $(basename "$kept"): picture ${width}x${height} at +${left}+${top}, left ${red}, right ${blue}"
ok=1
[ $((width - 370)) -ge -3 ] && [ $((width - 370)) -le 3 ] || ok=0
[ $((height - 570)) -ge -3 ] && [ $((height - 570)) -le 3 ] || ok=0
[[ "$red" =~ ^srgb\(2[0-9][0-9],[0-5]?[0-9],[0-5]?[0-9]\)$ || "$red" == red ]] || ok=0
[[ "$blue" =~ ^srgb\([0-5]?[0-9],[0-5]?[0-9],2[0-9][0-9]\)$ || "$blue" == blue ]] || ok=0
[ $ok -eq 1 ] || { echo "win32: the printed page does not show the picture at its size"; exit 1; }
echo "win32: page geometry checked"
