// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): a connection given
// up from outside.

#include "source/domain/ZTrpcSystemObj.h"

void RPC_MONITORED_SYSTEM_OBJ::ConnectionLost() {
  objValidObject = 0;
  objConnectionStatus = CONNECTION_BAD;
}
