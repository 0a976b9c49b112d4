// SPDX-License-Identifier: MIT
//
// The recognition network: from the 96 x 96 face crop, in three equal planes, to the face feature.
//
// Every reduction of the plane is an anti-aliased one: depthwise 3 x 3, 2 x 2 maximum with stride
// 1, depthwise 3 x 3, every second pixel, rectifier. Residual blocks expand, rectify, filter,
// project and add; the shortcut is the addition's first operand here.
#include <iterator>

#include "fr_demo/layers.h"
#include "fr_demo/store_opening.h"
#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"

int8_t* g_frWorkspace;
int8_t* g_frInnerBuf;
float g_frResult[128];

namespace {

constexpr int32_t kSlotBytes = 32 * 96 * 96; // the largest activation tensor

} // namespace

void FrSetWorkspace(void* addr) { g_frWorkspace = static_cast<int8_t*>(addr); }

void FrSetInnerbuf(void* addr) { g_frInnerBuf = static_cast<int8_t*>(addr); }

float* FrGetOutput(void) { return g_frResult; }

float FrCompare(const float* a, const float* b) { return ArmACalcDistanceFloat(a, b, 128); }

int32_t FrDecrypt(void) {
    return orvo::OpenStore({"../fr_demo/fr_32", "g_fr", g_frWb, g_frWbIv, g_frAesIv, g_frArray,
                            sizeof g_frArray / sizeof g_frArray[0]});
}

