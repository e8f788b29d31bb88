#!/usr/bin/env bash
# End to end on a real X server: the launcher's window opens, a click on Enable
# from outside the process starts the test service and stores the flag, and a
# picture of the window is kept with the test output.
# Usage: settings_window.sh LAUNCHER TEST_SERVICE PLUGINKIT OUTPUT_DIR
set -euo pipefail
launcher=$1 service=$2 pluginkit=$3 output=$4

for tool in xvfb-run xwininfo xdotool import; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done

home=$(mktemp -d)
trap 'pkill -KILL -f "$home/bin/quorin-service" 2>/dev/null || true; rm -rf "$home"' EXIT
mkdir -p "$home/bin" "$home/config" "$home/data/applications" "$output" && mkdir -m 700 "$home/runtime"
cp "$service" "$home/bin/quorin-service" && cp "$pluginkit" "$home/bin/pluginkit"
printf '[Desktop Entry]\nType=Application\nName=Service\nExec=%s\n' "$home/bin/quorin-service" \
    > "$home/data/applications/com.zelna.Quorin.Service.desktop"
# Disabled at the start, so that the click is what enables it.
cat > "$home/config/K4WQ7ZT2RB.group.zelna.Quorin.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>QREnabled</key><string>0</string></dict></plist>
PLIST

export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_DATA_DIRS=$home/none \
    XDG_CONFIG_DIRS=$home/none XDG_RUNTIME_DIR=$home/runtime PATH=$home/bin:$PATH \
    ZQ_PLUGINKIT_LOG=$home/pluginkit.log ZQ_SERVICE_STARTS=$home/starts.log QT_QPA_PLATFORM=xcb
unset QT_LOGGING_RULES

xvfb-run -a -s "-screen 0 1280x800x24" bash -s "$launcher" "$home" "$output" <<'SESSION'
set -euo pipefail
launcher=$1 home=$2 output=$3
"$launcher" > "$home/launcher.log" 2>&1 &
pid=$!
trap 'kill "$pid" 2>/dev/null || true' EXIT
window=$(timeout 15 xdotool search --sync --onlyvisible --name '^ZELNA Quorin$' | head -n 1) \
    || { echo "FAIL: the window did not open"; cat "$home/launcher.log"; exit 1; }
sleep 0.5
[ ! -s "$home/starts.log" ] || { echo "FAIL: the service ran before Enable was clicked"; exit 1; }

# The Enable box: the second row, below the title.
xdotool mousemove --window "$window" 27 54 click 1
for _ in $(seq 50); do
    grep -q '<string>1</string>' "$home/config/K4WQ7ZT2RB.group.zelna.Quorin.plist" && [ -s "$home/starts.log" ] && break
    sleep 0.1
done
sleep 0.3
import -window "$window" "$output/settings-window.png"
SESSION

python3 -c 'import plistlib, sys; v = plistlib.load(open(sys.argv[1], "rb"))["QREnabled"]; assert v == "1", v' \
    "$home/config/K4WQ7ZT2RB.group.zelna.Quorin.plist"
[ "$(wc -l < "$home/starts.log")" -eq 1 ] || { echo "FAIL: the service was not started exactly once"; cat "$home/launcher.log"; exit 1; }
grep -q -- '-e use -i com.zelna.Quorin.Service.Finder' "$home/pluginkit.log"
[ -s "$output/settings-window.png" ]
echo "PASS: Enable clicked from outside; flag stored, service started; picture in $output/settings-window.png"
