// SPDX-License-Identifier: Apache-2.0
// Operations of the product's interfaces, one of each shape, called with fixed values.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/idl/product_servers.h"
#include "tests/idl/stub_runtime.h"
#include "tests/support/agent_interfaces.h"

namespace stub_test {

struct ProductCall {
  std::string name;
  rpc::server::Interface* server;
  const Notes* notes;  // null when the server notes nothing
  // Calls the client stub; returns all out-parameters as "status value value ...".
  std::function<std::string()> run;
  std::string request;  // body in little-endian order, as hexadecimal text
  std::string heard;    // what the server must note
  std::string results;  // what run must return when the server answers
};

// The servers, a binding and contexts for the calls.
class Product {
 public:
  Product();
  ~Product();
  Product(const Product&) = delete;
  Product& operator=(const Product&) = delete;

  const std::vector<ProductCall>& calls() const { return calls_; }

 private:
  void add_rep();
  void add_views();
  void add_time_filter();
  void add_alarms();

  Binding binding_;
  RPC_CONTEXT_HANDLE view_ = nullptr;
  RPC_CONTEXT_HANDLE filter_ = nullptr;
  RepServer rep_;
  TemporalViewServer view_server_;
  TimeFilterServer time_filter_;
  agent::test::Interfaces agent_;
  std::vector<ProductCall> calls_;
};

}  // namespace stub_test
