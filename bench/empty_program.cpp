// SPDX-License-Identifier: Apache-2.0
// The baseline of a program's start: what the loader and the C++ runtime cost alone.

int main() {}
