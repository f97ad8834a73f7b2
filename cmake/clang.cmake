# The clang of Debian 12 or 13: by its version, since neither release calls it clang++ unless asked to.
find_program(CMAKE_CXX_COMPILER NAMES clang++-16 clang++-19 clang++ REQUIRED)
