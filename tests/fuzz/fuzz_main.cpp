// One fuzzer: the build names the target.

#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Bytes, size_t Size) {
  if (Size > 0) MENDWORK_FUZZ_TARGET({Bytes, Size});
  return 0;
}
