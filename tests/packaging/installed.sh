#!/usr/bin/env bash
# The package as a user meets it, run as root in a pristine Debian 12 root by
# scripts/cleanroom: apt installs it with what it needs, it starts from its
# desktop entry on a virtual display and shows its window, a check against a
# local feed with no newer version ends with 0, and removal leaves nothing.
# Usage: installed.sh PACKAGE.deb OUTPUT_DIR
set -euo pipefail
deb=$(realpath "$1") output=$(realpath "$2") screenshot=$(realpath "$(dirname "$0")/../../scripts/lib/screenshot.sh")
export DEBIAN_FRONTEND=noninteractive
fail() { echo "FAIL: $*"; exit 1; }

apt-get update -qq
apt-get install -y -qq "$deb" >/dev/null
missing=$(ldd /usr/bin/zelna-quorin /usr/lib/zelna-quorin/plugins/*.so /usr/lib/*/qt6/plugins/platforms/libqxcb.so | grep 'not found' || true)
[ -z "$missing" ] || fail "libraries the package does not pull in: $missing"
files=$(dpkg-query -L zelna-quorin)
! command -v systemd-analyze >/dev/null || systemd-analyze verify --man=no /usr/lib/systemd/user/zelna-quorin-check.*
apt-get install -y -qq xvfb xauth x11-utils imagemagick >/dev/null # this test's own tools, afterwards

home=$(mktemp -d) && mkdir -m 700 "$home/runtime" && mkdir "$home/build" && cd "$home"
export HOME=$home XDG_RUNTIME_DIR=$home/runtime
# As the desktop starts it: the entry's Exec line without its field codes.
read -ra command <<< "$(sed -n 's/^Exec=//p' /usr/share/applications/com.zelna.Quorin.desktop | sed 's/ %[a-zA-Z]//g')"
xvfb-run -a -s "-screen 0 1280x800x24" /bin/bash "$screenshot" "${command[@]}"
[ -s build/screenshot.png ] && cp build/screenshot.png "$output/installed-window.png"

sed -i "s|https://[^<]*appcast.xml|file://$home/appcast.xml|" /usr/share/zelna-quorin/Info.plist
version=$(dpkg-query -W -f '${Version}' zelna-quorin)
echo "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><item>\
<sparkle:version>$version</sparkle:version></item></channel></rss>" > appcast.xml
status=0 && timeout 60 zelna-quorin checkVersion || status=$?
[ "$status" -eq 0 ] || fail "checkVersion against a feed with no newer version ended with $status"

apt-get remove -y -qq zelna-quorin >/dev/null
left=$(while read -r path; do [ -d "$path" ] || [ ! -e "$path" ] || echo "$path"; done <<< "$files")
[ -z "$left" ] || fail "left behind by apt-get remove: $left"
echo "PASS: installed with its dependencies, window shown, check ended with 0, removed without a trace"
