#!/usr/bin/env bash
# End to end on a real X server, with the keyboard alone: the window opens with
# Enable focused; Space turns the product on, Tab and Space turn previews off,
# two more Tabs and Space open the help, Shift+Tab back to Enable and Space turn
# it off again. Each press shows in the files it changes, and a picture of the
# window is kept with the test output.
# Usage: settings_window.sh LAUNCHER PLUGINKIT OUTPUT_DIR
set -euo pipefail
launcher=$1 pluginkit=$2 output=$3

for tool in xvfb-run xdotool import; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
mkdir -p "$home/bin" "$home/config" "$home/data" "$output" && mkdir -m 700 "$home/runtime"
cp "$pluginkit" "$home/bin/pluginkit"
printf '#!/bin/sh\necho "$@" >> "$HOME/opened"\n' > "$home/bin/xdg-open" && chmod +x "$home/bin/xdg-open" # the browser
plist=$home/config/K4WQ7ZT2RB.group.zelna.Quorin.plist
echo '<plist version="1.0"><dict><key>QREnabled</key><string>0</string></dict></plist>' > "$plist"

export HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_DATA_DIRS=$home/none \
    XDG_CONFIG_DIRS=$home/none XDG_RUNTIME_DIR=$home/runtime PATH=$home/bin:$PATH \
    ZQ_PLUGINKIT_LOG=$home/pluginkit.log QT_QPA_PLATFORM=xcb PLIST=$plist \
    PREVIEW=$home/data/com.zelna.Quorin.shared/Communication/commnuication_file.json
unset QT_LOGGING_RULES

xvfb-run -a -s "-screen 0 1280x800x24" bash -s "$launcher" "$home" "$output" <<'SESSION'
set -euo pipefail
launcher=$1 home=$2 output=$3
"$launcher" > "$home/launcher.log" 2>&1 &
trap "kill $! 2>/dev/null || true" EXIT
window=$(timeout 15 xdotool search --sync --onlyvisible --name '^ZELNA Quorin$' | head -n 1) \
    || { echo "FAIL: the window did not open"; cat "$home/launcher.log"; exit 1; }
xdotool windowfocus --sync "$window" # there is no window manager to give it the focus
# Waits until file $1 holds $2, or fails with the keys $3 that did not take.
holds() {
    for _ in $(seq 50); do grep -qF -- "$2" "$1" 2>/dev/null && return; sleep 0.1; done
    echo "FAIL: no $2 in $1 after $3"; cat "$home/launcher.log"; exit 1
}
xdotool key space && holds "$PLIST" "<string>1</string>" "Space on Enable"
xdotool key Tab space && holds "$PREVIEW" '{"previewEnabled":false}' "Tab, Space on the preview box"
xdotool key Tab Tab space && holds "$home/opened" "#gateway-administration-guide" "Tab, Tab, Space on Help"
import -window "$window" "$output/settings-window.png"
xdotool key shift+Tab shift+Tab shift+Tab space && holds "$PLIST" "<string>0</string>" "Shift+Tab to Enable, Space"
SESSION

# The start's pass, with the product off, and the one that turning it on ran.
[ "$(cat "$home/pluginkit.log")" = $'-e ignore -i com.zelna.Quorin.Service.Finder\n-e use -i com.zelna.Quorin.Service.Finder' ] \
    || { echo "FAIL: the election tool was called otherwise:"; cat "$home/pluginkit.log"; exit 1; }
[ -s "$output/settings-window.png" ]
echo "PASS: Enable, previews and help with the keyboard alone; picture in $output/settings-window.png"
