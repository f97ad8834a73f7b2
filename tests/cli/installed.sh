#!/bin/bash
# An installed copy serves programs that only say find_package(qrftpcore): the examples of the README, built with CMake
# and, without it, with pkg-config's flags.
source "$(dirname "$0")/common.sh" "$1" proftpd
build=$2 source=$3
cmake --install "$build" --prefix "$work/prefix" >/dev/null
awk '/^```cpp$/ { file = "example" ++count ".cpp"; next } /^```$/ { file = "" } file { print > file }' "$source/README.md"
[[ $(cat example?.cpp | wc -l) -le 26 ]] || fail "the examples have grown"
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(example CXX)
find_package(qrftpcore CONFIG REQUIRED)
add_executable(client example1.cpp)
target_link_libraries(client qrftpcore::client)
add_executable(core example2.cpp)
target_link_libraries(core qrftpcore::qrftpcore)
END
flags=$(grep -oP '^CMAKE_CXX_FLAGS:STRING=\K.*' "$build/CMakeCache.txt" || true)
cmake -S . -B out -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_FLAGS="$flags" >log 2>&1 && cmake --build out >>log 2>&1 || fail "$(<log)"
echo report >"$HOME_DIR/report.txt" && chmod 644 "$HOME_DIR/report.txt"
client=("ftp://$USER@localhost:$FTP_PORT" "$PASSWORD" "$CA_FILE") core=(localhost "$FTP_PORT" "$USER" "$PASSWORD" "$CA_FILE")
try() { # COMMAND…: prints this, and fetches the report
    rm -f report.txt
    "${@:2}" >output && grep -qx "$1" output && [[ $(<report.txt) == report ]] || fail "${*:2}"
}
try report.txt out/client "${client[@]}"
try "$HOME_DIR" out/core "${core[@]}"
{ out/client "${client[0]}" wrong "$CA_FILE" || true; } 2>&1 | grep -q refused
{ out/core "${core[@]:0:3}" wrong "$CA_FILE" || true; } 2>&1 | grep -q refused
export PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name qrftpcore.pc)")
for name in qrftp-client qrftpcore; do
    # shellcheck disable=SC2046,SC2086
    c++ $flags -std=c++20 "example$([[ $name == qrftpcore ]] && echo 2 || echo 1).cpp" -o "$name" $(pkg-config --cflags --libs $name) \
        "-Wl,-rpath,$(pkg-config --variable=libdir $name)"
done
try report.txt ./qrftp-client "${client[@]}"
try "$HOME_DIR" ./qrftpcore "${core[@]}"
