#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Usage: probe-features.sh TABLE KERNEL_SOURCE. Writes a C header with the features that the kernel's
# headers show.
set -eu
table=$1 include=$2/include

echo "/* Made by $(basename "$0") from the target kernel's headers. */"
echo "#pragma once"
while IFS='|' read -r macro headers pattern; do
    macro=$(echo "$macro" | tr -d ' ')
    case $macro in '' | \#*) continue ;; esac
    for header in $(echo "$headers" | tr ',' ' '); do
        [ -e "$include/$header" ] || continue
        if tr -s '[:space:]' ' ' <"$include/$header" | grep -qE "${pattern# }"; then
            echo "#define $macro 1"
        else
            echo "/* $macro: not in $header */"
        fi
        break
    done
done <<END
$(grep -v '^#' "$table")
END
