#!/usr/bin/env bash
# Installs the build into a temporary prefix and builds a program there as
# another project would: once with pkg-config, once with find_package. Both
# list the sample database; the installed tool finds its message module.
#
#   install_test.sh BUILD_DIRECTORY SOURCE_DIRECTORY
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libmergedb.so' | head -1)")
export PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
module=$(pkg-config --variable=messages_module mergedb)
[ -f "$module" ] || { echo "FAIL: pkg-config names no message module: '$module'"; exit 1; }
[ -L "$libdir/libmergedb.so" ] && [ -L "$libdir/libmergedb.so.0" ] || { echo "FAIL: no soname links"; exit 1; }

expected="contacts.doc: Name City Phone
contacts.txt: 1 2 3
contacts1.doc: Name City Phone"

# shellcheck disable=SC2046
cc -o "$work/by-pkg-config" "$source/examples/consumer/consumer.c" $(pkg-config --cflags --libs mergedb) -ldl
got=$("$work/by-pkg-config" "$module" "$source/examples/sample" | sort)
[ "$got" = "$expected" ] || { echo "FAIL: the pkg-config consumer printed: $got"; exit 1; }

cmake -S "$source/examples/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
got=$("$work/consumer/consumer" "$module" "$source/examples/sample" | sort)
[ "$got" = "$expected" ] || { echo "FAIL: the find_package consumer printed: $got"; exit 1; }

message=$(env -u LD_LIBRARY_PATH "$prefix/bin/mergedb" dump "$work/missing.txt" 2>&1 || true)
case "$message" in
  *"could not be opened"* | *"does not exist"* | *"no such"* | *"not found"*) ;;
  *) echo "FAIL: the installed tool said: $message"; exit 1 ;;
esac
case "$message" in
  *"message module"*) echo "FAIL: the installed tool did not find its message module: $message"; exit 1 ;;
esac
echo "installed, and built a consumer with pkg-config and with find_package"
