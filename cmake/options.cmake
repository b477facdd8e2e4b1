# What every target of the project is compiled with.

add_library(tessera_options INTERFACE)
target_include_directories(tessera_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
# The offsets' width is stated: where it is not 64 bits by itself, stat fails on a large file system.
target_compile_definitions(tessera_options INTERFACE _POSIX_C_SOURCE=200809L _DEFAULT_SOURCE
                           _FILE_OFFSET_BITS=64 TESSERA_VERSION="${PROJECT_VERSION}")
target_compile_options(tessera_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wundef -Wcast-align
    -Wnon-virtual-dtor -Woverloaded-virtual -fno-common)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 sees overlaps in std::string that are not there (its PR 105651).
    target_compile_options(tessera_options INTERFACE -Wno-restrict)
endif()
if(TESSERA_WERROR)
    target_compile_options(tessera_options INTERFACE -Werror)
endif()
if(TESSERA_SANITIZE)
    # Reports need lines, not variables.
    target_compile_options(tessera_options INTERFACE
        -fsanitize=${TESSERA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -g1)
    target_link_options(tessera_options INTERFACE -fsanitize=${TESSERA_SANITIZE})
endif()

# For the programs of an appliance: one file that no library upgrade can break, and a third less
# memory, because nothing is mapped and relocated that is not used. SQLite's dlopen, which the
# linker warns about, loads extensions, and nobody here does.
add_library(tessera_program INTERFACE)
target_link_libraries(tessera_program INTERFACE tessera_options)
if(TESSERA_STATIC)
    target_link_options(tessera_program INTERFACE -static-pie -Wl,--gc-sections -Wl,--no-warnings)
endif()
