# Stands in for the NDK's where there is none. It compiles for Android, with the library of C++ that Android uses, but
# with the host's C library for 64-bit ARM, which is not Android's. Nothing can be linked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ANDROID TRUE)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-android28)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_CXX_FLAGS_INIT "-nostdinc++ -nostdlibinc \
    -isystem /usr/lib/llvm-14/include/c++/v1 \
    -isystem /usr/aarch64-linux-gnu/include \
    -idirafter /usr/include/android \
    -include ${CMAKE_CURRENT_LIST_DIR}/../../bionic.h")
file(GLOB CMAKE_LIBRARY_PATH /usr/lib/*-linux-gnu/android)
