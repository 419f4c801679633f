// The benchmark program of the sources that need no platform.

#include "native/console_speed.h"
#include "program.h"
#include "uninstall_log_speed.h"

#include <cstdio>

class TBench {
 public:
  const bool Quick;
};

namespace {

const TCase Cases[] = {
    {"native-log-load", 2, "", [](const TBench& Bench) { return UninstallLogLoad(Bench.Quick); },
     "Load of an uninstall log of 200,000 records, against zlib's crc32 and a copy"},
    {"native-log-save", 2, "", [](const TBench& Bench) { return UninstallLogSave(Bench.Quick); },
     "Save of the same, against the same"},
    {"native-log-growth", 0, "", [](const TBench& Bench) { return UninstallLogGrowth(Bench.Quick); },
     "Load and Save: a record out of 200,000, against one out of 20,000"},
    {"native-mendctl-status", 1, "s", [](const TBench& Bench) { return ConsoleSpeed(Bench.Quick, "status"); },
     "mendctl status of a log of 10,000 entries and 20,000 items: the slowest run"},
    {"native-mendctl-show", 1, "s", [](const TBench& Bench) { return ConsoleSpeed(Bench.Quick, "show"); },
     "mendctl show of the same"},
};

}  // namespace

int main(int Count, char** Words) {
  try {
    return RunProgram({Words + 1, Words + Count}, Cases,
                      [](bool Quick) { return std::make_shared<const TBench>(TBench{Quick}); });
  } catch (const std::exception& Failure) {
    std::printf("mendwork_native_bench: %s\n", Failure.what());
    return 1;
  }
}
