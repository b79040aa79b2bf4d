// SPDX-License-Identifier: Apache-2.0
// Trace lines of the diagnostic: entry and exit of traced operations and free-form lines between
// them, time-stamped and indented by depth, on standard error. Silent until switched on.

#pragma once

class zt_DiagCommTrace_class {
 public:
  static void SetDebugOn() { fDebugOn = 1; }  // for the rest of the run
  static int ReturnDebugOn() { return fDebugOn; }

  // The qualified name of the operation. Each Enter needs its Exit, on every way out.
  static void TraceEnter(const char* operation);
  static void TraceExit(const char* operation);
  [[gnu::format(printf, 1, 2)]] static void LogMsg(const char* format, ...);

 private:
  static int fDebugOn;
  static int fDebugLevel;
};

extern zt_DiagCommTrace_class gTraceObj;

// Traces the entry of an operation, and its exit on whatever way the block is left.
class TracedOperation {
 public:
  explicit TracedOperation(const char* operation) : operation_(operation) {
    gTraceObj.TraceEnter(operation_);
  }
  ~TracedOperation() { gTraceObj.TraceExit(operation_); }
  TracedOperation(const TracedOperation&) = delete;
  TracedOperation& operator=(const TracedOperation&) = delete;

 private:
  const char* operation_;
};
