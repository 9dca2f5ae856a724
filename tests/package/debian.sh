#!/bin/sh
# debian.sh BUILD: the Debian package that is made from the build tree BUILD serves its users. It is unpacked, not
# installed.
set -eu
build=$(cd "$1" && pwd)
work=$build/debian
rm -rf "$work"
mkdir -p "$work"
cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 || {
    cat "$work/cpack.log"
    exit 1
}
package=$(find "$work" -maxdepth 1 -name '*.deb')
dpkg-deb --field "$package" Package Version Architecture Depends
dpkg-deb --contents "$package" | awk '{ print $1, $6, $7, $8 }'
dpkg-deb -x "$package" "$work/unpacked"
sh "$(dirname "$0")/use.sh" "$work/unpacked/usr" "$work"
