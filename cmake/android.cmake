# The toolchain of the NDK that the environment variable ANDROID_NDK points to.
set(ndk_toolchain $ENV{ANDROID_NDK}/build/cmake/android.toolchain.cmake)
if(NOT DEFINED ENV{ANDROID_NDK} OR NOT EXISTS ${ndk_toolchain})
    message(FATAL_ERROR "Set the environment variable ANDROID_NDK to the folder of an Android NDK; it is '$ENV{ANDROID_NDK}'")
endif()
include(${ndk_toolchain})
