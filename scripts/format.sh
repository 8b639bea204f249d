#!/usr/bin/env bash
# Lays out every C++ file of the project by .clang-format.
#   scripts/format.sh          rewrite the files in place
#   scripts/format.sh --check  list the files that differ and fail (CI)
set -euo pipefail
cd "$(dirname "$0")/.."
fmt=${CLANG_FORMAT:-clang-format}
if ! command -v "$fmt" >/dev/null; then
  echo "format.sh: $fmt not found (scripts/setup.sh installs it)" >&2
  exit 2
fi
mapfile -t files < <(git ls-files '*.cpp' '*.h' 2>/dev/null || find include src tools tests bench fuzz examples -name '*.cpp' -o -name '*.h')
if [ "${1:-}" = --check ]; then
  bad=()
  for f in "${files[@]}"; do
    "$fmt" --style=file "$f" | cmp -s - "$f" || bad+=("$f")
  done
  if [ ${#bad[@]} -gt 0 ]; then
    printf '%s\n' "${bad[@]}" | sed 's/^/not laid out by .clang-format: /' >&2
    echo "format.sh: run scripts/format.sh to fix ${#bad[@]} file(s)" >&2
    exit 1
  fi
  echo "format.sh: ${#files[@]} files follow .clang-format"
else
  "$fmt" --style=file -i "${files[@]}"
fi
