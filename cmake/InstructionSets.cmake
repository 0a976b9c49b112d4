# The paths that the target can have, one source file each, compiled for its instruction set.
# compute_a/routines.cpp chooses among them when the first kernel runs.
set(ORVO_PATH_SOURCES)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    list(APPEND ORVO_PATH_SOURCES compute_a/simd/avx512vnni.cpp)
    # GCC 12 takes its own intrinsics' deliberately undefined operands for uninitialised variables.
    set_source_files_properties(compute_a/simd/avx512vnni.cpp PROPERTIES COMPILE_OPTIONS
        "-mavx512f;-mavx512bw;-mavx512dq;-mavx512vl;-mavx512vbmi;-mavx512vnni;-Wno-uninitialized;$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|aarch64)")
    # NEON is in the base line of both targets; see the toolchain files.
    list(APPEND ORVO_PATH_SOURCES compute_a/simd/neon.cpp)
    # Scheduled before registers are given out, the tiles and strips would not fit the registers.
    set_source_files_properties(compute_a/simd/neon.cpp PROPERTIES COMPILE_OPTIONS
        "$<$<CXX_COMPILER_ID:GNU>:-fno-schedule-insns>")
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        list(APPEND ORVO_PATH_SOURCES compute_a/simd/neon_dot.cpp)
        set_source_files_properties(compute_a/simd/neon_dot.cpp PROPERTIES COMPILE_OPTIONS
            "-march=armv8.2-a+dotprod")
    endif()
endif()
