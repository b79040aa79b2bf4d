// SPDX-License-Identifier: Apache-2.0
// The three descriptors that every process expects to be open.

#pragma once

namespace sys {

// Opens whichever of standard input, output and error the caller has closed, on /dev/null. The next
// file or socket would otherwise get its number, and what the program prints would be written into
// it. What is printed to a standard output that was closed fails, as it should. Call it before
// anything is opened. False when it cannot be done; the program must not go on then.
bool KeepStandardStreams();

// From now on calls `before` whenever standard output or error goes to a pipe, socket or terminal
// that takes nothing more for now, so that the program is about to sleep until its reader goes on.
// It must not print. To be called once, before anything is printed.
void BeforeSlowOutput(void (*before)());

}  // namespace sys
