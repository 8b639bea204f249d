#!/usr/bin/env bash
# Regenerates examples/sample from a freshly authored disc: authors the test
# disc, takes it once through kestro rebuild (so that the sources are at the
# fixed point of disasm and asm), disassembles every rebuilt IFO file into
# examples/sample/<NAME>.ini and records the VOB sizes in vobs.txt.
#
#   scripts/make-sample.sh KESTRO_BINARY
set -euo pipefail
kestro=${1:?usage: make-sample.sh KESTRO_BINARY}
kestro=$(cd "$(dirname "$kestro")" && pwd)/$(basename "$kestro")
cd "$(dirname "$0")/.."
sample=$(pwd)/examples/sample
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
scripts/make-test-disc.sh "$work/disc" 4
"$kestro" rebuild "$work/disc" -o "$work/rebuilt" --copy-vobs -q
rm -rf "$sample"
mkdir -p "$sample"
: > "$sample/vobs.txt"
for f in "$work/rebuilt/VIDEO_TS"/*; do
  name=$(basename "$f")
  case "$name" in
    *.IFO) "$kestro" disasm "$f" -o "$sample/${name%.IFO}.ini" ;;
    *.VOB) echo "$name $(stat -c %s "$f")" >> "$sample/vobs.txt" ;;
  esac
done
ls -la "$sample"
