# cpack reads this file. Without dpkg-shlibdeps, cpack would make Debian packages without dependencies.
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(CPACK_GENERATOR STREQUAL "DEB" AND NOT DPKG_SHLIBDEPS)
    message(FATAL_ERROR "Debian packages need dpkg-shlibdeps from the package dpkg-dev")
endif()
