#!/bin/sh
# by_pkg_config.sh COMPILER LIBRARY_DIR SOURCE PROGRAM: builds PROGRAM by what pkg-config says, and runs it.
set -eu
export PKG_CONFIG_PATH="$2/pkgconfig"
# shellcheck disable=SC2046  # the flags are meant to be split
"$1" -std=c++20 -fPIC -o "$4" "$3" $(pkg-config --cflags --libs NvxQtCommon) -Wl,-rpath,"$2"
"$4"
