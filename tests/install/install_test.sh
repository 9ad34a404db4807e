#!/bin/sh
# install_test.sh SOURCE FOLDER: builds the library as it is installed, installs it into an empty prefix in FOLDER, and
# builds and runs examples as outside projects do: one in C by pkg-config, one in C++ by CMake, shared and static.
set -eu
source=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"

cmake -S "$source" -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARSIL32_TESTS=OFF -DTARSIL32_EXAMPLES=OFF \
    -DTARSIL32_TOOL=OFF >configure.log
cmake --build build -- --quiet
cmake --install build --prefix "$work/prefix" >install.log

pc=$(find prefix -name tarsil32.pc)
export PKG_CONFIG_PATH="$work/$(dirname "$pc")"
cp "$source/examples/c_first.c" .
cc -std=c99 -Wall -Wextra -Werror -o c_first c_first.c $(pkg-config --cflags --libs tarsil32)
LD_LIBRARY_PATH="$(dirname "$PKG_CONFIG_PATH")" ./c_first

cmake -S "$source/tests/install/by_cmake" -B outside -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >outside.log
cmake --build outside -- --quiet
for kind in shared static; do
    rm -f notes.*
    "outside/walk_$kind" | grep -q 'Ada: The engine weaves patterns.'
done
man_page=$(find prefix -name tsadd32.3)
[ -n "$man_page" ] || { echo "no manual page of tsadd32"; exit 1; }
echo "installed tree is good"
