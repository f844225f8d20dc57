// What the finished daemon asks of the platform. A device's linker refuses a name that its libraries do not have, and
// takes silently one whose meaning has changed: the list is changed by hand only.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/startup/lines_of.h"

namespace {

using testing_process::LinesOf;
using Names = std::set<std::string>;

constexpr char kKesd[] = KESD_BINARY_DIR "/bin/kesd";
constexpr char kList[] = KESD_SOURCE_DIR "/tests/startup/platform_symbols.txt";

Names Without(const Names& all, const Names& removed) {
  Names rest;
  std::set_difference(all.begin(), all.end(), removed.begin(), removed.end(), std::inserter(rest, rest.end()));
  return rest;
}

// The undefined dynamic symbols, without their versions.
Names ImportedSymbols() {
  Names names;
  for (const std::string& line : LinesOf({NM, "--dynamic", "--undefined-only", "--portability", kKesd})) {
    names.insert(line.substr(0, line.find_first_of("@ ")));
  }
  return names;
}

bool IsOfThePlatform(const std::string& name) {
  return name.find("9zv_loc_fw") != std::string::npos || name.rfind("android_", 0) == 0 || name.rfind("Fenk", 0) == 0;
}

// The names of the list: the first word of each line that is no comment.
Names ListedSymbols() {
  Names names;
  std::ifstream list(kList);
  for (std::string line; std::getline(list, line);) {
    std::string name;
    if (std::istringstream(line) >> name && name[0] != '#') names.insert(name);
  }
  return names;
}

TEST(PlatformSymbols, AreTheListedOnes) {
#ifdef SANITIZED
  GTEST_SKIP() << "a sanitizer's own symbols replace and add some";
#endif
  const Names imported = ImportedSymbols();
  Names ofThePlatform;
  std::copy_if(imported.begin(), imported.end(), std::inserter(ofThePlatform, ofThePlatform.end()), IsOfThePlatform);
  EXPECT_EQ(Without(ofThePlatform, ListedSymbols()), Names()) << "imported, but not in " << kList;
  EXPECT_EQ(Without(ListedSymbols(), ofThePlatform), Names()) << "in " << kList << ", but not imported";
  EXPECT_EQ(Without({"dlopen", "dlsym", "dlclose", "sleep"}, imported), Names()) << "not called by kesd itself";
}

TEST(PlatformSymbols, ComeFromTheLinkedLibrariesAlone) {
#ifdef SANITIZED
  GTEST_SKIP() << "a sanitizer brings libraries of its own";
#endif
  const std::string kMark = "Shared library: [";
  const Names platform = {"libvexo_client.so", "libzv_loc_fw.so", "libcutils.so"};
  const Names runtime = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"};
  Names needed;
  for (const std::string& line : LinesOf({READELF, "--dynamic", "--wide", kKesd})) {
    const size_t start = line.find(kMark);
    if (start == std::string::npos) continue;
    const std::string name = line.substr(start + kMark.size());
    if (name.rfind("ld-linux", 0) != 0) needed.insert(name.substr(0, name.find(']')));
  }
  EXPECT_EQ(Without(needed, runtime), platform);
}

}  // namespace
