# Read by cpack, which would make Debian packages without dependencies where the tool for them is missing.
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(CPACK_GENERATOR STREQUAL "DEB" AND NOT DPKG_SHLIBDEPS)
    message(FATAL_ERROR "Debian packages take dpkg-shlibdeps, which is in the package dpkg-dev")
endif()
