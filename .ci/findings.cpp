// SPDX-License-Identifier: MIT
// What `./run lint` has to find, each time before it looks at anything else. Nobody compiles this.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

struct Named {
    std::string name;
};

template <typename Container>
bool Nothing(const Container& container) {
    if (container.size() > 9) {
        return false;
    } else { // readability-else-after-return, in a template
        return container.empty();
    }
}

TEST(Findings, AreInTheBodyOfATest) {
    Named first{"name"};
    const Named second = std::move(first);
    EXPECT_EQ(first.name, second.name); // bugprone-use-after-move, in a macro
    std::vector<int> values{1, 2};
    const auto wrong = [&values] {
        return sizeof(values);
    }; // bugprone-sizeof-container, in a lambda
    if (wrong() > 3)
        EXPECT_FALSE(Nothing(values)); // readability-braces-around-statements
}

} // namespace
