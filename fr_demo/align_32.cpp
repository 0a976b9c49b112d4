// SPDX-License-Identifier: MIT
//
// The alignment network: from the picture reduced to 24 x 24 to the four corners of the face box.
//
// A stem, nine residual blocks of the form pointwise (narrow), depthwise with rectifier, pointwise
// (wide), depthwise, addition; the width grows by 4 channels from block to block, and the shortcut
// is zero-padded to it in the addition. The only nonlinearities are the rectifying depthwise layers
// and the max poolings.
#include <iterator>

#include "fr_demo/layers.h"
#include "fr_demo/store_opening.h"
#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"

int8_t* g_alignWorkspace;
int8_t* g_alignInnerBuf;
int32_t g_alignResOffset;

namespace {

constexpr int32_t kSlotBytes = 44 * 24 * 24; // the largest activation tensor

} // namespace

void AlignSetWorkspace(void* addr) { g_alignWorkspace = static_cast<int8_t*>(addr); }

void AlignSetInnerbuf(void* addr) { g_alignInnerBuf = static_cast<int8_t*>(addr); }

int8_t* AlignGetOutput(void) { return g_alignInnerBuf + g_alignResOffset; }

int32_t AlignDecrypt(void) {
    return orvo::OpenStore({"../fr_demo/align_32", "g_align", g_alignWb, g_alignWbIv, g_alignAesIv,
                            g_alignArray, sizeof g_alignArray / sizeof g_alignArray[0]});
}

// A layer reads one of three slots and writes another.
void AlignRun(uint8_t* input) {
    orvo::Layers net{g_alignWorkspace, std::begin(g_alignArray), std::end(g_alignArray)};
    const int8_t* const image = reinterpret_cast<int8_t*>(input);
    int8_t* const X = g_alignInnerBuf;
    int8_t* const Y = X + kSlotBytes;
    int8_t* const Z = Y + kSlotBytes;

    ArmAXorQ7(input, 24 * 24);

    // Stem
    net.conv(image, 1, 24, g_alignWeights0, g_alignBias0, 32, 8, X);

    // 24 x 24: channels 32 to 36, 40, 44
    net.pw(X, 32, 24, g_alignWeights1, g_alignBias1, 18, 7, Y);
    net.dwr(Y, 18, 24, g_alignWeights2, g_alignBias2, 18, 6, Z);
    net.pw(Z, 18, 24, g_alignWeights4, g_alignBias4, 36, 7, Y);
    net.dw(Y, 36, 24, g_alignWeights5, g_alignBias5, 36, 6, Z);
    net.add(Z, X, 1, 0, 1, 24, 36, 32, Y);

    net.pw(Y, 36, 24, g_alignWeights7, g_alignBias7, 20, 5, X);
    net.dwr(X, 20, 24, g_alignWeights8, g_alignBias8, 20, 7, Z);
    net.pw(Z, 20, 24, g_alignWeights10, g_alignBias10, 40, 6, X);
    net.dw(X, 40, 24, g_alignWeights11, g_alignBias11, 40, 6, Z);
    net.add(Z, Y, 0, 1, 1, 24, 40, 36, X);

    net.pw(X, 40, 24, g_alignWeights13, g_alignBias13, 22, 6, Y);
    net.dwr(Y, 22, 24, g_alignWeights14, g_alignBias14, 22, 6, Z);
    net.pw(Z, 22, 24, g_alignWeights16, g_alignBias16, 44, 7, Y);
    net.dw(Y, 44, 24, g_alignWeights17, g_alignBias17, 44, 7, Z);
    net.add(Z, X, 0, 1, 0, 24, 44, 40, Y);

    net.mp2(Y, 44, 24, X);

    // 12 x 12: channels 44 to 48, 52, 56
    net.pw(X, 44, 12, g_alignWeights20, g_alignBias20, 24, 6, Y);
    net.dwr(Y, 24, 12, g_alignWeights21, g_alignBias21, 24, 6, Z);
    net.pw(Z, 24, 12, g_alignWeights23, g_alignBias23, 48, 6, Y);
    net.dw(Y, 48, 12, g_alignWeights24, g_alignBias24, 48, 6, Z);
    net.add(Z, X, 0, 0, 0, 12, 48, 44, Y);

    net.pw(Y, 48, 12, g_alignWeights26, g_alignBias26, 26, 6, X);
    net.dwr(X, 26, 12, g_alignWeights27, g_alignBias27, 26, 7, Z);
    net.pw(Z, 26, 12, g_alignWeights29, g_alignBias29, 52, 7, X);
    net.dw(X, 52, 12, g_alignWeights30, g_alignBias30, 52, 7, Z);
    net.add(Z, Y, 1, 0, 1, 12, 52, 48, X);

    net.pw(X, 52, 12, g_alignWeights32, g_alignBias32, 28, 5, Y);
    net.dwr(Y, 28, 12, g_alignWeights33, g_alignBias33, 28, 6, Z);
    net.pw(Z, 28, 12, g_alignWeights35, g_alignBias35, 56, 6, Y);
    net.dw(Y, 56, 12, g_alignWeights36, g_alignBias36, 56, 7, Z);
    net.add(Z, X, 0, 0, 0, 12, 56, 52, Y);

    net.mp2(Y, 56, 12, X);

    // 6 x 6: channels 56 to 60, 64, 68
    net.pw(X, 56, 6, g_alignWeights39, g_alignBias39, 30, 5, Y);
    net.dwr(Y, 30, 6, g_alignWeights40, g_alignBias40, 30, 6, Z);
    net.pw(Z, 30, 6, g_alignWeights42, g_alignBias42, 60, 7, Y);
    net.dw(Y, 60, 6, g_alignWeights43, g_alignBias43, 60, 5, Z);
    net.add(Z, X, 0, 0, 0, 6, 60, 56, Y);

    net.pw(Y, 60, 6, g_alignWeights45, g_alignBias45, 32, 5, X);
    net.dwr(X, 32, 6, g_alignWeights46, g_alignBias46, 32, 7, Z);
    net.pw(Z, 32, 6, g_alignWeights48, g_alignBias48, 64, 6, X);
    net.dw(X, 64, 6, g_alignWeights49, g_alignBias49, 64, 6, Z);
    net.add(Z, Y, 0, 0, 1, 6, 64, 60, X);

    net.pw(X, 64, 6, g_alignWeights51, g_alignBias51, 34, 6, Y);
    net.dwr(Y, 34, 6, g_alignWeights52, g_alignBias52, 34, 7, Z);
    net.pw(Z, 34, 6, g_alignWeights54, g_alignBias54, 68, 6, Y);
    net.dw(Y, 68, 6, g_alignWeights55, g_alignBias55, 68, 6, Z);
    net.add(Z, X, 0, 1, 1, 6, 68, 64, Y);

    // Head
    net.gap(Y, 68, 6, 3, X);
    net.fc(X, 68, g_alignWeights58, g_alignBias58, 4, 8, Y);

    g_alignResOffset = kSlotBytes; // the answer lies in Y
}
