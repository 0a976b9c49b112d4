// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>

#include "orvo/orvo_find.h"
#include "reference/reference_find_network.h"
#include "support/guarded_buffer.h"

namespace orvo_test {

// A picture whose rows are a stride apart and whose last byte touches an unmapped page; what lies
// between the rows is no grey level of it.
class GuardedPicture {
  public:
    GuardedPicture(const orvo_reference::Grey& grey, int stride,
                   GuardedBuffer::Place place = GuardedBuffer::kAtEnd)
        : bytes_(static_cast<size_t>((grey.height - 1) * stride + grey.width), place),
          picture_{bytes_.bytes(), grey.width, grey.height, stride} {
        for (int y = 0; y < grey.height; ++y) {
            std::memcpy(bytes_.bytes() + static_cast<ptrdiff_t>(y) * stride,
                        grey.pixels.data() + static_cast<ptrdiff_t>(y) * grey.width,
                        static_cast<size_t>(grey.width));
        }
        bytes_.MakeReadOnly();
    }

    const OrvoFindPicture& operator*() const { return picture_; }
    const OrvoFindPicture* get() const { return &picture_; }

  private:
    GuardedBuffer bytes_;
    OrvoFindPicture picture_;
};

} // namespace orvo_test
