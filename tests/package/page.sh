#!/usr/bin/env bash
# Does in an empty folder beside PREFIX what a page of the documentation says: page.sh PAGE PREFIX COMPILER SOURCES. A block is
#   ```LANGUAGE NAME   a file of that name
#   ```sh              commands that succeed
#   ```console         commands after "$ ", each with its output. Times and the numbers of processes and threads may differ
set -uo pipefail
page=$(realpath "$1") prefix=$2 work=$(mktemp -d "$2.page.XXXXXX")
trap '{ kill -- -"${script-}"; kestsc stop-all --force; } >/dev/null 2>&1; rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/home" && ln -s "$3" "$work/bin/c++" && ln -s "$prefix" "$work/home/kest" && cd "$work/home" || exit 1

export CCACHE_DIR=${CCACHE_DIR:-$(ccache -k cache_dir 2>/dev/null)} CCACHE_BASEDIR=$work CCACHE_NOHASHDIR=1
export HOME=$PWD PATH=$work/bin:$prefix/bin:$PATH KEST_SOURCES=$4 CXX=$3 LC_ALL=C.UTF-8 TZ=UTC
library=$(dirname "$(find "$prefix/" -name libkestsupport.so)")
export CPATH=$prefix/include LIBRARY_PATH=$library LD_LIBRARY_PATH=$library
unset KEST_STATE_DIR XDG_STATE_HOME NOTIFY_SOCKET KEST_SERVICE_TIMEOUT
umask 022
[ "$(id -u)" != 0 ] || export KEST_STATE_DIR=$work/state

awk -v expected="$work/expected" '
    /^```/ && inside { if (file) print "END_OF_FILE"; if (shell) print "set +e; } >>\"$0.log\" 2>&1"; inside = 0; next }
    /^```/ {
        inside = 1; file = $2; shell = $1 == "```sh"; console = $1 == "```console"
        if (file) print "mkdir -p \"$(dirname " file ")\"; cat >" file " <<\047END_OF_FILE\047"
        if (shell) print "{ set -e"
        next
    }
    inside && console {
        print >expected
        if (!sub(/^\$ /, "")) next
        command = $0; gsub(/\047/, "\047\\\047\047", command); print "echo \047$ " command "\047"
    }
    inside && (file || shell || console) { print }
    END { print "exit 0" }
' "$page" >"$work/script"
[ -s "$work/expected" ] || { echo "$page has no commands with their output"; exit 1; }

# What differs between two runs.
same() {
    sed -E "s,$HOME,/home/user,g; s,$prefix,/home/user/kest,g; s/[0-9]{8}_[0-9:]{8}/TIME/; s/\[[0-9]+\]/[ID]/; s/^(Process +)[0-9]+/\1ID/
            s/[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8} \(.*ago\)/TIME/"
}
set -m  # the script and what it leaves have a process group of their own
bash "$work/script" >"$work/transcript" 2>&1 </dev/null &
script=$!
wait "$script" || { echo "$page: a command failed"; cat "$work"/{transcript,script.log} 2>/dev/null; exit 1; }
diff -u --label "$page" --label "what happened" <(same <"$work/expected") <(same <"$work/transcript")
