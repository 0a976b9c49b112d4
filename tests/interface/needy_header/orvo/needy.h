/* SPDX-License-Identifier: MIT */
/* Does not stand alone: whoever includes it has to include <stdint.h> first. */
#ifndef ORVO_NEEDY_H
#define ORVO_NEEDY_H
uint32_t OrvoNeedy(void);
#endif
