#!/usr/bin/env bash
# Fails when a text marked for translation has no translation in one of the
# languages, or a translation is kept for a text the sources no longer have.
# Usage: complete.sh LUPDATE SOURCE_DIR
set -euo pipefail
lupdate=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for ts in "$source"/resources/translations/*.ts; do
    cp "$ts" "$work/"
    "$lupdate" -silent -locations none "$source"/MacQuorin "$source"/MacQuorinFinder "$source"/updater \
        "$source"/resources/Main.ui -ts "$work/${ts##*/}"
    if grep -B2 -E 'type="(unfinished|vanished|obsolete)"' "$work/${ts##*/}"; then
        echo "FAIL: ${ts##*/} is not up to date with the sources (run lupdate, then translate)"
        exit 1
    fi
done
echo "PASS: every marked text is translated, and no translation is obsolete"
