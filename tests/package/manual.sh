#!/usr/bin/env bash
# Each command and option in a program's help has an entry in its manual page, and the page has no fault: manual.sh PROGRAM PAGE.
set -euo pipefail
export LC_ALL=C

entries=$(grep -A1 '^\.TP' "$2" | sed 's/\\-/-/g; s/\\f.//g; s/"//g; s/ ,/,/g')
count=0
for word in $("$1" --help | sed -n '/^Examples:/,/^$/d; s/^  *\(-[a-zA-Z], \)\{0,1\}\(--[a-z-]*\).*/\2/p; s/^  \([a-z][a-z-]*\) .*/\1/p'); do
    grep -qE -- "(^|[ ,])$word( |,|$)" <<<"$entries" || { echo "$2 has no entry for $word"; exit 1; }
    count=$((count + 1))
done
((count >= 10)) || { echo "the help of $1 names only $count commands and options"; exit 1; }

command -v mandoc >/dev/null || { echo "skipped: no mandoc to check the page with"; exit 77; }
mandoc -T lint -W style "$2"
