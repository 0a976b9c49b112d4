# Compiler settings that every target of this project shares, as the interface target orvo_settings.
find_package(Threads REQUIRED)

add_library(orvo_settings INTERFACE)
target_link_libraries(orvo_settings INTERFACE Threads::Threads)
target_compile_options(orvo_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow
    # Results must not depend on what the compiler fuses: std::fma stands where a fused step is meant.
    -ffp-contract=off)
if(NOT EMSCRIPTEN)
    # Exported functions and objects must stay replaceable, also where the compiler sees their bodies.
    target_compile_options(orvo_settings INTERFACE -fsemantic-interposition)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 warns of overlaps inside std::string that cannot happen.
    target_compile_options(orvo_settings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(ORVO_WERROR)
    target_compile_options(orvo_settings INTERFACE -Werror)
endif()
if(ORVO_SANITIZE)
    target_compile_options(orvo_settings INTERFACE -fsanitize=${ORVO_SANITIZE}
                           -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(orvo_settings INTERFACE -fsanitize=${ORVO_SANITIZE})
endif()
if(ORVO_COVERAGE)
    # As written, so that a line is a line. The tests take it off themselves again.
    set(ORVO_COVERAGE_OPTIONS --coverage -O0)
    add_compile_options(${ORVO_COVERAGE_OPTIONS})
    add_link_options(--coverage)
endif()
