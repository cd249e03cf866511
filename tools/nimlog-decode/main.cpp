// nimlog-decode: prints a Nimlog trace file as text, one record per line, oldest first.
//
//   nimlog-decode <trace-file>
//
// A missing or damaged file gives one line on stderr and exit status 1; a wrong command
// line gives the usage on stderr and exit status 2.
#include <cstdio>
#include <exception>
#include <string>

#include "nimlog/Decode.h"

int main(int argc, char** argv) {
  if (argc != 2 || argv[1][0] == '\0') {
    std::fputs("usage: nimlog-decode <trace-file>\n", stderr);
    return 2;
  }
  try {
    const Nimlog::DecodedTrace trace = Nimlog::decodeFile(argv[1]);
    for (const Nimlog::DecodedRecord& record : trace.records) {
      const std::string line = Nimlog::formatRecord(record) + "\n";
      if (std::fputs(line.c_str(), stdout) == EOF) {
        std::fputs("nimlog-decode: cannot write the output\n", stderr);
        return 1;
      }
    }
    if (trace.incomplete != 0) {
      std::fprintf(stderr,
                   "nimlog-decode: %s: skipped %llu incomplete record%s (being written or torn)\n",
                   argv[1], static_cast<unsigned long long>(trace.incomplete),
                   trace.incomplete == 1 ? "" : "s");
    }
    if (std::fflush(stdout) != 0) {
      std::fputs("nimlog-decode: cannot write the output\n", stderr);
      return 1;
    }
    return 0;
  } catch (const Nimlog::DecodeError& error) {
    std::fprintf(stderr, "nimlog-decode: %s\n", error.what());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "nimlog-decode: %s: %s\n", argv[1], error.what());
  }
  return 1;
}
