// SPDX-License-Identifier: MIT
//
// Rectifier, signs and addition with RISC-V's vectors.
#include "compute_a/simd/rvv/lanes.h"
#include "compute_a/simd/rvv/routines.h"

namespace orvo {

void rvv::Rectify(const int8_t* src, int8_t* dst, size_t count) {
    for (size_t n; count > 0; count -= n, src += n, dst += n) {
        n = __riscv_vsetvl_e8m8(count);
        __riscv_vse8_v_i8m8(dst, __riscv_vmax_vx_i8m8(__riscv_vle8_v_i8m8(src, n), 0, n), n);
    }
}

void rvv::FlipSign(uint8_t* data, size_t count) {
    for (size_t n; count > 0; count -= n, data += n) {
        n = __riscv_vsetvl_e8m8(count);
        __riscv_vse8_v_u8m8(data, __riscv_vxor_vx_u8m8(__riscv_vle8_v_u8m8(data, n), 0x80, n), n);
    }
}

// Shifted left by multiplication, to words: input shifts up to 6 make factors up to 64 and sums up to
// 16384. The instruction that shifts to the right rounds half up.
void rvv::Add(const int8_t* in1, const int8_t* in2, int8_t* dst, size_t count, const AddShifts& s) {
    const auto factor1 = static_cast<int8_t>(1 << s.in1);
    const auto factor2 = static_cast<int8_t>(1 << s.in2);
    for (size_t n, done = 0; done < count; done += n) {
        n = __riscv_vsetvl_e8m4(count - done);
        vint16m8_t sums = __riscv_vwmul_vx_i16m8(__riscv_vle8_v_i8m4(in1 + done, n), factor1, n);
        if (in2 != nullptr) {
            sums = __riscv_vwmacc_vx_i16m8(sums, factor2, __riscv_vle8_v_i8m4(in2 + done, n), n);
        }
        __riscv_vse8_v_i8m4(dst + done, __riscv_vnclip_wx_i8m4(sums, s.out, __RISCV_VXRM_RNU, n),
                            n);
    }
}

} // namespace orvo
