#!/usr/bin/env bash
# The main job on the bundled sample, from a fresh machine:
#   1. installs what the build needs and builds everything (library, command,
#      tests; --tool-only builds the library and the command alone);
#   2. assembles the sample's IFO files from examples/sample/*.ini, next to
#      empty VOB files of the sizes the sample records (the assembly
#      measures the VOB files next to its output);
#   3. reports them;
#   4. disassembles them again and shows that the sources come back
#      unchanged (the sample is a fixed point of disasm and asm).
#
#   scripts/demo.sh [--no-setup] [--tool-only] [WORKDIR]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
setup=1
target=all
while [ $# -gt 0 ]; do
  case "$1" in
    --no-setup) setup=0 ;;
    --tool-only) target=kestro_cli ;;
    *) break ;;
  esac
  shift
done
work=${1:-$(mktemp -d)}

if [ $setup = 1 ]; then scripts/setup.sh; fi
echo "== build ($target)"
cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)" --target "$target" >/dev/null
kestro=$root/build/tools/kestro
sample=$root/examples/sample
"$kestro" --version

disc=$work/disc/VIDEO_TS
rm -rf "$work/disc" "$work/again"
mkdir -p "$disc" "$work/again"
echo "== VOB files of the recorded sizes (content is not needed to lay out an IFO file)"
while read -r name bytes; do
  [ -z "$name" ] && continue
  truncate -s "$bytes" "$disc/$name"
  echo "   $name $bytes bytes"
done < "$sample/vobs.txt"

echo "== assemble"
for src in "$sample"/*.ini; do
  name=$(basename "$src" .ini).IFO
  "$kestro" asm "$src" -o "$disc/$name"
  echo "   $name $(stat -c %s "$disc/$name") bytes (+ $(basename "$name" .IFO).BUP)"
done

echo "== report (first lines of each table; full report in $work/report.txt)"
"$kestro" report "$work/disc" > "$work/report.txt"
awk '/^(====|----)/ { print; n = 0; next } n < 3 { print "   " $0; n++ }' "$work/report.txt"

if command -v lsdvd >/dev/null; then
  echo "== lsdvd reads the assembled disc"
  lsdvd -c "$work/disc" 2>/dev/null | sed -n '/^Title/,$p' | sed 's/^/   /'
fi

echo "== disassemble again and compare with the sample sources"
status=0
for src in "$sample"/*.ini; do
  base=$(basename "$src" .ini)
  "$kestro" disasm "$disc/$base.IFO" -o "$work/again/$base.ini"
  if cmp -s "$src" "$work/again/$base.ini"; then
    echo "   $base.ini: identical"
  else
    echo "   $base.ini: DIFFERS"; diff -u "$src" "$work/again/$base.ini" | head -20; status=1
  fi
done
if [ $status = 0 ]; then echo "== fixed point: source -> IFO -> source gives the same source"; fi
exit $status
