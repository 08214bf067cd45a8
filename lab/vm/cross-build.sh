#!/bin/bash
# cross-build.sh [--tests] FOLDER [CMAKE-OPTION...] - build what the MIPS machine needs: daemon, platform library,
# stand-ins, programs of the lab; with --tests also those that run inside it.
#
# The libraries of the target come from the same cache as the machine. Options are for the first configuration.
# Programs are in FOLDER/bin, libraries in FOLDER/lib. Needs g++-mipsel-linux-gnu.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source=$LAB_VM_HOME/../..
parts="compat/all libsys/all src/all ctl/all lab/all seam/plan/all planned-world"
tests=; [ "${1:-}" != --tests ] || { tests=1; shift; }
case ${1:-} in
-h | --help) echo "usage: cross-build.sh [--tests] FOLDER [CMAKE-OPTION...]"; exit 0 ;;
"" | -*) die "usage: cross-build.sh [--tests] FOLDER [CMAKE-OPTION...]" ;;
esac
folder=$1; shift
mkdir -p "$folder" "$LAB_VM_CACHE"
folder=$(cd "$folder" && pwd)
(flock 9; "$LAB_VM_HOME/fetch.sh" sysroot-mipsel) 9> "$LAB_VM_CACHE/.lock"

options=(-G Ninja -DCMAKE_BUILD_TYPE=Release "-DCMAKE_TOOLCHAIN_FILE=$source/cmake/mipsel.cmake" -DIVARODE_STANDINS=ON
         "-DMIPSEL_SYSROOT=$LAB_VM_CACHE/root/sysroot-mipsel" "$@")
if [ -n "$tests" ]; then
    googletest=$folder/googletest
    if [ ! -e "$googletest/lib/cmake/GTest/GTestConfig.cmake" ]; then
        cmake -S /usr/src/googletest -B "$folder/googletest-build" "${options[@]}" -Wno-dev --no-warn-unused-cli \
            "-DCMAKE_INSTALL_PREFIX=$googletest" -DCMAKE_INSTALL_LIBDIR=lib
        cmake --build "$folder/googletest-build" --parallel --target install
    fi
    options+=(-DIVARODE_TESTS=ON -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "-DGTest_DIR=$googletest/lib/cmake/GTest" -DFUZZ_JSON_C_INCLUDE_DIR=/usr/include)
    parts="$parts contract_test short-sleep hostile-neighbour"
fi
if [ -n "$tests" ] || [ ! -e "$folder/CMakeCache.txt" ]; then
    cmake --no-warn-unused-cli -S "$source" -B "$folder" "${options[@]}"
fi
# shellcheck disable=SC2086  # names of targets
cmake --build "$folder" --parallel --target $parts
