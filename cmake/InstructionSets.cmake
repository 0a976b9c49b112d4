# The paths that the target can have, one source file each, compiled for its instruction set.
# compute_a/routines.cpp chooses among them when the first kernel runs.
#
# ORVO_PATHS names the paths for the tests, which run with each of them.
set(ORVO_PATH_SOURCES)
set(ORVO_CIPHER_SOURCES)
set(ORVO_PATHS plain)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    set(avx2_sources depthwise elementwise pooling product routines)
    list(TRANSFORM avx2_sources REPLACE "(.+)" "compute_a/simd/avx2/\\1.cpp")
    set(avx512_sources depthwise elementwise pooling product routines)
    list(TRANSFORM avx512_sources REPLACE "(.+)" "compute_a/simd/avx512vnni/\\1.cpp")
    foreach(stem convolution product routines)
        list(APPEND avx512_sources compute_a/simd/amx/${stem}.cpp)
    endforeach()
    list(APPEND ORVO_PATH_SOURCES ${avx2_sources} ${avx512_sources})
    list(APPEND ORVO_PATHS avx2 avx512vnni amx)
    set_source_files_properties(${avx2_sources} PROPERTIES COMPILE_OPTIONS -mavx2)
    # GCC 12 takes its own intrinsics' deliberately undefined operands for uninitialised variables.
    set_source_files_properties(${avx512_sources} PROPERTIES COMPILE_OPTIONS
        "-mavx512f;-mavx512bw;-mavx512dq;-mavx512vl;-mavx512vbmi;-mavx512vnni;-Wno-uninitialized;$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")
    list(APPEND ORVO_CIPHER_SOURCES cipher/aes_ni.cpp)
    set_source_files_properties(cipher/aes_ni.cpp PROPERTIES COMPILE_OPTIONS "-maes;-msse4.1")
    set_source_files_properties(cipher/aes128.cpp PROPERTIES COMPILE_DEFINITIONS
                                ORVO_HAVE_AES_INSTRUCTIONS)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|aarch64)")
    # NEON is in the base line of both targets; see the toolchain files.
    list(APPEND ORVO_PATH_SOURCES compute_a/simd/neon.cpp)
    list(APPEND ORVO_PATHS neon)
    # Scheduled before registers are given out, the tiles and strips would not fit the registers, nor
    # would the cipher's state and keys.
    set_source_files_properties(compute_a/simd/neon.cpp cipher/aes_look_up.cpp PROPERTIES
        COMPILE_OPTIONS "$<$<CXX_COMPILER_ID:GNU>:-fno-schedule-insns>")
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        list(APPEND ORVO_PATH_SOURCES compute_a/simd/neon_dot.cpp)
        list(APPEND ORVO_PATHS neon_dot)
        set_source_files_properties(compute_a/simd/neon_dot.cpp PROPERTIES COMPILE_OPTIONS
            "-march=armv8.2-a+dotprod;$<$<CXX_COMPILER_ID:GNU>:-fno-schedule-insns>")
    endif()
elseif(EMSCRIPTEN)
    list(APPEND ORVO_PATH_SOURCES compute_a/simd/wasm_simd.cpp)
    list(APPEND ORVO_PATHS wasm_simd)
endif()
