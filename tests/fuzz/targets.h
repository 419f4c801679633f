#pragma once

#include "formats/uninstall_log.h"

#include <cstdint>
#include <span>
#include <string>

// What the fuzzers try out: each takes any bytes, hands them to a reader and ends the program when a promise of the
// reader is broken; the sanitizers watch the rest. The first byte chooses what is done with the others.

using TFuzzInput = std::span<const uint8_t>;

/// TUninstallLog::Load, and that what loads can be saved, appended to and asked for its strings. The first byte tells
/// which checksums are made good, because no change of a byte gets past them: 1 the header's, 2 the blocks'.
void FuzzUninstallLog(TFuzzInput Input);
/// The console over a state folder, one file of which has the input as its content: the first byte tells which. It
/// tells what it finds, or that something cannot be read.
void FuzzState(TFuzzInput Input);
/// The debug log as a tree of calls. With 1 as the first byte, each of the others stands for a whole line, because few
/// changes of bytes give lines that belong together.
void FuzzCallLog(TFuzzInput Input);
/// The readers of backup items, in the order of their structs, and of comma text.
void FuzzBackupItems(TFuzzInput Input);
/// What the kit reads: update manifests, and, with an odd first byte, what an entry of its own made.
void FuzzKitFiles(TFuzzInput Input);

/// False for a log that is refused; what was read of it stays.
bool Load(std::string Bytes, TUninstallLog& Log);
/// The records as they stand in a file.
std::string StreamOf(const TUninstallLog& Log);
