#!/usr/bin/env bash
# Counts non-blank lines that are not only a comment, in shipped code and in
# test code, and prints their ratio (test code should stay at most 0.40 of the
# shipped code, aiming at a third).
# Usage: scripts/count-lines.sh [-v]   (-v lists every file's count)
set -euo pipefail
cd "$(dirname "$0")/.."

# Shipped: the library, its tools and bindings. Test code: tests/, fuzz/, any
# tests/ folder elsewhere, and harnesses kept in scripts/.
shipped_dirs=(include src tools python)
test_dirs=(tests fuzz)
test_harnesses=(scripts/soak.sh)

files_in() {
    local d
    for d in "$@"; do
        [ -e "$d" ] && find "$d" -type f \( -name '*.h' -o -name '*.cpp' -o -name '*.py' \
            -o -name '*.sh' -o -name '*.lua' \)
    done | sort
}

count() {
    awk '
        FNR == 1 { block = 0; ext = FILENAME; sub(/.*\./, "", ext) }
        {
            line = $0
            gsub(/^[ \t]+|[ \t\r]+$/, "", line)
            if (line == "") next
            if (ext == "h" || ext == "cpp") {
                if (block) { if (line ~ /\*\//) block = 0; next }
                if (line ~ /^\/\*/) { if (line !~ /\*\//) block = 1; next }
                if (line ~ /^\/\//) next
            } else if (ext == "lua") {
                if (line ~ /^--/) next
            } else if (line ~ /^#/) next
            n[FILENAME]++; total++
        }
        END {
            if (verbose) for (f in n) printf "%6d %s\n", n[f], f > "/dev/stderr"
            print total + 0
        }' verbose="$verbose" "$@" /dev/null
}

verbose=""
[ "${1:-}" = -v ] && verbose=1
mapfile -t shipped < <(files_in "${shipped_dirs[@]}" | grep -v '/tests/' || true)
mapfile -t tests < <({ files_in "${test_dirs[@]}" "${test_harnesses[@]}";
    files_in "${shipped_dirs[@]}" | grep '/tests/'; } | sort -u)
s=$(count "${shipped[@]}")
t=$(count "${tests[@]}")
awk -v s="$s" -v t="$t" 'BEGIN { printf "shipped %d, test %d, ratio %.2f\n", s, t, t / s }'
