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
  // The one argument; null when the attribute or its argument is missing.
  const syntax::Expression* argument(std::string_view name) const;

 private:
  const std::vector<syntax::Attribute>& attributes_;
};

}  // namespace zidl
