#!/bin/sh
# install_test.sh SOURCE FOLDER DEMO: builds the library as it is installed, installs it into an empty prefix in FOLDER,
# and builds and runs two outside projects against it: one in C by pkg-config, one in C++ by CMake, shared and static,
# which works on the files that the program DEMO leaves.
set -eu
source=$1
here=$source/tests/install
work=$2
demo=$3
rm -rf "$work"
mkdir -p "$work"
cd "$work"

cmake -S "$source" -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARSIL32_TESTS=OFF -DTARSIL32_EXAMPLES=OFF \
    -DTARSIL32_TOOL=OFF >configure.log
cmake --build build -- --quiet
cmake --install build --prefix "$work/prefix" >install.log

pc=$(find prefix -name tarsil32.pc)
lib=$work/$(dirname "$(dirname "$pc")")
export PKG_CONFIG_PATH="$lib/pkgconfig" LD_LIBRARY_PATH="$lib"
cc -std=c99 -Wall -Wextra -Werror -o make_cities "$here/by_pkg_config/make_cities.c" $(pkg-config --cflags --libs tarsil32)
[ "$(./make_cities)" = "Zurich is in CH" ]

env -u LD_LIBRARY_PATH "$demo" "$source/examples/airports.csv" >demo.log
cmake -S "$here/by_cmake" -B outside -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >outside.log
cmake --build outside -- --quiet
cat >expected <<'END'
Ísafjörður Airport
Akureyri Airport
Egilsstaðir Airport
Húsavík Airport
Hornafjörður Airport
Reykjavik Airport
Reykjavik Keflavik
Siglufjörður Airport
Vestmannaeyjar Airport
END
for kind in shared static; do
    "outside/list_$kind" IS >found
    diff expected found
done
man_page=$(find prefix -name tsadd32.3)
[ -n "$man_page" ] || { echo "no manual page of tsadd32"; exit 1; }
echo "installed tree is good"
