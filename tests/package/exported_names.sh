#!/bin/sh
# exported_names.sh LIBRARY FOLDER: the library exports the names that FOLDER's tavikstat.h and internal.h declare with
# TAVIK_API, each under its header's symbol version, and nothing else.
set -eu
library=$1
headers=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

declared() { # HEADER VERSION
    sed -nE "s/^(extern )?TAVIK_API [^(;[]*[ *]([A-Za-z0-9_]+)[(;[].*/\2@@$2/p" "$headers/$1"
}
{
    declared tavikstat.h TAVIKSTAT_1.0
    declared internal.h TAVIKSTAT_PRIVATE
} | sort >"$work/declared"

# The version nodes themselves are absolute symbols.
nm --dynamic --defined-only --with-symbol-versions "$library" | awk '$2 != "A" { print $3 }' | sort >"$work/exported"

[ -s "$work/declared" ]
diff "$work/declared" "$work/exported" || {
    echo "(< declared only, > exported only)"
    exit 1
}
