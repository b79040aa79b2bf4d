// SPDX-License-Identifier: Apache-2.0
#include "present/util/variable.h"

#include "present/util/util.h"

Variable::Variable(const char* metric_name, const FieldParm& description, int class_type)
    : name(metric_name), classtype(class_type), fp(description) {
  val.SetScaledVal(static_cast<short>(description.scale), 0);
}

Variable& Variable::operator=(int integer) {
  if (!numeric())
    Fatal(__FILE__, __LINE__, "Alphanumeric value assigned a number");
  val.SetScaledVal(static_cast<short>(fp.scale), integer);
  return *this;
}

Variable& Variable::operator=(const char* text) {
  if (numeric())
    Fatal(__FILE__, __LINE__, "Numeric value assigned a string");
  val = text;
  return *this;
}

double Variable::GetNumber() const {
  if (!numeric())
    Fatal(__FILE__, __LINE__, "GetNumber on alphanumeric variable");
  return val.number();
}

const char* Variable::GetString() const {
  if (numeric())
    Fatal(__FILE__, __LINE__, "GetString on numeric variable");
  return val.type == Value::kText ? val.strval : "";
}
