#!/usr/bin/env bash
# Installs the build into a temporary prefix, then builds and runs an outside
# project against it twice: through find_package and through pkg-config.
set -euo pipefail
build=$1
src=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$src" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64:${LD_LIBRARY_PATH:-}" "$work/consumer/app"
if command -v pkg-config >/dev/null; then
  libdir=$(ls -d "$work"/prefix/lib*/pkgconfig | head -n1)
  flags=$(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs kestro)
  c++ -std=c++17 "$src/main.cpp" $flags -o "$work/app-pc"
  LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib64:${LD_LIBRARY_PATH:-}" "$work/app-pc"
fi
# Only exported names are visible: internal helpers stay hidden.
lib=$(ls "$work"/prefix/lib*/libkestro.so.* | head -n1)
if nm -D --defined-only "$lib" | grep -q 'PadToSector'; then
  echo "internal helper exported" >&2; exit 1
fi
