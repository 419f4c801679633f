#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <optional>
#include <string>

/// Questions to files beside the described steps: they show nothing, log nothing and ask nobody.

/// The whole size of an open file, or -1.
int64_t PlainFileSize(HANDLE Handle);

/// The whole content of a file; nothing when it cannot be opened or read to its end, or is larger than `Largest` bytes.
/// `Share` is what others may do meanwhile, as CreateFile takes it.
std::optional<std::string> ReadWholeFile(const std::string& FileName, int64_t Largest, DWORD Share = FILE_SHARE_READ);
