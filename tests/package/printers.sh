#!/usr/bin/env bash
# How gdb shows the objects of a program: printers.sh PROGRAM PRINTERS.
set -euo pipefail
command -v gdb >/dev/null || { echo "skipped: gdb is not installed"; exit 77; }

shown=$(LC_ALL=C.UTF-8 gdb -nx -batch -ex "source $2" -ex "break stopHere" -ex run -ex up -ex "print pointer" -ex "print none" -ex "print text" \
    -ex "print empty" -ex "print properties" -ex "print wide" -ex "print date" -ex "set print elements 2" -ex "print text" "$1" 2>&1)
while IFS= read -r line; do
    grep -qF -- "$line" <<<"$shown" || { printf '%s\n\ngdb does not show: %s\n' "$shown" "$line"; exit 1; }
done <<'END'
$1 = KestSmartPointer, 2 references = {
number = 7
$2 = KestSmartPointer, null
$3 = "aé€\"\\x00\\xd8"
$4 = ""
$5 = KestProperties with 39 names = {[name0] = "value0", [name2] = "value2",
[name39] = "value39"}
$6 = KestProperties with 1 name = {[k] = "aé€
$7 = 2024-02-29 12:34:56 local time
$8 = "aé"...
END
