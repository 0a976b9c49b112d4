// SPDX-License-Identifier: MIT
#include "reference/reference_conv.h"

#include <algorithm>
#include <stdexcept>

namespace orvo_reference {
namespace {

size_t Index(int64_t i) { return static_cast<size_t>(i); }

uint32_t Product(int8_t a, int8_t b) { return static_cast<uint32_t>(int32_t{a} * int32_t{b}); }

// The input value at (c, y, x) of a CHW tensor, zero outside.
int8_t ChwInput(const ConvShape& s, const int8_t* src, int c, int y, int x) {
    if (y < 0 || y >= s.srcHeight || x < 0 || x >= s.srcWidth) {
        return 0;
    }
    return src[(Index(c) * Index(s.srcHeight) + Index(y)) * Index(s.srcWidth) + Index(x)];
}

int8_t HwcInput(const ConvShape& s, const int8_t* src, int y, int x, int c) {
    if (y < 0 || y >= s.srcHeight || x < 0 || x >= s.srcWidth) {
        return 0;
    }
    return src[(Index(y) * Index(s.srcWidth) + Index(x)) * Index(s.srcChannels) + Index(c)];
}

int8_t NaturalWeight(const ConvShape& s, const int8_t* weights, int o, int c, int ky, int kx) {
    const size_t k = Index(s.kernelSize);
    return weights[((Index(o) * Index(s.srcChannels) + Index(c)) * k + Index(ky)) * k + Index(kx)];
}

int8_t Rectified(int8_t value, bool rectify) { return rectify && value < 0 ? int8_t{0} : value; }

// The packed orders of the two matrix-product kernels differ only in the spacing of their groups.
size_t PackedSize(int outChannels, size_t dotLength, size_t spacing) {
    const size_t groups = Index(outChannels / 4);
    const size_t leftovers = Index(outChannels % 4);
    if (leftovers != 0) {
        return spacing * (groups + leftovers - 1) + dotLength;
    }
    return groups == 0 ? 0 : spacing * (groups - 1) + 4 * dotLength;
}

void Pack(const int8_t* natural, int outChannels, size_t dotLength, size_t spacing, int8_t* packed,
          size_t packedSize) {
    if (packedSize < PackedSize(outChannels, dotLength, spacing)) {
        throw std::length_error("packed weights do not fit");
    }
    const size_t groups = Index(outChannels / 4);
    for (size_t o = 0; o < Index(outChannels); ++o) {
        for (size_t k = 0; k < dotLength; ++k) {
            const size_t at =
                o < 4 * groups ? spacing * (o / 4) + 4 * k + o % 4 : spacing * (groups + o % 4) + k;
            packed[at] = natural[o * dotLength + k];
        }
    }
}

size_t PointwiseSpacing(int inChannels) { return Index(16 * (inChannels / 4 + inChannels % 4)); }

// A matrix times whole planes: a plane after the other, since whole networks take long otherwise.
void ConvolvePlanes(const ConvShape& s, const int8_t* src, const int8_t* weights,
                    const int32_t* bias, int8_t* dst) {
    const size_t pixels = Index(s.srcWidth) * Index(s.srcHeight);
    std::vector<uint32_t> sums(pixels);
    for (int o = 0; o < s.dstChannels; ++o) {
        std::fill(sums.begin(), sums.end(), 0U);
        for (int c = 0; c < s.srcChannels; ++c) {
            const int8_t weight = NaturalWeight(s, weights, o, c, 0, 0);
            for (size_t i = 0; i < pixels; ++i) {
                sums[i] += Product(src[Index(c) * pixels + i], weight);
            }
        }
        for (const uint32_t sum : sums) {
            *dst++ = Requantise(sum, bias[o], s.outShift);
        }
    }
}

} // namespace

size_t DotLength(const ConvShape& s) {
    return Index(s.srcChannels) * Index(s.kernelSize) * Index(s.kernelSize);
}

size_t SrcBytes(const ConvShape& s) {
    return Index(s.srcChannels) * Index(s.srcHeight) * Index(s.srcWidth);
}

size_t DstBytes(const ConvShape& s) {
    return Index(s.dstChannels) * Index(s.dstHeight) * Index(s.dstWidth);
}

int32_t ShiftRightFloor(int32_t value, uint32_t shift) {
    if (shift >= 32) {
        return value < 0 ? -1 : 0;
    }
    const int64_t divisor = int64_t{1} << shift;
    int64_t quotient = value / divisor;
    if (value % divisor < 0) {
        --quotient;
    }
    return static_cast<int32_t>(quotient);
}

int8_t Requantise(uint32_t sum, int32_t bias, uint32_t outShift) {
    const int32_t total = static_cast<int32_t>(sum + static_cast<uint32_t>(bias));
    return static_cast<int8_t>(std::clamp(ShiftRightFloor(total, outShift), -128, 127));
}

void ConvolveChw(const ConvShape& s, const int8_t* src, const int8_t* weights, const int32_t* bias,
                 int8_t* dst) {
    if (s.kernelSize == 1 && s.pad == 0 && s.stride == 1 && s.dstWidth == s.srcWidth &&
        s.dstHeight == s.srcHeight) {
        ConvolvePlanes(s, src, weights, bias, dst);
        return;
    }
    for (int o = 0; o < s.dstChannels; ++o) {
        for (int oy = 0; oy < s.dstHeight; ++oy) {
            for (int ox = 0; ox < s.dstWidth; ++ox) {
                uint32_t sum = 0;
                for (int c = 0; c < s.srcChannels; ++c) {
                    for (int ky = 0; ky < s.kernelSize; ++ky) {
                        for (int kx = 0; kx < s.kernelSize; ++kx) {
                            sum += Product(ChwInput(s, src, c, oy * s.stride + ky - s.pad,
                                                    ox * s.stride + kx - s.pad),
                                           NaturalWeight(s, weights, o, c, ky, kx));
                        }
                    }
                }
                *dst++ = Requantise(sum, bias[o], s.outShift);
            }
        }
    }
}

void ConvolveDepthwiseChw(const ConvShape& s, bool rectify, const int8_t* src,
                          const int8_t* weights, const int32_t* bias, int8_t* dst) {
    for (int c = 0; c < s.dstChannels; ++c) {
        for (int oy = 0; oy < s.dstHeight; ++oy) {
            for (int ox = 0; ox < s.dstWidth; ++ox) {
                uint32_t sum = 0;
                for (int ky = 0; ky < 3; ++ky) {
                    for (int kx = 0; kx < 3; ++kx) {
                        sum += Product(ChwInput(s, src, c, oy + ky - s.pad, ox + kx - s.pad),
                                       weights[Index(9 * c + 3 * ky + kx)]);
                    }
                }
                *dst++ = Rectified(Requantise(sum, bias[c], s.outShift), rectify);
            }
        }
    }
}

std::vector<int8_t> PaddedPlanes(const ConvShape& s, const int8_t* src) {
    std::vector<int8_t> planes;
    for (int c = 0; c < s.srcChannels; ++c) {
        for (int y = -s.pad; y < s.srcHeight + s.pad; ++y) {
            for (int x = -s.pad; x < s.srcWidth + s.pad; ++x) {
                planes.push_back(ChwInput(s, src, c, y, x));
            }
        }
    }
    return planes;
}

void WalkDepthwisePlanes(const ConvShape& s, bool rectify, const int8_t* paddedPlanes,
                         const int8_t* weights, const int32_t* bias, int8_t* dst) {
    const int pitch = s.srcWidth + 2 * s.pad;
    const int planeSize = pitch * (s.srcHeight + 2 * s.pad);
    for (int c = 0; c < s.dstChannels; ++c) {
        for (int oy = 0; oy < s.dstHeight; ++oy) {
            const int pairStart = oy / 2 * (s.dstWidth + 2 + pitch);
            const int rowStart = pairStart + oy % 2 * pitch;
            for (int ox = 0; ox < s.dstWidth; ++ox) {
                uint32_t sum = 0;
                for (int ky = 0; ky < 3; ++ky) {
                    for (int kx = 0; kx < 3; ++kx) {
                        sum += Product(paddedPlanes[Index(c) * Index(planeSize) +
                                                    Index(rowStart + ky * pitch + ox + kx)],
                                       weights[Index(9 * c + 3 * ky + kx)]);
                    }
                }
                *dst++ = Rectified(Requantise(sum, bias[c], s.outShift), rectify);
            }
        }
    }
}

void ConvolveHwc(const ConvShape& s, const int8_t* src, const int8_t* weights, const int32_t* bias,
                 int8_t* dst) {
    for (int oy = 0; oy < s.dstHeight; ++oy) {
        for (int ox = 0; ox < s.dstWidth; ++ox) {
            for (int o = 0; o < s.dstChannels; ++o) {
                uint32_t sum = 0;
                for (int ky = 0; ky < s.kernelSize; ++ky) {
                    for (int kx = 0; kx < s.kernelSize; ++kx) {
                        for (int c = 0; c < s.srcChannels; ++c) {
                            sum += Product(HwcInput(s, src, oy * s.stride + ky - s.pad,
                                                    ox * s.stride + kx - s.pad, c),
                                           NaturalWeight(s, weights, o, c, ky, kx));
                        }
                    }
                }
                *dst++ = Requantise(sum, bias[o], s.outShift);
            }
        }
    }
}

std::vector<int8_t> Im2colHwc(const ConvShape& s, const int8_t* src) {
    std::vector<int8_t> columns;
    for (int oy = 0; oy < s.dstHeight; ++oy) {
        for (int ox = 0; ox < s.dstWidth; ++ox) {
            for (int ky = 0; ky < s.kernelSize; ++ky) {
                for (int kx = 0; kx < s.kernelSize; ++kx) {
                    for (int c = 0; c < s.srcChannels; ++c) {
                        columns.push_back(HwcInput(s, src, oy * s.stride + ky - s.pad,
                                                   ox * s.stride + kx - s.pad, c));
                    }
                }
            }
        }
    }
    return columns;
}

size_t PackedConvWeightsSize(int outChannels, int inChannels, int kernelSize) {
    const size_t dotLength = Index(inChannels) * Index(kernelSize) * Index(kernelSize);
    return PackedSize(outChannels, dotLength, 4 * dotLength);
}

void PackConvWeights(const int8_t* natural, int outChannels, int inChannels, int kernelSize,
                     int8_t* packed, size_t packedSize) {
    const size_t dotLength = Index(inChannels) * Index(kernelSize) * Index(kernelSize);
    Pack(natural, outChannels, dotLength, 4 * dotLength, packed, packedSize);
}

size_t PackedPointwiseWeightsSize(int outChannels, int inChannels) {
    return PackedSize(outChannels, Index(inChannels), PointwiseSpacing(inChannels));
}

void PackPointwiseWeights(const int8_t* natural, int outChannels, int inChannels, int8_t* packed,
                          size_t packedSize) {
    Pack(natural, outChannels, Index(inChannels), PointwiseSpacing(inChannels), packed, packedSize);
}

void PackHwcWeights(const int8_t* natural, int outChannels, int inChannels, int kernelSize,
                    int8_t* packed, size_t packedSize) {
    const size_t taps = Index(kernelSize) * Index(kernelSize);
    if (packedSize < Index(outChannels) * Index(inChannels) * taps) {
        throw std::length_error("packed weights do not fit");
    }
    for (size_t o = 0; o < Index(outChannels); ++o) {
        for (size_t tap = 0; tap < taps; ++tap) {
            for (size_t c = 0; c < Index(inChannels); ++c) {
                packed[(o * taps + tap) * Index(inChannels) + c] =
                    natural[(o * Index(inChannels) + c) * taps + tap];
            }
        }
    }
}

} // namespace orvo_reference
