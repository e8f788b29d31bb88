#!/usr/bin/env bash
# Runs the launcher on a virtual X display, saves a picture of its settings
# window and ends it. Used by scripts/run on machines without a display.
set -euo pipefail
launcher=$1
shift
output=build/screenshot.png

export QT_QPA_PLATFORM=xcb
"$launcher" "$@" &
pid=$!
trap 'kill "$pid" 2>/dev/null || true' EXIT

# The window exists by name before it is mapped; a picture of an unmapped
# window fails, so wait until it is viewable.
window=""
for _ in $(seq 100); do
    window=$(xwininfo -root -tree 2>/dev/null | awk '/"ZELNA Quorin"/ { print $1; exit }')
    if [ -n "$window" ] && xwininfo -id "$window" 2>/dev/null | grep -q 'Map State: IsViewable'; then
        break
    fi
    window=""
    kill -0 "$pid" 2>/dev/null || { echo "The launcher ended without showing its window." >&2; exit 1; }
    sleep 0.1
done
[ -n "$window" ] || { echo "The launcher's window did not appear." >&2; exit 1; }
sleep 0.5 # let it paint
import -window "$window" "$output"
echo "Screenshot of the settings window: $output"
