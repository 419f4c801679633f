#pragma once

#include "program.h"

/// Load and Save of an uninstall log of 200,000 records (32 MiB) in memory, against zlib's crc32 over its bytes plus
/// one copy of them. Load takes new memory for what it reads, and the copy that it is compared with does so as well:
/// under Wine, the first touch of 32 MiB takes longer than their checksum. Save writes to memory that is there.
TResult UninstallLogLoad(bool Quick);
TResult UninstallLogSave(bool Quick);
/// The time for a record of a large log against that of a small one, for Load and Save together.
TResult UninstallLogGrowth(bool Quick);

/// One copy of the bytes, in new memory unless `Copy` has enough, and zlib's crc32 of them.
unsigned long Yardstick(const std::string& Bytes, std::string& Copy);
