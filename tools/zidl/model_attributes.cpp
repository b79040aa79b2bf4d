// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/model_attributes.h"

#include <algorithm>
#include <set>

namespace zidl {

namespace {

std::size_t arguments_of(std::string_view name) {
  if (name == "size_is" || name == "length_is" || name == "pointer_default")
    return 1;
  return name == "range" ? 2 : 0;
}

}  // namespace

std::string quoted(const std::string& text) {
  return "'" + text + "'";
}

Attributes::Attributes(const std::vector<syntax::Attribute>& attributes,
                       std::initializer_list<std::string_view> allowed, const char* owner,
                       Reporter& reporter)
    : attributes_(attributes), reporter_(reporter) {
  std::set<std::string_view> seen;
  for (const syntax::Attribute& attribute : attributes) {
    const std::string& name = attribute.name.text;
    if (std::find(allowed.begin(), allowed.end(), name) == allowed.end())
      report_unsupported(attribute, owner);
    else if (!seen.insert(name).second)
      reporter.error(attribute.name.at, "attribute " + quoted(name) + " given twice");
    else if (attribute.arguments.size() != arguments_of(name))
      reporter.error(attribute.name.at, "attribute " + quoted(name) + " takes " +
                                            std::to_string(arguments_of(name)) + " argument" +
                                            (arguments_of(name) == 1 ? "" : "s"));
  }
}

const syntax::Attribute* Attributes::find(std::string_view name) const {
  for (const syntax::Attribute& attribute : attributes_) {
    if (attribute.name.text == name)
      return &attribute;
  }
  return nullptr;
}

const syntax::Expression* Attributes::argument(std::string_view name) const {
  const syntax::Attribute* attribute = find(name);
  return attribute == nullptr || attribute->arguments.size() != 1 ? nullptr
                                                                  : &attribute->arguments[0];
}

bool Attributes::has_none_of(std::initializer_list<std::string_view> names,
                             const char* owner) const {
  for (const std::string_view name : names) {
    if (const syntax::Attribute* found = find(name)) {
      report_unsupported(*found, owner);
      return false;
    }
  }
  return true;
}

void Attributes::report_unsupported(const syntax::Attribute& attribute, const char* owner) const {
  reporter_.error(attribute.name.at,
                  "attribute " + quoted(attribute.name.text) + " is not supported on " + owner);
}

}  // namespace zidl
