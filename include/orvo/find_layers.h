/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The three networks of the finder, layer by layer in the order in which they run: the one list of what
 * each layer is. The first finds faces; it runs on planes of any size whose sides are multiples of 16.
 * The second looks at each found face once more, on 64 x 64 pixels around it. The third looks from
 * close by, at 64 x 64 pixels of the face alone. It has the second's layers, but begins with patches that
 * overlap.
 *
 * The list calls macros of the reader's:
 *
 *   LAYER(kind, number, inputs, stride, outputs, shift)
 *       A layer with weights and biases. number: that of its tensors. inputs, outputs: channels.
 *       stride: pixels of the picture from one value of its planes to the next. shift: to the
 *       right, of a sum, before it is saturated.
 *         Pointwise   1 x 1
 *         Depthwise   3 x 3, padded, a filter a channel
 *         FullyConnected   of all that its parts hold: inputs are values, not planes
 *   STEP(kind, channels, stride)
 *       A step without parameters; `channels` planes go in.
 *         Patches     makes these planes of the picture. 16: plane 4 * r + c has the pixels
 *                     (4 * y + r, 4 * x + c). 64, of patches that overlap: plane 8 * r + c has the
 *                     pixels (4 * y + r - 2, 4 * x + c - 2); beyond the picture all is 128.
 *         MaxPool2    2 x 2 maximum, stride 2
 *         Rectify
 *         Keep        nothing is done: these planes are read again
 *         Return      goes on from the kept planes
 *         Part        these planes are a part of what the full layer reads
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

#define ORVO_LOOK_NETWORK(LAYER, STEP) \
    /* Stride 4 */ \
    STEP(Patches,    16,  4) \
    LAYER(Pointwise, 27,  16,  4,  32,  7) \
    STEP(Rectify,    32,  4) \
    LAYER(Depthwise, 28,  32,  4,  32,  6) \
    LAYER(Pointwise, 29,  32,  4,  32,  7) \
    STEP(Rectify,    32,  4) \
    LAYER(Depthwise, 30,  32,  4,  32,  6) \
    LAYER(Pointwise, 31,  32,  4,  32,  7) \
    STEP(MaxPool2,   32,  4) \
    STEP(Rectify,    32,  8) \
    /* Stride 8 */ \
    LAYER(Depthwise, 32,  32,  8,  32,  6) \
    LAYER(Pointwise, 33,  32,  8, 128,  7) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 34, 128,  8, 128,  6) \
    LAYER(Pointwise, 35, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 36, 128,  8, 128,  6) \
    LAYER(Pointwise, 37, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 38, 128,  8, 128,  6) \
    LAYER(Pointwise, 39, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 40, 128,  8, 128,  6) \
    LAYER(Pointwise, 41, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 42, 128,  8, 128,  6) \
    LAYER(Pointwise, 43, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 44, 128,  8, 128,  6) \
    LAYER(Pointwise, 45, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    STEP(Keep,      128,  8) \
    /* Where each point is: what stride 8 answers */ \
    LAYER(Depthwise, 46, 128,  8, 128,  6) \
    LAYER(Pointwise, 47, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 48, 128,  8, 128,  6) \
    LAYER(Pointwise, 49, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Pointwise, 50, 128,  8,  16,  7) \
    STEP(Answer,     16,  8) \
    STEP(Return,    128,  8) \
    LAYER(Pointwise, 51, 128,  8,  16,  7) \
    STEP(Rectify,    16,  8) \
    STEP(Part,       16,  8) \
    /* Stride 16 */ \
    STEP(Return,    128,  8) \
    STEP(MaxPool2,  128,  8) \
    LAYER(Depthwise, 52, 128, 16, 128,  6) \
    LAYER(Pointwise, 53, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Depthwise, 54, 128, 16, 128,  6) \
    LAYER(Pointwise, 55, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Depthwise, 56, 128, 16, 128,  6) \
    LAYER(Pointwise, 57, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Pointwise, 58, 128, 16,  32,  8) \
    STEP(Rectify,    32, 16) \
    STEP(Part,       32, 16) \
    /* The rest */ \
    LAYER(FullyConnected, 59, 1536, 64, 16, 10) \
    STEP(Answer,     16, 64)

#define ORVO_CLOSE_NETWORK(LAYER, STEP) \
    /* Stride 4 */ \
    STEP(Patches,    64,  4) \
    LAYER(Pointwise, 60,  64,  4,  32,  7) \
    STEP(Rectify,    32,  4) \
    LAYER(Depthwise, 61,  32,  4,  32,  6) \
    LAYER(Pointwise, 62,  32,  4,  32,  7) \
    STEP(Rectify,    32,  4) \
    LAYER(Depthwise, 63,  32,  4,  32,  6) \
    LAYER(Pointwise, 64,  32,  4,  32,  7) \
    STEP(MaxPool2,   32,  4) \
    STEP(Rectify,    32,  8) \
    /* Stride 8 */ \
    LAYER(Depthwise, 65,  32,  8,  32,  6) \
    LAYER(Pointwise, 66,  32,  8, 128,  7) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 67, 128,  8, 128,  6) \
    LAYER(Pointwise, 68, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 69, 128,  8, 128,  6) \
    LAYER(Pointwise, 70, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 71, 128,  8, 128,  6) \
    LAYER(Pointwise, 72, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 73, 128,  8, 128,  6) \
    LAYER(Pointwise, 74, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 75, 128,  8, 128,  6) \
    LAYER(Pointwise, 76, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 77, 128,  8, 128,  6) \
    LAYER(Pointwise, 78, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    STEP(Keep,      128,  8) \
    /* Where each point is: what stride 8 answers */ \
    LAYER(Depthwise, 79, 128,  8, 128,  6) \
    LAYER(Pointwise, 80, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Depthwise, 81, 128,  8, 128,  6) \
    LAYER(Pointwise, 82, 128,  8, 128,  8) \
    STEP(Rectify,   128,  8) \
    LAYER(Pointwise, 83, 128,  8,  16,  7) \
    STEP(Answer,     16,  8) \
    STEP(Return,    128,  8) \
    LAYER(Pointwise, 84, 128,  8,  16,  7) \
    STEP(Rectify,    16,  8) \
    STEP(Part,       16,  8) \
    /* Stride 16 */ \
    STEP(Return,    128,  8) \
    STEP(MaxPool2,  128,  8) \
    LAYER(Depthwise, 85, 128, 16, 128,  6) \
    LAYER(Pointwise, 86, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Depthwise, 87, 128, 16, 128,  6) \
    LAYER(Pointwise, 88, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Depthwise, 89, 128, 16, 128,  6) \
    LAYER(Pointwise, 90, 128, 16, 128,  8) \
    STEP(Rectify,   128, 16) \
    LAYER(Pointwise, 91, 128, 16,  32,  8) \
    STEP(Rectify,    32, 16) \
    STEP(Part,       32, 16) \
    /* The rest */ \
    LAYER(FullyConnected, 92, 1536, 64, 16, 10) \
    STEP(Answer,     16, 64)

/* clang-format on */

#endif
