# Every outside library, found once. Debian 12 has all of them as packages: scripts/packages lists them.

# A static build takes the archives of the same packages.
if(TESSERA_STATIC)
    set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(log4c REQUIRED IMPORTED_TARGET log4c)
pkg_check_modules(jansson REQUIRED IMPORTED_TARGET jansson)
pkg_check_modules(pcre2 REQUIRED IMPORTED_TARGET libpcre2-8)
if(TESSERA_PLATFORM STREQUAL "standalone")
    pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)
    pkg_check_modules(pugixml REQUIRED IMPORTED_TARGET pugixml)
endif()
if(TESSERA_STATIC)
    find_library(EXPAT_ARCHIVE NAMES expat REQUIRED) # what log4c's archive needs
    target_link_libraries(PkgConfig::log4c INTERFACE ${EXPAT_ARCHIVE})
endif()
