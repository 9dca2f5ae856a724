#!/bin/sh
# install.sh BUILD: the library of the build tree BUILD, installed into an empty prefix, serves its users and needs no
# other library than the runtimes.
set -eu
build=$(cd "$1" && pwd)
work=$build/tests/package/install
rm -rf "$work"
mkdir -p "$work"
"${CMAKE:-cmake}" --install "$build" --prefix "$work/prefix"

others=$(objdump -p "$work/prefix/lib/libtavikstat.so" | awk '$1 == "NEEDED" { print $2 }' |
    grep -Ev '^(libc|libm|libstdc\+\+|libgcc_s|libgomp|ld-linux-x86-64)\.so' || true)
[ -z "$others" ] || {
    echo "the library needs $others"
    exit 1
}
sh "$(dirname "$0")/use.sh" "$work/prefix" "$work"
