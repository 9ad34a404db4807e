#!/bin/sh
# check_needs.sh LIBRARY: the shared library (one built without sanitizers) has its right name, and the C library is
# all that it needs, above all no C++ runtime.
set -eu
library=$1
dynamic=$(LC_ALL=C readelf -dW "$library")
failed=0

soname=$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = libTARSIL32.so.2 ] || { echo "its name is '$soname', not libTARSIL32.so.2"; failed=1; }

needed=$(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort | tr '\n' ' ')
case $needed in
"libc.so.6 " | "libc.musl-"*".so.1 ") ;;
*) echo "it needs: '$needed', not the C library alone"; failed=1 ;;
esac

# Names of the C++ runtime that it asks for; __cxa_finalize is the C library's own.
if LC_ALL=C nm -D --undefined-only "$library" | awk '{ print $NF }' |
    grep -E '^(_Z|__cxa_|__gxx_|_Unwind_)' | grep -v '^__cxa_finalize'; then
    echo "these come from the C++ runtime"
    failed=1
fi
exit $failed
