// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/catalog.h"

#include <fcntl.h>
#include <nl_types.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

#include "platform/sys/native_path.h"

namespace catalog {
namespace {

const auto kNotOpened = reinterpret_cast<nl_catd>(-1);

// The C library opens one when its first text is wanted: a run without a message needs none.
struct Catalog {
  std::string path;
  int flag;
  nl_catd opened = kNotOpened;
};

std::map<int, Catalog>& catalogs() {
  static std::map<int, Catalog> the_catalogs;
  return the_catalogs;
}

// The C library checks where a catalog's texts begin, not that the last one ends; and it would wait
// at a pipe that stands in the file's place.
bool is_whole_file(const char* path) {
  const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0)
    return false;
  struct ::stat status {};
  char last = 'x';
  const bool whole = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
                     status.st_size > 0 && ::pread(descriptor, &last, 1, status.st_size - 1) == 1 &&
                     last == '\0';
  ::close(descriptor);
  return whole;
}

}  // namespace

int catopen(const char* path, int flag) {
  std::string native = sys::native_path(path);
  if (native.find('/') == std::string::npos)
    native.insert(0, "./");
  if (!is_whole_file(native.c_str()))
    return -1;
  static int next_descriptor = 0;
  catalogs().emplace(next_descriptor, Catalog{native, flag});
  return next_descriptor++;
}

const char* catgets(int descriptor, int set, int message, const char* default_text) {
  const auto found = catalogs().find(descriptor);
  if (found == catalogs().end())
    return default_text;
  Catalog& wanted = found->second;
  if (wanted.opened == kNotOpened)
    wanted.opened = ::catopen(wanted.path.c_str(), wanted.flag);
  return wanted.opened == kNotOpened ? default_text
                                     : ::catgets(wanted.opened, set, message, default_text);
}

int catclose(int descriptor) {
  const auto found = catalogs().find(descriptor);
  if (found == catalogs().end())
    return -1;
  const nl_catd opened = found->second.opened;
  catalogs().erase(found);
  return opened == kNotOpened ? 0 : ::catclose(opened);
}

}  // namespace catalog
