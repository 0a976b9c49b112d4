# The paths that the target can have, a folder of compute_a/simd/ each, compiled for its instruction set.
# compute_a/routines.cpp chooses among them when the first kernel runs.
#
# ORVO_PATHS names the paths for the tests, which run with each of them.
set(ORVO_PATH_SOURCES)
set(ORVO_CIPHER_SOURCES)
set(ORVO_PATHS)

# orvo_path(NAME FOLDER FILES stem... [OPTIONS flag...])
function(orvo_path name folder)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "FILES;OPTIONS")
    list(TRANSFORM arg_FILES REPLACE "(.+)" "compute_a/simd/${folder}/\\1.cpp")
    set_source_files_properties(${arg_FILES} PROPERTIES COMPILE_OPTIONS "${arg_OPTIONS}")
    set(ORVO_PATH_SOURCES ${ORVO_PATH_SOURCES} ${arg_FILES} PARENT_SCOPE)
    set(ORVO_PATHS ${ORVO_PATHS} ${name} PARENT_SCOPE)
endfunction()

orvo_path(plain plain FILES product plane depthwise pooling elementwise routines)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    orvo_path(sse41 sse41 FILES product plane depthwise pooling elementwise routines OPTIONS -msse4.1)
    orvo_path(avx2 avx2 FILES product plane depthwise pooling elementwise routines OPTIONS -mavx2)
    # One source in two encodings; see compute_a/simd/avxvnni/instructions.h.
    foreach(encoding avxvnni avxvnni_evex)
        orvo_path(${encoding} ${encoding} FILES product plane depthwise routines OPTIONS -mavx2)
    endforeach()
    # GCC 12 takes its own intrinsics' deliberately undefined operands for uninitialised variables.
    set(avx512 -mavx512f -mavx512bw -mavx512dq -mavx512vl -mavx512vbmi -mavx512vnni
        -Wno-uninitialized "$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")
    orvo_path(avx512vnni avx512vnni FILES product product_36 plane depthwise pooling elementwise routines
              OPTIONS ${avx512})
    orvo_path(amx amx FILES product convolution routines OPTIONS ${avx512})
    list(APPEND ORVO_CIPHER_SOURCES cipher/aes_ni.cpp cipher/aes_vaes.cpp)
    set_source_files_properties(cipher/aes_ni.cpp PROPERTIES COMPILE_OPTIONS "-maes;-msse4.1")
    set(wide_aes -maes -mvaes -mavx512f -Wno-uninitialized
        "$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")
    set_source_files_properties(cipher/aes_vaes.cpp PROPERTIES COMPILE_OPTIONS "${wide_aes}")
    set_source_files_properties(cipher/aes128.cpp PROPERTIES COMPILE_DEFINITIONS
                                ORVO_HAVE_AES_INSTRUCTIONS)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|aarch64)")
    # macOS has a name of its own for 64 bits.
    set(is_64_bit OFF)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
        set(is_64_bit ON)
    endif()
    # NEON is in the base line of both targets; see the toolchain files. Scheduled before registers are
    # given out, the tiles and strips would not fit the registers, nor would the cipher's state and keys.
    set(unscheduled "$<$<CXX_COMPILER_ID:GNU>:-fno-schedule-insns>")
    set(product product_32)
    # Debian's armhf has Thumb unless told otherwise, which keeps a register from the loops by hand.
    set(instructions -marm)
    if(is_64_bit)
        set(product product_64)
        set(instructions)
    endif()
    orvo_path(neon neon FILES ${product} plane depthwise pooling elementwise routines
              OPTIONS ${instructions} ${unscheduled})
    set_source_files_properties(cipher/aes_look_up.cpp PROPERTIES COMPILE_OPTIONS ${unscheduled})
    if(is_64_bit)
        orvo_path(neon_dot neon_dot FILES product depthwise routines
                  OPTIONS -march=armv8.2-a+dotprod ${unscheduled})
    endif()
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "riscv64")
    # Vectors by intrinsics that take a rounding mode, as those of GCC 14 and Clang 17 do. Older compilers leave the
    # plain path.
    include(CheckCXXSourceCompiles)
    set(vectors -march=rv64gcv)
    set(CMAKE_REQUIRED_FLAGS ${vectors})
    check_cxx_source_compiles("
        #include <riscv_vector.h>
        static_assert(__riscv_v_intrinsic >= 12000);
        int main() {}" ORVO_HAVE_RVV_INTRINSICS)
    unset(CMAKE_REQUIRED_FLAGS)
    if(ORVO_HAVE_RVV_INTRINSICS)
        orvo_path(rvv rvv FILES product plane depthwise pooling elementwise routines OPTIONS ${vectors})
        set_source_files_properties(compute_a/routines.cpp PROPERTIES COMPILE_DEFINITIONS ORVO_HAVE_RVV)
    endif()
elseif(EMSCRIPTEN)
    orvo_path(wasm_simd wasm FILES product plane depthwise pooling elementwise routines)
endif()
