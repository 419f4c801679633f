#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

// What the fuzzers try out: each takes any bytes, hands them to a reader and ends the program when a promise of the
// reader is broken; the sanitizers watch the rest. The first byte chooses what is done with the others.

using TFuzzInput = std::span<const uint8_t>;
using TFuzzTarget = void (*)(TFuzzInput Input);

/// TUninstallLog::Load, and that what loads can be saved and appended to. The first byte tells which checksums are made
/// good, because no change of a byte gets past them.
void FuzzUninstallLog(TFuzzInput Input);
constexpr uint8_t AcceptHeader = 1, AcceptBlocks = 2;
/// TUninstallLog::ExtractRecordStrings. The first byte is the number of strings that there is room for.
void FuzzRecordStrings(TFuzzInput Input);
/// The readers of backup items, in the order of their structs, and of comma text.
void FuzzBackupItems(TFuzzInput Input);

struct TFuzzTargetRow {
  const char* Name;  ///< of the program and of the folder with the kept inputs
  TFuzzTarget Run;
};
constexpr TFuzzTargetRow FuzzTargets[] = {
    {"uninstall_log", FuzzUninstallLog}, {"record_strings", FuzzRecordStrings}, {"backup_items", FuzzBackupItems}};

/// Ends the program, so that the fuzzer keeps the input, when a promise does not hold.
void Promise(bool Holds, const char* What);
