#!/bin/sh
# use.sh PREFIX WORK: C and C++ programs find the library that is installed in PREFIX through pkg-config and through
# CMake, compile without a warning, and run. WORK is a folder for what is made.
set -eu
prefix=$1
work=$2
consumer=$(dirname "$0")/consumer
: "${CC:=cc}" "${CXX:=c++}" "${CMAKE:=cmake}"
export CC CXX
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
TAVIKERRPATH=$(pkg-config --variable=errpath tavikstat)
export TAVIKERRPATH
warnings="-Wall -Wextra -Wpedantic -Werror"
# The folder of a library outside the system's is written into the programs.
run_path="-Wl,-rpath,$(pkg-config --variable=libdir tavikstat)"

# shellcheck disable=SC2046,SC2086
{
    "$CC" -std=c11 $warnings $(pkg-config --cflags tavikstat) "$consumer/consumer.c" \
        -o "$work/consumer_c" $(pkg-config --libs tavikstat) "$run_path"
    "$CXX" -std=c++17 $warnings $(pkg-config --cflags tavikstat) "$consumer/consumer.cpp" \
        -o "$work/consumer_cpp" $(pkg-config --libs tavikstat) "$run_path"
}
"$work/consumer_c"
"$work/consumer_cpp"

"$CMAKE" -G Ninja -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" >"$work/cmake.log"
"$CMAKE" --build "$work/cmake" >>"$work/cmake.log"
"$work/cmake/consumer_c"
"$work/cmake/consumer_cpp"
