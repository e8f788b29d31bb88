#!/usr/bin/env bash
# Builds the Debian package, checks its layout and metadata, and starts the
# launcher from the unpacked tree to see that it finds its bundle under /usr.
# Usage: package.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

command -v dpkg-deb >/dev/null || { echo "SKIP: dpkg-deb is not installed"; exit 77; }
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >/dev/null
deb=$(ls "$work"/out/zelna-quorin_*.deb)
contents=$(dpkg-deb -c "$deb" | awk '{ print $6 }')
for path in ./usr/bin/zelna-quorin ./usr/share/zelna-quorin/Info.plist ./usr/share/zelna-quorin/Main.ui \
    ./usr/share/applications/com.zelna.Quorin.desktop ./usr/share/metainfo/com.zelna.Quorin.metainfo.xml \
    ./usr/share/icons/hicolor/scalable/apps/com.zelna.Quorin.svg \
    ./usr/share/icons/hicolor/48x48/apps/com.zelna.Quorin.png \
    ./usr/share/icons/hicolor/256x256/apps/com.zelna.Quorin.png; do
    grep -qx -- "$path" <<< "$contents" || { echo "FAIL: $path is not in the package"; exit 1; }
done
depends=$(dpkg-deb -f "$deb" Depends)
for package in libqt6widgets6 libqt6uitools6 libplist3 qt6-qpa-plugins; do
    grep -q "$package" <<< "$depends" || { echo "FAIL: the package does not depend on $package"; exit 1; }
done

if command -v desktop-file-validate >/dev/null; then
    desktop-file-validate "$source/packaging/com.zelna.Quorin.desktop"
fi
if command -v appstreamcli >/dev/null; then
    appstreamcli validate --no-net "$build/packaging/com.zelna.Quorin.metainfo.xml" >/dev/null
fi

# The unpacked tree stands in for /usr: the launcher finds its bundle from its own place.
dpkg-deb -x "$deb" "$work/unpacked"
home=$work/home
mkdir -p "$home/runtime" && chmod 700 "$home/runtime"
HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_RUNTIME_DIR=$home/runtime \
    QT_QPA_PLATFORM=offscreen QT_LOGGING_RULES="zelna.launcher.debug=true" \
    "$work/unpacked/usr/bin/zelna-quorin" > "$work/log" 2>&1 &
pid=$!
for _ in $(seq 100); do
    grep -q "window shown: MainWindow" "$work/log" && break
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
done
kill "$pid" 2>/dev/null || true
grep -q "window shown: MainWindow" "$work/log" || { echo "FAIL: the installed launcher showed no window"; cat "$work/log"; exit 1; }
echo "PASS: package layout, dependencies and metadata; the installed launcher runs from its tree"
