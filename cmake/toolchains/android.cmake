# Android's NDK, 64-bit ARM, from the folder that ANDROID_NDK names in the environment. Not built by the tests.
#
#     ANDROID_NDK=.../android-ndk-r26d cmake -S . -B build/android -G Ninja -DCMAKE_BUILD_TYPE=Release \
#         -DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/toolchains/android.cmake
#     cmake --build build/android
#
# For 32-bit ARM add -DANDROID_ABI=armeabi-v7a. It makes libkova.so, libkova_fr and libkova_find. The stand-in for
# the camera's platform is Linux' alone, and with it all programs and tests are left out: an application brings its
# own platform (examples/plain_platform.c). The key file and the models are packed by the build machine's compiler.
if(NOT EXISTS "$ENV{ANDROID_NDK}/build/cmake/android.toolchain.cmake")
    message(FATAL_ERROR "set ANDROID_NDK to the folder of Android's NDK")
endif()
set(ANDROID_ABI arm64-v8a CACHE STRING "The processor")
set(ANDROID_PLATFORM android-24 CACHE STRING "The oldest Android that is to run it")
# For its headers: nothing of the C++ library is called, so none is needed where the library runs.
set(ANDROID_STL c++_static)
if(ANDROID_ABI STREQUAL "armeabi-v7a")
    # The fused multiply-add that the results ask for. The NDK's file sets the compilers' flags anew.
    add_compile_options(-mfpu=neon-vfpv4)
endif()
include("$ENV{ANDROID_NDK}/build/cmake/android.toolchain.cmake")
