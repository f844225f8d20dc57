#include "host/launcher/options.h"

#include <getopt.h>
#include <grp.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace launcher {
namespace {

constexpr int kUsageError = 2;

void PrintUsage(FILE* to) {
  fprintf(to,
          "Usage: kesd-launch [--socket PATH] [--mode MODE] [--group NAME] [--] PROGRAM [ARGUMENT...]\n"
          "\n"
          "Makes a listening Unix stream socket, hands it to PROGRAM as the control socket \"kesd\"\n"
          "(variable ANDROID_SOCKET_kesd) and becomes PROGRAM.\n"
          "\n"
          "  --socket PATH  where the socket is made (default %s);\n"
          "                 one that nobody serves any more is replaced\n"
          "  --mode MODE    the socket's permissions, octal (default 0660)\n"
          "  --group NAME   the group that owns the socket\n"
          "  --help         print this and stop\n"
          "\n"
          "Exit status, unless PROGRAM runs: 1 failure, 2 wrong usage, 127 PROGRAM not found.\n",
          kDefaultSocketPath);
}

std::optional<mode_t> ParseMode(std::string_view text) {
  unsigned mode = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
  if (error != std::errc() || end != text.data() + text.size() || mode > 0777) return std::nullopt;
  return static_cast<mode_t>(mode);
}

int Wrong(const char* what, const char* value) {
  fprintf(stderr, "kesd-launch: %s: %s\n", what, value);
  return kUsageError;
}

}  // namespace

std::variant<Options, int> ParseOptions(int argc, char** argv) {
  const option kOptions[] = {{"socket", required_argument, nullptr, 's'},
                             {"mode", required_argument, nullptr, 'm'},
                             {"group", required_argument, nullptr, 'g'},
                             {"help", no_argument, nullptr, 'h'},
                             {nullptr, 0, nullptr, 0}};
  Options options;
  int found = 0;
  while ((found = getopt_long(argc, argv, "+", kOptions, nullptr)) != -1) {
    switch (found) {
      case 's':
        options.socketPath = optarg;
        break;
      case 'm': {
        const std::optional<mode_t> mode = ParseMode(optarg);
        if (!mode) return Wrong("the mode is not an octal number up to 0777", optarg);
        options.mode = *mode;
        break;
      }
      case 'g': {
        const group* const entry = getgrnam(optarg);
        if (entry == nullptr) return Wrong("there is no such group", optarg);
        options.group = entry->gr_gid;
        break;
      }
      case 'h':
        PrintUsage(stdout);
        return 0;
      default:
        PrintUsage(stderr);
        return kUsageError;
    }
  }
  if (optind == argc) {
    fputs("kesd-launch: no program was named\n\n", stderr);
    PrintUsage(stderr);
    return kUsageError;
  }
  options.program = argv + optind;
  return options;
}

}  // namespace launcher
