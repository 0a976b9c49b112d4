/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The network that finds faces, layer by layer in the order in which it runs: the one list of what
 * each layer is. It runs on planes of any size whose sides are multiples of 16.
 *
 * The list calls macros of the reader's:
 *
 *   LAYER(kind, number, inputs, stride, outputs, shift)
 *       A layer with weights and biases. number: that of its tensors. inputs, outputs: channels.
 *       stride: pixels of the picture from one value of its planes to the next. shift: to the
 *       right, of a sum, before it is saturated.
 *         Pointwise   1 x 1
 *         Depthwise   3 x 3, padded, a filter a channel
 *   STEP(kind, channels, stride)
 *       A step without parameters; `channels` planes go in.
 *         Patches     makes these planes of the picture: plane 4 * r + c has the pixels
 *                     (4 * y + r, 4 * x + c)
 *         MaxPool2    2 x 2 maximum, stride 2
 *         Rectify
 *         Keep        nothing is done: these planes are read again
 *         Return      goes on from the kept planes
 *         Answer      these planes are what the network says of that stride
 */
#ifndef ORVO_FIND_LAYERS_H
#define ORVO_FIND_LAYERS_H

/* clang-format off */

#define ORVO_FIND_NETWORK(LAYER, STEP) \
    /* Stride 4 */ \
    STEP(Patches,    16,  4) \
    LAYER(Pointwise,  0,  16,  4,  32,  7) \
    STEP(Rectify,    32,  4) \
    LAYER(Depthwise,  1,  32,  4,  32,  6) \
    LAYER(Pointwise,  2,  32,  4,  32,  7) \
    STEP(Rectify,    32,  4) \
    LAYER(Depthwise,  3,  32,  4,  32,  6) \
    LAYER(Pointwise,  4,  32,  4,  32,  7) \
    STEP(MaxPool2,   32,  4) \
    STEP(Rectify,    32,  8) \
    /* Stride 8 */ \
    LAYER(Depthwise,  5,  32,  8,  32,  6) \
    LAYER(Pointwise,  6,  32,  8,  64,  7) \
    STEP(Rectify,    64,  8) \
    LAYER(Depthwise,  7,  64,  8,  64,  6) \
    LAYER(Pointwise,  8,  64,  8,  64,  7) \
    STEP(Rectify,    64,  8) \
    LAYER(Depthwise,  9,  64,  8,  64,  6) \
    LAYER(Pointwise, 10,  64,  8,  64,  7) \
    STEP(Rectify,    64,  8) \
    LAYER(Depthwise, 11,  64,  8,  64,  6) \
    LAYER(Pointwise, 12,  64,  8,  64,  7) \
    STEP(Rectify,    64,  8) \
    STEP(Keep,       64,  8) \
    /* What stride 8 answers */ \
    LAYER(Depthwise, 13,  64,  8,  64,  6) \
    LAYER(Pointwise, 14,  64,  8,  64,  7) \
    STEP(Rectify,    64,  8) \
    LAYER(Pointwise, 15,  64,  8,  16,  8) \
    STEP(Answer,     16,  8) \
    /* Stride 16 */ \
    STEP(Return,     64,  8) \
    STEP(MaxPool2,   64,  8) \
    LAYER(Depthwise, 16,  64, 16,  64,  6) \
    LAYER(Pointwise, 17,  64, 16, 128,  7) \
    STEP(Rectify,   128, 16) \
    LAYER(Depthwise, 18, 128, 16, 128,  6) \
    LAYER(Pointwise, 19, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Depthwise, 20, 128, 16, 128,  6) \
    LAYER(Pointwise, 21, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Depthwise, 22, 128, 16, 128,  6) \
    LAYER(Pointwise, 23, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    /* What stride 16 answers */ \
    LAYER(Depthwise, 24, 128, 16, 128,  6) \
    LAYER(Pointwise, 25, 128, 16,  64,  8) \
    STEP(Rectify,    64, 16) \
    LAYER(Pointwise, 26,  64, 16,  16,  8) \
    STEP(Answer,     16, 16)

/* clang-format on */

#endif
