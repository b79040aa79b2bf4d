// SPDX-License-Identifier: Apache-2.0
#include "tests/endtoend/scenario_text.h"

namespace endtoend {
namespace {

int next_source = 1;

}  // namespace

SourceText::SourceText(std::string name) : name_(std::move(name)) {
  text_ = "[source." + name_ + "]\nid = " + std::to_string(next_source++) + "\npath = \"/var/opt/" +
          name_ + "\"\n";
}

SourceText& SourceText::with_class(const std::string& name, std::string_view settings) {
  text_ += "[[source." + name_ + ".class]]\nid = " + std::to_string(++classes_) + "\nname = \"" +
           name + "\"\n" + std::string(settings) + "\n";
  metrics_ = 0;
  return *this;
}

SourceText& SourceText::metric(const std::string& name, std::string_view settings) {
  text_ += "[[source." + name_ +
           ".class.metric]]\nid = " + std::to_string(100 * classes_ + ++metrics_) + "\nname = \"" +
           name + "\"\n" + std::string(settings) + "\n";
  return *this;
}

std::string system_alpha(std::initializer_list<std::string_view> sources,
                         std::string_view settings) {
  std::string text = "[[system]]\nname = \"alpha\"\naddress = \"127.0.1.1\"\n";
  for (const std::string_view source : sources)
    text += "[[system.repository]]\nsource = \"" + std::string(source) + "\"\n" +
            std::string(settings) + "\n";
  return text + "[system.alarm]\n";
}

std::string heading(const std::string& command_line, const std::string& target,
                    const std::string& address) {
  return command_line + "\n\nLocal System : console (127.0.0.2)\nTarget System: " + target + " (" +
         (address.empty() ? target : address) + ")\n\n";
}

std::string heading_of_alpha(const std::string& command_line) {
  return heading(command_line, "alpha", "127.0.1.1");
}

bool sanitizer_spoke(std::string_view err) {
  return err.find("Sanitizer") != std::string_view::npos ||
         err.find("runtime error:") != std::string_view::npos;
}

}  // namespace endtoend
