// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>

namespace facegen {

// Eight values at once, in the vector types that GCC and Clang share.
using Lanes = float __attribute__((vector_size(32)));
using IntLanes = std::int32_t __attribute__((vector_size(32)));

inline Lanes ToLanes(float value) {
    return Lanes{value, value, value, value, value, value, value, value};
}
inline IntLanes ToIntLanes(std::int32_t value) {
    return IntLanes{value, value, value, value, value, value, value, value};
}

inline Lanes Load(const float* from) {
    Lanes value;
    std::memcpy(&value, from, sizeof value);
    return value;
}
inline void Store(float* to, Lanes value) { std::memcpy(to, &value, sizeof value); }
inline IntLanes Load(const std::int32_t* from) {
    IntLanes value;
    std::memcpy(&value, from, sizeof value);
    return value;
}
inline void Store(std::int32_t* to, IntLanes value) { std::memcpy(to, &value, sizeof value); }

inline bool Any(IntLanes mask) {
    std::int64_t word[4];
    std::memcpy(word, &mask, sizeof word);
    return (word[0] | word[1] | word[2] | word[3]) != 0;
}

} // namespace facegen
