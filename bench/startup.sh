#!/usr/bin/env bash
# Cold start of tavo to its first painted window, with a profile of 10,000 shortcuts; median of
# ten runs. Runs on a private X server with a keyring: tests/isolated DIR tests/with-keyring
# tests/with-xvfb bench/startup.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
tavo=$build/src/tavo/tavo
tavoctl=$build/src/tavoctl/tavoctl
echo "long enough" | "$tavoctl" account register bench >/dev/null
clips=$(find "$HOME" -name clips.json | head -1)
[ -n "$clips" ] || { echo "no profile"; exit 1; }
{
    printf '['
    for i in $(seq 1 10000); do
        [ "$i" -gt 1 ] && printf ','
        printf '{"id":"%08X-0000-4000-8000-%012X","key":"/key%d","name":"Shortcut %d","text":"Dear customer, thank you for order %d.","group":"Collection %d","files":[]}' \
            "$i" "$i" "$i" "$i" "$i" $((i % 30))
    done
    printf ']'
} >"$clips"
times=()
for run in $(seq 1 10); do
    start=$(date +%s%N)
    QT_LOGGING_RULES="tavo.shell.window.info=true" "$tavo" 2>&1 | while IFS= read -r line; do
        if [[ $line == *"main window painted"* ]]; then
            echo $((($(date +%s%N) - start) / 1000000)) >"$HOME/startup-ms"
            pkill -x tavo
        fi
    done
    times+=("$(cat "$HOME/startup-ms")")
done
sorted=($(printf '%s\n' "${times[@]}" | sort -n))
echo "cold start to first paint, 10,000 shortcuts: median ${sorted[4]}-${sorted[5]} ms (runs: ${times[*]})"