// A layer reads one of three slots and writes another.
void FrRun(uint8_t* input) {
    orvo::Layers net{g_frWorkspace, std::begin(g_frArray), std::end(g_frArray)};
    const int8_t* const image = reinterpret_cast<int8_t*>(input);
    int8_t* const X = g_frInnerBuf;
    int8_t* const Y = X + kSlotBytes;
    int8_t* const Z = Y + kSlotBytes;

    ArmAXorQ7(input, 3 * 96 * 96);

    // Stem and reduction, 96 x 96 to 48 x 48
    net.conv(image, 3, 96, g_frWeights0, g_frBias0, 32, 11, X);
    net.mp1(X, 32, 96, Y);
    net.dw(Y, 32, 95, g_frWeights2, g_frBias2, 32, 9, X);
    net.ds(X, 32, 95, Y);
    net.relu(Y, 73728);

    // Expansion and reduction, 48 x 48 to 24 x 24
    net.dwr(Y, 32, 48, g_frWeights5, g_frBias5, 32, 4, X);
    net.pw(X, 32, 48, g_frWeights7, g_frBias7, 64, 7, Y);
    net.relu(Y, 147456);
    net.dw(Y, 64, 48, g_frWeights9, g_frBias9, 64, 7, X);
    net.mp1(X, 64, 48, Y);
    net.dw(Y, 64, 47, g_frWeights11, g_frBias11, 64, 9, X);
    net.ds(X, 64, 47, Y);
    net.relu(Y, 36864);

    // 24 x 24: four residual blocks of width 32
    net.pw(Y, 64, 24, g_frWeights14, g_frBias14, 32, 6, X);

    net.pw(X, 32, 24, g_frWeights15, g_frBias15, 64, 8, Y);
    net.relu(Y, 36864);
    net.dwr(Y, 64, 24, g_frWeights17, g_frBias17, 64, 4, Z);
    net.pw(Z, 64, 24, g_frWeights19, g_frBias19, 32, 7, Y);
    net.add(X, Y, 1, 0, 1, 24, 32, 32, Z);

    net.pw(Z, 32, 24, g_frWeights21, g_frBias21, 64, 6, Y);
    net.relu(Y, 36864);
    net.dwr(Y, 64, 24, g_frWeights23, g_frBias23, 64, 6, X);
    net.pw(X, 64, 24, g_frWeights25, g_frBias25, 32, 6, Y);
    net.add(Z, Y, 1, 0, 1, 24, 32, 32, X);

    net.pw(X, 32, 24, g_frWeights27, g_frBias27, 64, 7, Y);
    net.relu(Y, 36864);
    net.dwr(Y, 64, 24, g_frWeights29, g_frBias29, 64, 6, Z);
    net.pw(Z, 64, 24, g_frWeights31, g_frBias31, 32, 6, Y);
    net.add(X, Y, 1, 0, 1, 24, 32, 32, Z);

    net.pw(Z, 32, 24, g_frWeights33, g_frBias33, 64, 7, Y);
    net.relu(Y, 36864);
    net.dwr(Y, 64, 24, g_frWeights35, g_frBias35, 64, 7, X);
    net.pw(X, 64, 24, g_frWeights37, g_frBias37, 32, 5, Y);
    net.add(Z, Y, 1, 0, 1, 24, 32, 32, X);

    // Expansion and reduction, 24 x 24 to 12 x 12
    net.pw(X, 32, 24, g_frWeights39, g_frBias39, 128, 7, Y);
    net.relu(Y, 73728);
    net.dw(Y, 128, 24, g_frWeights41, g_frBias41, 128, 8, X);
    net.mp1(X, 128, 24, Y);
    net.dw(Y, 128, 23, g_frWeights43, g_frBias43, 128, 8, X);
    net.ds(X, 128, 23, Y);
    net.relu(Y, 18432);

    // 12 x 12: six residual blocks of width 64
    net.pw(Y, 128, 12, g_frWeights46, g_frBias46, 64, 7, X);

    net.pw(X, 64, 12, g_frWeights47, g_frBias47, 128, 9, Y);
    net.relu(Y, 18432);
    net.dwr(Y, 128, 12, g_frWeights49, g_frBias49, 128, 4, Z);
    net.pw(Z, 128, 12, g_frWeights51, g_frBias51, 64, 6, Y);
    net.add(X, Y, 1, 0, 1, 12, 64, 64, Z);

    net.pw(Z, 64, 12, g_frWeights53, g_frBias53, 128, 8, Y);
    net.relu(Y, 18432);
    net.dwr(Y, 128, 12, g_frWeights55, g_frBias55, 128, 4, X);
    net.pw(X, 128, 12, g_frWeights57, g_frBias57, 64, 6, Y);
    net.add(Z, Y, 1, 0, 1, 12, 64, 64, X);

    net.pw(X, 64, 12, g_frWeights59, g_frBias59, 128, 7, Y);
    net.relu(Y, 18432);
    net.dwr(Y, 128, 12, g_frWeights61, g_frBias61, 128, 7, Z);
    net.pw(Z, 128, 12, g_frWeights63, g_frBias63, 64, 5, Y);
    net.add(X, Y, 0, 0, 0, 12, 64, 64, Z);

    net.pw(Z, 64, 12, g_frWeights65, g_frBias65, 128, 8, Y);
    net.relu(Y, 18432);
    net.dwr(Y, 128, 12, g_frWeights67, g_frBias67, 128, 5, X);
    net.pw(X, 128, 12, g_frWeights69, g_frBias69, 64, 6, Y);
    net.add(Z, Y, 0, 0, 1, 12, 64, 64, X);

    net.pw(X, 64, 12, g_frWeights71, g_frBias71, 128, 8, Y);
    net.relu(Y, 18432);
    net.dwr(Y, 128, 12, g_frWeights73, g_frBias73, 128, 6, Z);
    net.pw(Z, 128, 12, g_frWeights75, g_frBias75, 64, 6, Y);
    net.add(X, Y, 1, 0, 1, 12, 64, 64, Z);

    net.pw(Z, 64, 12, g_frWeights77, g_frBias77, 128, 7, Y);
    net.relu(Y, 18432);
    net.dwr(Y, 128, 12, g_frWeights79, g_frBias79, 128, 6, X);
    net.pw(X, 128, 12, g_frWeights81, g_frBias81, 64, 7, Y);
    net.add(Z, Y, 0, 0, 0, 12, 64, 64, X);

    // Expansion and reduction, 12 x 12 to 6 x 6
    net.pw(X, 64, 12, g_frWeights83, g_frBias83, 256, 8, Y);
    net.relu(Y, 36864);
    net.dw(Y, 256, 12, g_frWeights85, g_frBias85, 256, 7, X);
    net.mp1(X, 256, 12, Y);
    net.dw(Y, 256, 11, g_frWeights87, g_frBias87, 256, 8, X);
    net.ds(X, 256, 11, Y);
    net.relu(Y, 9216);

    // 6 x 6: two residual blocks of width 64
    net.pw(Y, 256, 6, g_frWeights90, g_frBias90, 64, 7, X);

    net.pw(X, 64, 6, g_frWeights91, g_frBias91, 128, 9, Y);
    net.relu(Y, 4608);
    net.dwr(Y, 128, 6, g_frWeights93, g_frBias93, 128, 6, Z);
    net.pw(Z, 128, 6, g_frWeights95, g_frBias95, 64, 6, Y);
    net.add(X, Y, 1, 0, 1, 6, 64, 64, Z);

    net.pw(Z, 64, 6, g_frWeights97, g_frBias97, 128, 8, Y);
    net.relu(Y, 4608);
    net.dwr(Y, 128, 6, g_frWeights99, g_frBias99, 128, 5, X);
    net.pw(X, 128, 6, g_frWeights101, g_frBias101, 64, 7, Y);
    net.add(Z, Y, 0, 0, 1, 6, 64, 64, X);

    // Expansion
    net.pw(X, 64, 6, g_frWeights103, g_frBias103, 256, 7, Y);
    net.relu(Y, 9216);

    // Head
    net.global(Y, 256, 6, g_frWeights105, g_frBias105, 6, X);
    net.fc(X, 256, g_frWeights106, g_frBias106, 128, 7, Y);
    ArmAL2Norm(Y, 128, g_frResult);
}
