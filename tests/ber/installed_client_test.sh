#!/bin/sh
# Installs the build into a temporary prefix, then builds the C client
# against the installed tree only, as its users do, and runs it.
# Arguments: cmake, build directory, library directory below the prefix,
# client source, extra compiler flags.
set -eu
cmake=$1 build=$2 libdir=$3 client=$4 extra=$5

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
"$cmake" --install "$build" --prefix "$tmp/prefix" >/dev/null

# The client lives outside the prefix, as a program of its own would, and
# finds nothing of the build tree: no catalogue variable, no home.
mkdir "$tmp/client"
export PKG_CONFIG_PATH="$tmp/prefix/$libdir/pkgconfig"
# shellcheck disable=SC2046,SC2086
cc -std=c11 -pedantic -Wall -Wextra -Werror $extra -o "$tmp/client/client" "$client" \
   $(pkg-config --cflags --libs quillomat)
env -u VSX_LDAP_MESGDIR -u VESTRA_HOME LD_LIBRARY_PATH="$tmp/prefix/$libdir" "$tmp/client/client"
