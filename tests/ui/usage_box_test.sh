#!/usr/bin/env bash
# The real program shows its usage box on a real display: started with -h
# under Xvfb it opens a window titled "Velorin Linkhost", waits for the user,
# and ends with E_FAIL once OK is pressed.
#   usage_box_test.sh <bin-dir> <prefix> <screenshot-dir>
set -u
export WINEPREFIX=$2 WINEARCH=win64 WINEDEBUG=-all
mkdir -p "$3"
# Xvfb picks a free display itself and names it once it is ready.
exec 3< <(exec Xvfb -displayfd 1 -screen 0 1024x768x24 -nolisten tcp 2>/dev/null)
xvfb=$! wine_pid=
trap 'kill $wine_pid $xvfb 2>/dev/null; wineserver -k >/dev/null 2>&1' EXIT
read -r -t 20 display <&3 || { echo "FAIL: Xvfb did not start"; exit 1; }
export DISPLAY=":$display"
timeout 120 wine "$1/VnLinkhost.exe" -h &
wine_pid=$!
for _ in $(seq 200); do
  window=$(xdotool search --name '^Velorin Linkhost$' 2>/dev/null | head -n 1)
  [ -n "$window" ] || ! kill -0 $wine_pid 2>/dev/null && break
  sleep 0.1
done
[ -n "$window" ] || { echo "FAIL: no window titled 'Velorin Linkhost' appeared"; exit 1; }
sleep 0.5
import -window root "$3/usage_box.png" 2>/dev/null && echo "screenshot: $3/usage_box.png"
kill -0 $wine_pid 2>/dev/null || { echo "FAIL: the program ended without waiting for the box"; exit 1; }
xdotool windowactivate --sync "$window" 2>/dev/null
xdotool key --window "$window" Return
wait $wine_pid
status=$?
# 0x80004005 reaches the shell as its lowest byte.
[ $status -eq 5 ] || { echo "FAIL: exit status $status, expected 0x80004005 (5)"; exit 1; }
echo "1 passed, 0 failed"
