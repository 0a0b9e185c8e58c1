#!/usr/bin/env bash
# The real program shows its usage box on a real display: started with -h
# under Xvfb it opens a window titled "Velorin Linkhost", waits for the user,
# and ends with E_FAIL once OK is pressed.
#   usage_box_test.sh <bin-dir> <prefix> <screenshot-dir>
set -u
bin=$1
export WINEPREFIX=$2 WINEARCH=win64 WINEDEBUG=-all
shots=$3
mkdir -p "$shots"

display=""
for n in $(seq 91 120); do
  [ -e "/tmp/.X11-unix/X$n" ] || [ -e "/tmp/.X$n-lock" ] || { display=":$n"; break; }
done
[ -n "$display" ] || { echo "no free display"; exit 1; }
Xvfb "$display" -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
wine_pid=""
cleanup() {
  [ -n "$wine_pid" ] && kill "$wine_pid" 2>/dev/null
  wineserver -k >/dev/null 2>&1
  kill "$xvfb" 2>/dev/null
}
trap cleanup EXIT
export DISPLAY=$display
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done

started=$(date +%s)
timeout 120 wine "$bin/VnLinkhost.exe" -h &
wine_pid=$!

window=""
for _ in $(seq 200); do
  window=$(xdotool search --name '^Velorin Linkhost$' 2>/dev/null | head -n 1)
  [ -n "$window" ] && break
  kill -0 "$wine_pid" 2>/dev/null || break
  sleep 0.1
done
fail=0
if [ -z "$window" ]; then
  echo "FAIL: no window titled 'Velorin Linkhost' appeared"
  fail=1
else
  sleep 1
  import -window root "$shots/usage_box.png" 2>/dev/null && echo "screenshot: $shots/usage_box.png"
  kill -0 "$wine_pid" 2>/dev/null || { echo "FAIL: the program ended without waiting for the box"; fail=1; }
  xdotool windowactivate --sync "$window" 2>/dev/null
  xdotool key --window "$window" Return
fi
wait "$wine_pid"
status=$?
# 0x80004005 reaches the shell as its lowest byte.
if [ "$status" -ne 5 ]; then
  echo "FAIL: exit status $status, expected 0x80004005 (5)"
  fail=1
fi
echo "box shown and closed after $(( $(date +%s) - started )) s"
[ "$fail" -eq 0 ] && echo "1 passed, 0 failed" || echo "0 passed, 1 failed"
exit "$fail"
