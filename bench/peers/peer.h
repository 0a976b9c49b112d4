// SPDX-License-Identifier: MIT
//
// The two networks as another engine runs them.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/networks.h"

namespace orvo_bench {

// A layer with what follows it fused in: engines do in one go what are several kernels here.
struct FusedLayer {
    Layer layer;
    bool rectified = false; // a rectifier follows
    int stride = 1;         // 2 where every second pixel is all that is left of a depthwise layer

    int outSize() const { return (OutSize(layer) + stride - 1) / stride; }
};

std::vector<FusedLayer> Fuse(const Network& network);

struct PeerStep {
    std::string kind; // as KindName()
    std::function<void()> run;
};

struct Peer {
    std::string name;
    std::vector<PeerStep> align;
    std::vector<PeerStep> recognition;
};

Peer OneDnn();
Peer Xnnpack();

// Milliseconds by kind of layer.
using KindTimes = std::map<std::string, double>;

// What is measured in turn.
struct Contender {
    std::string name;
    std::function<void()> align;
    std::function<void()> recognise;
    std::function<KindTimes()> timeKinds; // of one face
};

Contender Own();

// Activations live in three slots, as in our networks: each layer writes the one that holds neither
// its input nor a kept shortcut.
class SlotChooser {
  public:
    int input() const { return input_; }
    int shortcut() const { return shortcut_; }
    int output() const {
        int slot = 0;
        while (slot == input_ || slot == shortcut_) {
            ++slot;
        }
        return slot;
    }
    void wrote(int slot, bool keep) {
        input_ = slot;
        if (keep) {
            shortcut_ = slot;
        }
    }

    void moveShortcut(int slot) { shortcut_ = slot; }

  private:
    int input_ = 0;
    int shortcut_ = -1;
};

inline constexpr size_t kSlotBytes = 48 * 96 * 96;

template <typename T>
std::vector<T> RandomValues(size_t count, int lowest, int highest) {
    static std::minstd_rand generator(1);
    std::uniform_int_distribution<int> value(lowest, highest);
    std::vector<T> values(count);
    for (T& v : values) {
        v = static_cast<T>(value(generator));
    }
    return values;
}

} // namespace orvo_bench
