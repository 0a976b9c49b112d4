# Android's NDK, 64-bit ARM, from the folder that ANDROID_NDK names in the environment. Not built by the tests.
#
#     ANDROID_NDK=.../android-ndk-r26d cmake -S . -B build/android -G Ninja -DCMAKE_BUILD_TYPE=Release \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/android.cmake -DORVO_BUILD_TESTS=OFF -DORVO_BUILD_BENCH=OFF
#
# For 32-bit ARM add -DANDROID_ABI=armeabi-v7a. The library needs C++20's headers and no C++ library at run time.
if(NOT EXISTS "$ENV{ANDROID_NDK}/build/cmake/android.toolchain.cmake")
    message(FATAL_ERROR "set ANDROID_NDK to the folder of Android's NDK")
endif()
set(ANDROID_ABI arm64-v8a CACHE STRING "The processor")
set(ANDROID_PLATFORM android-24 CACHE STRING "The oldest Android that is to run it")
set(ANDROID_STL none)
if(ANDROID_ABI STREQUAL "armeabi-v7a")
    # The fused multiply-add that the results ask for.
    set(CMAKE_C_FLAGS_INIT "-mfpu=neon-vfpv4")
    set(CMAKE_CXX_FLAGS_INIT "-mfpu=neon-vfpv4")
endif()
include("$ENV{ANDROID_NDK}/build/cmake/android.toolchain.cmake")
