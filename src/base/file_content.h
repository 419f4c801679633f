#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <optional>
#include <string>

/// Questions to files beside the described steps: they show nothing, log nothing and ask nobody.

/// The whole size of an open file, or -1.
int64_t PlainFileSize(HANDLE Handle);

/// Opens a file or folder to ask about it, whatever others do with it; a link as itself when `Flags` has
/// FILE_FLAG_OPEN_REPARSE_POINT. Invalid, with the thread's last error, when there is none or it cannot be reached.
HANDLE OpenToAsk(const std::string& Name, DWORD Flags = 0);

/// What tells one file of a machine from another, and what it has; all zero when the system cannot tell.
BY_HANDLE_FILE_INFORMATION FactsOf(HANDLE Open);
/// False when one is not known.
bool AreOneFile(const BY_HANDLE_FILE_INFORMATION& Left, const BY_HANDLE_FILE_INFORMATION& Right);

/// Where an open file or folder really is, from the system's device on, under the names that are stored: one place has
/// one such name, whatever links, drives and short names led there. Of a file with several names it is the one that was
/// opened. Empty when the system does not know it.
std::wstring FinalPath(HANDLE Open);

/// The whole content of a file; nothing when it cannot be opened or read to its end, or is larger than `Largest` bytes.
/// `Share` is what others may do meanwhile, as CreateFile takes it.
std::optional<std::string> ReadWholeFile(const std::wstring& FileName, int64_t Largest, DWORD Share = FILE_SHARE_READ);
