#!/bin/sh
# Checks that C++ sources follow .clang-format (Debian's clang-format), without changing them.
#   scripts/check-format.sh            every C++ file of the tree (tracked and new)
#   scripts/check-format.sh REVISION   the C++ files changed since REVISION (and not committed)
# Exit status 1 lists the files to run `clang-format -i` on.
set -e
cd "$(dirname "$0")/.."
if [ $# -gt 0 ]; then
    files=$( (git diff --name-only --diff-filter=ACMR "$1" -- '*.cpp' '*.h';
              git ls-files --others --exclude-standard -- '*.cpp' '*.h') | sort -u)
else
    files=$(git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h' | sort -u)
fi
[ -z "$files" ] && { echo "no C++ files to check"; exit 0; }
bad=""
for file in $files; do
    [ -f "$file" ] || continue
    if ! clang-format --dry-run -Werror "$file" >/dev/null 2>&1; then
        bad="$bad $file"
    fi
done
if [ -n "$bad" ]; then
    echo "not formatted (run clang-format -i):$bad" >&2
    exit 1
fi
echo "$(echo "$files" | wc -l) C++ files follow .clang-format"
