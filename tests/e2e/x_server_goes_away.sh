#!/bin/sh
# Tavo on an X server that then goes away, in the middle of a trigger: Tavo must end by itself,
# not crash. Runs inside tests/isolated and tests/with-keyring; starts its own Xvfb to kill.
# usage: x_server_goes_away.sh TAVO TAVOCTL
set -eu
tavo=$1
tavoctl=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/x-goes-away.XXXXXX")
Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>"$work/display" 2>/dev/null &
xvfb=$!
trap 'kill $xvfb 2>/dev/null || true; rm -rf "$work"' EXIT
for _ in $(seq 50); do [ -s "$work/display" ] && break; sleep 0.1; done
DISPLAY=:$(cat "$work/display")
export DISPLAY

echo "long enough password" | "$tavoctl" account register robin >/dev/null
"$tavo" >"$work/tavo.log" 2>&1 &
tavo_pid=$!
for _ in $(seq 100); do grep -q "keyboard tap running" "$work/tavo.log" 2>/dev/null && break; sleep 0.1; done
grep -q "keyboard tap running" "$work/tavo.log" || { cat "$work/tavo.log"; echo "Tavo did not start"; exit 1; }
xdotool type '\th'

kill -9 $xvfb
status=0
wait $tavo_pid || status=$?
cat "$work/tavo.log"
# 128 and above: ended by a signal (a crash, an abort).
if [ "$status" -ge 128 ]; then
    echo "Tavo crashed when the X server went away (status $status)"
    exit 1
fi
echo "Tavo ended with status $status"
