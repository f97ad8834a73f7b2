#!/bin/bash
# An installed copy serves a program that only says find_package(qrftpcore): the example of the README, built with CMake
# and, without it, with pkg-config's flags.
source "$(dirname "$0")/common.sh" "$1" proftpd
build=$2 source=$3
cmake --install "$build" --prefix "$work/prefix" >/dev/null
sed -n '/^```cpp$/,/^```$/{//!p}' "$source/README.md" >example.cpp
[[ $(wc -l <example.cpp) -le 14 ]] || fail "the example has grown"
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(example CXX)
find_package(qrftpcore CONFIG REQUIRED)
add_executable(example example.cpp)
target_link_libraries(example qrftpcore::qrftpcore)
END
flags=$(grep -oP '^CMAKE_CXX_FLAGS:STRING=\K.*' "$build/CMakeCache.txt" || true)
cmake -S . -B out -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_FLAGS="$flags" >log 2>&1 && cmake --build out >>log 2>&1 || fail "$(<log)"
echo report >"$HOME_DIR/report.txt" && chmod 644 "$HOME_DIR/report.txt"
[[ $(out/example localhost "$FTP_PORT" "$USER" "$PASSWORD" "$CA_FILE") == "$HOME_DIR" && $(<report.txt) == report ]]
{ out/example localhost "$FTP_PORT" "$USER" wrong "$CA_FILE" || true; } 2>&1 | grep -q refused
export PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name qrftpcore.pc)")
# shellcheck disable=SC2046,SC2086
c++ $flags example.cpp -o example $(pkg-config --cflags --libs qrftpcore) "-Wl,-rpath,$(pkg-config --variable=libdir qrftpcore)"
rm report.txt
./example localhost "$FTP_PORT" "$USER" "$PASSWORD" "$CA_FILE" >/dev/null && [[ $(<report.txt) == report ]]
