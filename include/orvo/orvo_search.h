/* SPDX-License-Identifier: MIT */
/**
 * @file
 * One feature among many (1:N): which entries of a gallery are most alike to it. Exact: every distance
 * has the very bits of OrvoFrGetDistance(), and nothing is left out. libkova exports it; libkova_fr
 * does not.
 *
 * Entries are features one behind another, ORVO_SEARCH_FEATURE_LENGTH floats each, in plain memory that the
 * caller has: an array, or a file that was mapped.
 *
 * Threads: the functions read only their arguments and keep no state, so any number of threads may call them at
 * any time. Whoever wants to use several gives each a part of the entries and a list of its own, and puts the
 * lists together with OrvoSearchMerge(); the result is the same as in one piece.
 *
 * Neither OrvoFrInit() nor working memory is needed; nothing is allocated. Arguments must not overlap, but
 * what is only read may. Every failure prints one line to standard error, "[ERR] UNIT:LINE TEXT".
 */
#ifndef ORVO_ORVO_SEARCH_H
#define ORVO_ORVO_SEARCH_H

#include <stdint.h>

#include "orvo/export.h"

ORVO_C_BEGIN

/** Status codes. They have the values of the core's. */
enum {
    ORVO_SEARCH_OK = 0,           /**< success */
    ORVO_SEARCH_NULL_ADDRESS = 1, /**< a required address is null */
    ORVO_SEARCH_WRONG_SIZE =
        2 /**< a list claims more matches than it has room for, or indices overflow */
};

enum { ORVO_SEARCH_FEATURE_LENGTH = 128 /**< floats in a feature */ };

/** An entry that was found. */
typedef struct {
    uint32_t index;
    float distance; /**< as OrvoFrGetDistance() has it: the larger, the more alike */
} OrvoSearchMatch;

/**
 * Distances of one feature to entries.
 *
 * @param feature    ORVO_SEARCH_FEATURE_LENGTH floats
 * @param entries    count * ORVO_SEARCH_FEATURE_LENGTH floats; may be null if count is 0
 * @param count      entries
 * @param distances  count floats are written
 * @return ORVO_SEARCH_OK or ORVO_SEARCH_NULL_ADDRESS; nothing is written then
 */
ORVO_API_SINCE(1, 1)
int32_t OrvoSearchDistances(const float* feature, const float* entries, uint32_t count,
                            float* distances);

/**
 * Looks through entries and keeps the best in a list, best first: the larger distance, and of equal ones
 * the smaller index. An entry whose distance is not a number is never kept.
 *
 * Entries that come in parts are searched by one call after the other with the same list. `room` is meant
 * to be small, such as 10: putting a match into its place takes time that grows with it.
 *
 * @param feature   ORVO_SEARCH_FEATURE_LENGTH floats
 * @param entries   count * ORVO_SEARCH_FEATURE_LENGTH floats; may be null if count is 0
 * @param count     entries
 * @param first     the index that the first of these entries has
 * @param matches   the list
 * @param room      how many matches it has room for; with 0 nothing is found and `matches` may be null
 * @param found     how many it holds, in their order: 0 before the first call; updated
 * @return ORVO_SEARCH_OK, ORVO_SEARCH_NULL_ADDRESS or ORVO_SEARCH_WRONG_SIZE; on failure nothing is written
 */
ORVO_API_SINCE(1, 1)
int32_t OrvoSearchBest(const float* feature, const float* entries, uint32_t count, uint32_t first,
                       OrvoSearchMatch* matches, uint32_t room, uint32_t* found);

/**
 * Puts the matches of another list into this one: what two threads found in two parts.
 *
 * @param matches  the list, in its order
 * @param room     how many matches it has room for
 * @param found    how many it holds; updated
 * @param others   matches in any order; may be null if count is 0
 * @param count    how many these are
 * @return as OrvoSearchBest()
 */
ORVO_API_SINCE(1, 1)
int32_t OrvoSearchMerge(OrvoSearchMatch* matches, uint32_t room, uint32_t* found,
                        const OrvoSearchMatch* others, uint32_t count);

ORVO_C_END

#endif
