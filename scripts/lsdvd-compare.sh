#!/usr/bin/env bash
# Compares what lsdvd reads from two DVD folders (titles, chapters, cells,
# playback times, audio and sub-picture streams, palettes).
#
#   scripts/lsdvd-compare.sh ORIGINAL REBUILT
#
# Exit 0 when lsdvd reports the same, 1 with a diff otherwise. After a kestro
# rebuild every title reads the same, its number within its title set
# included; with --library-rules a title whose number within its set is not 1
# differs (the library's title search table points every title at its set's
# first title; see the README's "Fields rewritten by design").
set -euo pipefail
a=${1:?usage: lsdvd-compare.sh ORIGINAL REBUILT}
b=${2:?usage: lsdvd-compare.sh ORIGINAL REBUILT}
command -v lsdvd >/dev/null || { echo "lsdvd-compare: lsdvd is missing" >&2; exit 3; }
view() { lsdvd -x "$1" 2>/dev/null | sed -n '/^Title/,$p'; }
if diff -u --label "$a" --label "$b" <(view "$a") <(view "$b"); then
  echo "lsdvd reads the same from both"
else
  exit 1
fi
