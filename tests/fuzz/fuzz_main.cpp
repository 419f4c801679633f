// One fuzzer: the build names the target.

#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Bytes, size_t Size) {
  MENDWORK_FUZZ_TARGET({Bytes, Size});
  return 0;
}
