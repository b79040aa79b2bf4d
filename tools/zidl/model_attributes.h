// SPDX-License-Identifier: Apache-2.0
// The attributes of one thing, looked up by name.

#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zidl/reporter.h"
#include "tools/zidl/syntax.h"

namespace zidl {

std::string quoted(const std::string& text);

class Attributes {
 public:
  // Reports every attribute that is not `allowed` on such an `owner` or stands there twice. The
  // attributes are not owned.
  Attributes(const std::vector<syntax::Attribute>& attributes,
             std::initializer_list<std::string_view> allowed, const char* owner,
             Reporter& reporter);

  // Null when it is not there.
  const syntax::Attribute* find(std::string_view name) const;
  bool has(std::string_view name) const { return find(name) != nullptr; }
  // Whether none of these is there; reports the first that is, as not supported on such an `owner`.
  bool has_none_of(std::initializer_list<std::string_view> names, const char* owner) const;
  // The one argument; null when the attribute or its argument is missing.
  const syntax::Expression* argument(std::string_view name) const;

 private:
  void report_unsupported(const syntax::Attribute& attribute, const char* owner) const;

  const std::vector<syntax::Attribute>& attributes_;
  Reporter& reporter_;
};

}  // namespace zidl
