// SPDX-License-Identifier: Apache-2.0
// A scenario file, of any bytes. What is accepted must be what servers can be made of.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "agent/repository.h"
#include "agent/scenario.h"
#include "tests/fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto parsed = agent::parse_scenario(text, 1'700'000'000);
  for (const auto& error : parsed.errors)
    fuzz::require(!error.text.empty() && error.line != 0 && fuzz::is_printable(error.text));
  if (!parsed.errors.empty())
    return 0;
  for (const agent::System& system : parsed.scenario.systems)
    for (const agent::RepositoryServer& server : system.repositories) {
      const agent::Repository repository(server.source);
      for (const agent::ClassData& data_class : server.source->classes) {
        agent::ViewDefinition definition;
        definition.table = repository.table(data_class.id);
        for (std::size_t i = 0; i < data_class.metrics.size(); ++i)
          definition.metrics.push_back(i);
        agent::View(definition).read({16, 256, 4096});
      }
    }
  return 0;
}
