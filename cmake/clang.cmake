# The compiler of the presets that take clang: Debian 12's, also where only the plain name is there.
find_program(LUMETRA_CLANG NAMES clang-14 clang REQUIRED)
find_program(LUMETRA_CLANGXX NAMES clang++-14 clang++ REQUIRED)
set(CMAKE_C_COMPILER ${LUMETRA_CLANG})
set(CMAKE_CXX_COMPILER ${LUMETRA_CLANGXX})
