// What makes a fault in the finished programs and libraries harder to use, read from the files themselves.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/startup/lines_of.h"

namespace {

using testing_process::LinesOf;

std::vector<std::string> BuiltFiles() {
  std::vector<std::string> files;
  for (const char* folder : {KESD_BINARY_DIR "/bin", KESD_BINARY_DIR "/lib/kesd"}) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
  }
  return files;
}

bool Has(const std::vector<std::string>& lines, const char* pattern) {
  const std::regex wanted(pattern);
  return std::any_of(lines.begin(), lines.end(), [&](const auto& line) { return std::regex_search(line, wanted); });
}

// The functions of the file that may be reached by an indirect call and do not begin with a landing pad for it. Hidden
// ones of a library are local symbols, as are parts of functions (".cold") and what the C library puts in.
std::set<std::string> WithoutLandingPad(const std::string& file, size_t& looked) {
  std::set<std::string> reachable;
  const std::regex function(R"(FUNC +(?:GLOBAL|WEAK) +\w+ +\d+ (_Z\w+|main|vexo_\w+|Fenk\w+|android_\w+)$)");
  std::smatch match;
  for (const std::string& line : LinesOf({READELF, "--symbols", "--wide", file})) {
    if (std::regex_search(line, match, function)) reachable.insert(match[1]);
  }
  std::set<std::string> without;
  const std::regex start(R"(^[0-9a-f]+ <(.+)>:$)");
  const std::regex landingPad(R"(\s(endbr64|bti\s+c|pacia?sp|pacibsp))");
  std::string entered;
  for (const std::string& line : LinesOf({OBJDUMP, "--disassemble", "--no-show-raw-insn", "--section=.text", file})) {
    if (!entered.empty() && !std::regex_search(line, landingPad)) without.insert(entered);
    looked += !entered.empty();
    entered.clear();
    if (std::regex_match(line, match, start) && reachable.count(match[1]) != 0) entered = match[1];
  }
  return without;
}

TEST(Hardening, IsInEveryProgramAndLibrary) {
#ifdef SANITIZED
  GTEST_SKIP() << "a sanitizer has its own ways";
#endif
  bool anyFortified = false;
  const std::vector<std::string> files = BuiltFiles();
  EXPECT_GE(files.size(), 7U);
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const std::vector<std::string> headers =
        LinesOf({READELF, "--file-header", "--segments", "--dynamic", "--wide", file});
    EXPECT_TRUE(Has(headers, R"(Type: +DYN)")) << "not position independent";
    EXPECT_TRUE(Has(headers, R"(GNU_RELRO)") && Has(headers, R"(FLAGS.*NOW)")) << "relocations stay writable";
    EXPECT_TRUE(Has(headers, R"(GNU_STACK.* RW +0x)")) << "executable stack";
    EXPECT_FALSE(Has(headers, R"(LOAD.* RWE )")) << "writable code";
    EXPECT_FALSE(Has(headers, R"(TEXTREL)")) << "code that is relocated";
    const std::vector<std::string> imports = LinesOf({NM, "--dynamic", "--undefined-only", file});
    EXPECT_TRUE(Has(imports, R"(__stack_chk_fail)")) << "no stack protector";
    anyFortified = anyFortified || Has(imports, R"( __\w+_chk(@|$))");
    size_t looked = 0;
    EXPECT_EQ(WithoutLandingPad(file, looked), std::set<std::string>()) << "entered without a landing pad";
    EXPECT_GT(looked, 0U) << "no function was found";
  }
  EXPECT_TRUE(anyFortified) << "no checked variant of a C library function is called";
}

}  // namespace
