# Settings shared by every target: the language, the warnings, the arithmetic, the sanitizers.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(LUMETRA_SANITIZE "" CACHE STRING "Value of -fsanitize= for every target, empty for none")

add_library(lumetra_settings INTERFACE)
target_compile_definitions(lumetra_settings INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_compile_options(lumetra_settings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wundef -Wold-style-cast
    -Wcast-qual -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
    # Forecasts are reproducible to the bit: no fused multiply-add behind the source's back.
    -ffp-contract=off
    # What is shipped has the same bytes in whatever directory it is built.
    $<$<CONFIG:RelWithDebInfo>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>
    $<$<CONFIG:RelWithDebInfo>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build>
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op -fno-gnu-unique>
    # gcc 12 takes the inlined assignment of two characters to a string for an overlapping copy (GCC bug 105651).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Wthread-safety-beta>)

if(LUMETRA_SANITIZE)
    target_compile_options(lumetra_settings INTERFACE -fsanitize=${LUMETRA_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all
        # Looking at an object's type takes a pipe, which tests of a process without descriptors cannot give.
        -fno-sanitize=vptr
        # gcc 12 sees uninitialised members in the standard library's own code once the sanitizers rewrite it.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(lumetra_settings INTERFACE -fsanitize=${LUMETRA_SANITIZE})
endif()

add_library(lumetra_hardening INTERFACE)
if(NOT LUMETRA_SANITIZE)
    target_compile_options(lumetra_hardening INTERFACE
        -fstack-protector-strong -fstack-clash-protection $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|i[3-6]86)$")
        # Heeded by the processor once the C library's own start-up files are compiled so, too.
        target_compile_options(lumetra_hardening INTERFACE -fcf-protection)
    endif()
    target_link_options(lumetra_hardening INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
    target_link_libraries(lumetra_settings INTERFACE lumetra_hardening)
endif()
