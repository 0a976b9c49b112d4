/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The two networks, layer by layer in the order in which they run: the one list of what each layer
 * is. The arrays of the model store (model_store.h), the registries, the packer, the benchmarks and
 * the training are made from it; AlignRun() and FrRun() call the kernels that it says.
 *
 * Each list calls macros of the reader's:
 *
 *   LAYER(kind, number, inputs, side, outputs, shift)
 *       A layer with weights and biases. number: its name in the graph as it was trained, in which
 *       layers without parameters count, too. inputs, outputs: channels. side: width and height of
 *       its input planes. shift: to the right, of a sum, before it is saturated.
 *         Convolution      3 x 3, padded
 *         Pointwise        1 x 1
 *         Depthwise        3 x 3, padded, a filter a channel
 *         DepthwiseRelu    the same with a rectifier
 *         Global           a filter of the planes' size a channel
 *         FullyConnected   of planes of one value
 *   STEP(kind, channels, side, shift)
 *       A step without parameters; `channels` planes go in.
 *         Keep             nothing is done: these planes are the shortcut of the next addition
 *         MaxPool1         2 x 2 maximum, stride 1
 *         MaxPool2         2 x 2 maximum, stride 2
 *         Sample           every second value of every second row
 *         Rectify
 *         Average          of each plane, whose sum is shifted left by `shift`
 *         Normalise        to unit length
 *   ADD(channels, side, shortcutChannels, branchShift, shortcutShift, outShift)
 *       A residual addition: (branch << branchShift) + (shortcut << shortcutShift), shifted right
 *       and rounded half up. The shortcut counts as zero where it has no channel.
 *
 * Every step's input is the output of the one before it; the pictures that the networks start from
 * are changed to signed values first, which is in no list.
 */
#ifndef ORVO_NETWORK_LAYERS_H
#define ORVO_NETWORK_LAYERS_H

/* For what a reader of a list has no use for. */
#define ORVO_NO_LAYER(...)

/* clang-format off */

/* The alignment network: 24 x 24 grey levels to the four corners of a box. */
#define ORVO_ALIGN_NETWORK(LAYER, STEP, ADD) \
    /* Stem */ \
    LAYER(Convolution,      0,   1, 24,  32,  8) \
    /* 24 x 24: channels 32 to 36, 40, 44 */ \
    STEP(Keep,                 32, 24,   0) \
    LAYER(Pointwise,        1,  32, 24,  18,  7) \
    LAYER(DepthwiseRelu,    2,  18, 24,  18,  6) \
    LAYER(Pointwise,        4,  18, 24,  36,  7) \
    LAYER(Depthwise,        5,  36, 24,  36,  6) \
    ADD(                       36, 24,  32,  1, 0, 1) \
    STEP(Keep,                 36, 24,   0) \
    LAYER(Pointwise,        7,  36, 24,  20,  5) \
    LAYER(DepthwiseRelu,    8,  20, 24,  20,  7) \
    LAYER(Pointwise,       10,  20, 24,  40,  6) \
    LAYER(Depthwise,       11,  40, 24,  40,  6) \
    ADD(                       40, 24,  36,  0, 1, 1) \
    STEP(Keep,                 40, 24,   0) \
    LAYER(Pointwise,       13,  40, 24,  22,  6) \
    LAYER(DepthwiseRelu,   14,  22, 24,  22,  6) \
    LAYER(Pointwise,       16,  22, 24,  44,  7) \
    LAYER(Depthwise,       17,  44, 24,  44,  7) \
    ADD(                       44, 24,  40,  0, 1, 0) \
    STEP(MaxPool2,             44, 24,   0) \
    /* 12 x 12: channels 44 to 48, 52, 56 */ \
    STEP(Keep,                 44, 12,   0) \
    LAYER(Pointwise,       20,  44, 12,  24,  6) \
    LAYER(DepthwiseRelu,   21,  24, 12,  24,  6) \
    LAYER(Pointwise,       23,  24, 12,  48,  6) \
    LAYER(Depthwise,       24,  48, 12,  48,  6) \
    ADD(                       48, 12,  44,  0, 0, 0) \
    STEP(Keep,                 48, 12,   0) \
    LAYER(Pointwise,       26,  48, 12,  26,  6) \
    LAYER(DepthwiseRelu,   27,  26, 12,  26,  7) \
    LAYER(Pointwise,       29,  26, 12,  52,  7) \
    LAYER(Depthwise,       30,  52, 12,  52,  7) \
    ADD(                       52, 12,  48,  1, 0, 1) \
    STEP(Keep,                 52, 12,   0) \
    LAYER(Pointwise,       32,  52, 12,  28,  5) \
    LAYER(DepthwiseRelu,   33,  28, 12,  28,  6) \
    LAYER(Pointwise,       35,  28, 12,  56,  6) \
    LAYER(Depthwise,       36,  56, 12,  56,  7) \
    ADD(                       56, 12,  52,  0, 0, 0) \
    STEP(MaxPool2,             56, 12,   0) \
    /* 6 x 6: channels 56 to 60, 64, 68 */ \
    STEP(Keep,                 56,  6,   0) \
    LAYER(Pointwise,       39,  56,  6,  30,  5) \
    LAYER(DepthwiseRelu,   40,  30,  6,  30,  6) \
    LAYER(Pointwise,       42,  30,  6,  60,  7) \
    LAYER(Depthwise,       43,  60,  6,  60,  5) \
    ADD(                       60,  6,  56,  0, 0, 0) \
    STEP(Keep,                 60,  6,   0) \
    LAYER(Pointwise,       45,  60,  6,  32,  5) \
    LAYER(DepthwiseRelu,   46,  32,  6,  32,  7) \
    LAYER(Pointwise,       48,  32,  6,  64,  6) \
    LAYER(Depthwise,       49,  64,  6,  64,  6) \
    ADD(                       64,  6,  60,  0, 0, 1) \
    STEP(Keep,                 64,  6,   0) \
    LAYER(Pointwise,       51,  64,  6,  34,  6) \
    LAYER(DepthwiseRelu,   52,  34,  6,  34,  7) \
    LAYER(Pointwise,       54,  34,  6,  68,  6) \
    LAYER(Depthwise,       55,  68,  6,  68,  6) \
    ADD(                       68,  6,  64,  0, 1, 1) \
    /* Head */ \
    STEP(Average,              68,  6,   3) \
    LAYER(FullyConnected,  58,  68,  1,   4,  8)

