// SPDX-License-Identifier: Apache-2.0
// Operations of the product's interfaces, one of each shape, called with fixed values.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/idl/stub_runtime.h"
#include "tests/support/agent_interfaces.h"

namespace stub_test {

struct ProductCall {
  std::string name;
  rpc::server::Interface* server;
  // Calls the client stub; returns all out-parameters as "status value value ...".
  std::function<std::string()> run;
  // The body in little-endian order, as hexadecimal text; that of the last run.
  std::string request;
  std::string results;  // what run must return when the server answers
};

// A simulated agent that answers, a binding, and contexts for the calls.
class Product {
 public:
  Product();
  Product(const Product&) = delete;
  Product& operator=(const Product&) = delete;

  const std::vector<ProductCall>& calls() const { return calls_; }

 private:
  void add(std::string name, rpc::server::Interface& server, const std::string& request,
           const std::string& results, std::function<std::string()> run);
  void add_rep();
  void add_views();
  void add_time_filter();
  void add_alarms();

  Binding binding_;
  agent::test::Interfaces agent_;
  rpc::WireContext view_;
  rpc::WireContext filter_;
  std::vector<ProductCall> calls_;
};

// A repository whose classes, metrics and instances differ in every field.
std::shared_ptr<agent::DataSource> data_source();

}  // namespace stub_test
