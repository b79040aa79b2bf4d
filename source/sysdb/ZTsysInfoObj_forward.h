// SPDX-License-Identifier: Apache-2.0
// How the facade hands a call to the process's one manager.

#pragma once

#include <type_traits>

#include "source/sysdb/ZTsysInfoObj.h"

// On a manager that is not valid nothing runs: a status is the manager's error, any other result is
// the null one.
template <typename Operation>
auto zt_SystemDBAccess_class::Forward(Operation operation) {
  using Result = decltype(operation(Manager()));
  if (Manager().ValidObj() == 0) {
    TakeState();
    if constexpr (std::is_same_v<Result, int>)
      return fError;
    else
      return Result();
  }
  if constexpr (std::is_void_v<Result>) {
    operation(Manager());
    TakeState();
  } else {
    const Result result = operation(Manager());
    TakeState();
    return result;
  }
}
