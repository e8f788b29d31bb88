#!/usr/bin/env bash
# Builds the Debian package and checks its layout and metadata. The launcher
# finds its bundle the same way from any tree of this layout, which the
# launcher tests build in a temporary folder.
# Usage: package.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for tool in dpkg-deb lintian; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >/dev/null
deb=$(ls "$work"/out/zelna-quorin_*.deb)
dbgsym=$(ls "$work"/out/zelna-quorin-dbgsym_*.ddeb) # the symbols lintian wants out of the program
dpkg-deb -c "$dbgsym" | grep '/usr/lib/debug/\.build-id/.*\.debug$' >/dev/null || { echo "FAIL: no symbols in $dbgsym"; exit 1; }
contents=$(dpkg-deb -c "$deb" | awk '{ print $6 }')
share=./usr/share
for path in ./usr/bin/zelna-quorin ./usr/lib/zelna-quorin/plugins/libzq-{feed-download,ui-reader,windows}.so $share/zelna-quorin/{Info.plist,Main.ui,translations/zelna-quorin_{de,fr}.qm} \
    $share/{applications/com.zelna.Quorin.desktop,metainfo/com.zelna.Quorin.metainfo.xml,man/man1/zelna-quorin.1.gz} \
    $share/icons/hicolor/{scalable/apps/com.zelna.Quorin.svg,{48x48,256x256}/apps/com.zelna.Quorin.png} \
    ./usr/lib/systemd/user/zelna-quorin-check.{service,timer} $share/doc/zelna-quorin/copyright; do
    grep -qx -- "$path" <<< "$contents" || { echo "FAIL: $path is not in the package"; exit 1; }
done
# What it depends on is proven where it is installed into a pristine root (tests/packaging/installed.sh).

if command -v desktop-file-validate >/dev/null; then
    desktop-file-validate "$source/packaging/com.zelna.Quorin.desktop"
fi
if command -v systemd-analyze >/dev/null; then # the units name the program where it is installed: here, and in /usr
    cmake --install "$build" --prefix "$work/local" >/dev/null
    systemd-analyze verify --man=no "$work"/local/lib/systemd/user/*
    dpkg-deb --fsys-tarfile "$deb" | tar -xO ./usr/lib/systemd/user/zelna-quorin-check.service \
        | grep -x 'ExecStart=/usr/bin/zelna-quorin checkVersion' >/dev/null || { echo "FAIL: the packaged unit does not start /usr/bin/zelna-quorin"; exit 1; }
fi
if command -v appstreamcli >/dev/null; then
    appstreamcli validate --no-net "$build/packaging/com.zelna.Quorin.metainfo.xml" >/dev/null
fi

# Debian's own checks: any error or warning fails. Its caches go into our folder: it leaves them behind.
TMPDIR=$work lintian --fail-on error,warning "$deb" "$dbgsym" 2> >(grep -v 'root privileges' >&2)

echo "PASS: package layout, dependencies, metadata and lintian"