/* The recognition network: three planes of 96 x 96 grey levels to a feature. */
#define ORVO_FR_NETWORK(LAYER, STEP, ADD) \
    /* Stem and reduction, 96 x 96 to 48 x 48 */ \
    LAYER(Convolution,      0,   3, 96,  32, 11) \
    STEP(MaxPool1,             32, 96,   0) \
    LAYER(Depthwise,        2,  32, 95,  32,  9) \
    STEP(Sample,               32, 95,   0) \
    STEP(Rectify,              32, 48,   0) \
    /* Expansion and reduction, 48 x 48 to 24 x 24 */ \
    LAYER(DepthwiseRelu,    5,  32, 48,  32,  4) \
    LAYER(Pointwise,        7,  32, 48,  64,  7) \
    STEP(Rectify,              64, 48,   0) \
    LAYER(Depthwise,        9,  64, 48,  64,  7) \
    STEP(MaxPool1,             64, 48,   0) \
    LAYER(Depthwise,       11,  64, 47,  64,  9) \
    STEP(Sample,               64, 47,   0) \
    STEP(Rectify,              64, 24,   0) \
    /* 24 x 24: four residual blocks of width 32 */ \
    LAYER(Pointwise,       14,  64, 24,  32,  6) \
    STEP(Keep,                 32, 24,   0) \
    LAYER(Pointwise,       15,  32, 24,  64,  8) \
    STEP(Rectify,              64, 24,   0) \
    LAYER(DepthwiseRelu,   17,  64, 24,  64,  4) \
    LAYER(Pointwise,       19,  64, 24,  32,  7) \
    ADD(                       32, 24,  32,  0, 1, 1) \
    STEP(Keep,                 32, 24,   0) \
    LAYER(Pointwise,       21,  32, 24,  64,  6) \
    STEP(Rectify,              64, 24,   0) \
    LAYER(DepthwiseRelu,   23,  64, 24,  64,  6) \
    LAYER(Pointwise,       25,  64, 24,  32,  6) \
    ADD(                       32, 24,  32,  0, 1, 1) \
    STEP(Keep,                 32, 24,   0) \
    LAYER(Pointwise,       27,  32, 24,  64,  7) \
    STEP(Rectify,              64, 24,   0) \
    LAYER(DepthwiseRelu,   29,  64, 24,  64,  6) \
    LAYER(Pointwise,       31,  64, 24,  32,  6) \
    ADD(                       32, 24,  32,  0, 1, 1) \
    STEP(Keep,                 32, 24,   0) \
    LAYER(Pointwise,       33,  32, 24,  64,  7) \
    STEP(Rectify,              64, 24,   0) \
    LAYER(DepthwiseRelu,   35,  64, 24,  64,  7) \
    LAYER(Pointwise,       37,  64, 24,  32,  5) \
    ADD(                       32, 24,  32,  0, 1, 1) \
    /* Expansion and reduction, 24 x 24 to 12 x 12 */ \
    LAYER(Pointwise,       39,  32, 24, 128,  7) \
    STEP(Rectify,             128, 24,   0) \
    LAYER(Depthwise,       41, 128, 24, 128,  8) \
    STEP(MaxPool1,            128, 24,   0) \
    LAYER(Depthwise,       43, 128, 23, 128,  8) \
    STEP(Sample,              128, 23,   0) \
    STEP(Rectify,             128, 12,   0) \
    /* 12 x 12: six residual blocks of width 64 */ \
    LAYER(Pointwise,       46, 128, 12,  64,  7) \
    STEP(Keep,                 64, 12,   0) \
    LAYER(Pointwise,       47,  64, 12, 128,  9) \
    STEP(Rectify,             128, 12,   0) \
    LAYER(DepthwiseRelu,   49, 128, 12, 128,  4) \
    LAYER(Pointwise,       51, 128, 12,  64,  6) \
    ADD(                       64, 12,  64,  0, 1, 1) \
    STEP(Keep,                 64, 12,   0) \
    LAYER(Pointwise,       53,  64, 12, 128,  8) \
    STEP(Rectify,             128, 12,   0) \
    LAYER(DepthwiseRelu,   55, 128, 12, 128,  4) \
    LAYER(Pointwise,       57, 128, 12,  64,  6) \
    ADD(                       64, 12,  64,  0, 1, 1) \
    STEP(Keep,                 64, 12,   0) \
    LAYER(Pointwise,       59,  64, 12, 128,  7) \
    STEP(Rectify,             128, 12,   0) \
    LAYER(DepthwiseRelu,   61, 128, 12, 128,  7) \
    LAYER(Pointwise,       63, 128, 12,  64,  5) \
    ADD(                       64, 12,  64,  0, 0, 0) \
    STEP(Keep,                 64, 12,   0) \
    LAYER(Pointwise,       65,  64, 12, 128,  8) \
    STEP(Rectify,             128, 12,   0) \
    LAYER(DepthwiseRelu,   67, 128, 12, 128,  5) \
    LAYER(Pointwise,       69, 128, 12,  64,  6) \
    ADD(                       64, 12,  64,  0, 0, 1) \
    STEP(Keep,                 64, 12,   0) \
    LAYER(Pointwise,       71,  64, 12, 128,  8) \
    STEP(Rectify,             128, 12,   0) \
    LAYER(DepthwiseRelu,   73, 128, 12, 128,  6) \
    LAYER(Pointwise,       75, 128, 12,  64,  6) \
    ADD(                       64, 12,  64,  0, 1, 1) \
    STEP(Keep,                 64, 12,   0) \
    LAYER(Pointwise,       77,  64, 12, 128,  7) \
    STEP(Rectify,             128, 12,   0) \
    LAYER(DepthwiseRelu,   79, 128, 12, 128,  6) \
    LAYER(Pointwise,       81, 128, 12,  64,  7) \
    ADD(                       64, 12,  64,  0, 0, 0) \
    /* Expansion and reduction, 12 x 12 to 6 x 6 */ \
    LAYER(Pointwise,       83,  64, 12, 256,  8) \
    STEP(Rectify,             256, 12,   0) \
    LAYER(Depthwise,       85, 256, 12, 256,  7) \
    STEP(MaxPool1,            256, 12,   0) \
    LAYER(Depthwise,       87, 256, 11, 256,  8) \
    STEP(Sample,              256, 11,   0) \
    STEP(Rectify,             256,  6,   0) \
    /* 6 x 6: two residual blocks of width 64 */ \
    LAYER(Pointwise,       90, 256,  6,  64,  7) \
    STEP(Keep,                 64,  6,   0) \
    LAYER(Pointwise,       91,  64,  6, 128,  9) \
    STEP(Rectify,             128,  6,   0) \
    LAYER(DepthwiseRelu,   93, 128,  6, 128,  6) \
    LAYER(Pointwise,       95, 128,  6,  64,  6) \
    ADD(                       64,  6,  64,  0, 1, 1) \
    STEP(Keep,                 64,  6,   0) \
    LAYER(Pointwise,       97,  64,  6, 128,  8) \
    STEP(Rectify,             128,  6,   0) \
    LAYER(DepthwiseRelu,   99, 128,  6, 128,  5) \
    LAYER(Pointwise,      101, 128,  6,  64,  7) \
    ADD(                       64,  6,  64,  0, 0, 1) \
    /* Expansion */ \
    LAYER(Pointwise,      103,  64,  6, 256,  7) \
    STEP(Rectify,             256,  6,   0) \
    /* Head */ \
    LAYER(Global,         105, 256,  6, 256,  6) \
    LAYER(FullyConnected, 106, 256,  1, 128,  7) \
    STEP(Normalise,           128,  1,   0)

/* clang-format on */

#endif
