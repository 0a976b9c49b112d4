/* SPDX-License-Identifier: MIT */
/* An application as a user of the installed package writes it, in C99. */
#include <orvo/kova_fr.h>
#include <stdio.h>

int main(void) {
    float feature[KOVA_FR_FEATURE_LEN] = {1.0f};
    float distance = 0.0f;
    if (kova_fr_init() != KOVA_FR_OK) {
        return 1;
    }
    if (kova_fr_get_distance(feature, KOVA_FR_FEATURE_LEN, feature, KOVA_FR_FEATURE_LEN,
                             &distance) != KOVA_FR_OK) {
        return 2;
    }
    printf("distance %.1f\n", (double)distance);
    return kova_fr_deinit() == KOVA_FR_OK ? 0 : 3;
}
