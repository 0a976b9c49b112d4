// SPDX-License-Identifier: MIT
// The program whose precompiled header all tests share; see tests/PrecompiledHeader.cmake.
int main() {}
