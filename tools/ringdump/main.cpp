// fabvxlan-ringdump: prints the records of a ring file, oldest first, one line
// each, as RingLog::formatRingFile formats them.
//
//   fabvxlan-ringdump <ring-file> [--level N]
//
// Exit status: 0 when the file was read, 1 when it could not be (one line on
// stderr tells why), 2 for a wrong command line.

#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include "fabvxlan/runtime/RingLog.h"

namespace {

constexpr char kProgram[] = "fabvxlan-ringdump";

struct Options {
  std::string path;
  std::optional<int> level;
};

constexpr char const* kUsage = " <ring-file> [--level N]  (N in 0..9)\n";

[[noreturn]] void usageError(std::string const& problem) {
  std::cerr << kProgram << ": " << problem << "\nusage: " << kProgram << kUsage;
  std::exit(2);
}

int parseLevel(std::string const& text) {
  if (text.size() != 1 || text[0] < '0' || text[0] > '9') {
    usageError("--level takes a level 0..9, not \"" + text + "\"");
  }
  return text[0] - '0';
}

Options parseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << "usage: " << kProgram << kUsage;
      std::exit(0);
    }
    if (arg == "--level") {
      if (i + 1 == argc) {
        usageError("--level needs a level");
      }
      options.level = parseLevel(argv[++i]);
    } else if (arg.starts_with("-") || !options.path.empty()) {
      usageError("unexpected argument \"" + arg + "\"");
    } else {
      options.path = arg;
    }
  }
  if (options.path.empty()) {
    usageError("no ring file given");
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  Options const options = parseOptions(argc, argv);
  try {
    for (std::string const& line : RingLog::formatRingFile(options.path, options.level)) {
      std::cout << line << '\n';
    }
  } catch (std::exception const& e) {
    std::cerr << kProgram << ": " << e.what() << '\n';
    return 1;
  }
  return 0;
}
