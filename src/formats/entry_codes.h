#pragma once

#include "base/guid_text.h"

#include <cstdint>

/// What the entries of the transaction log, and the records of the history groups that the system keeps, say.

/// The codes of an entry, by the class that undoes it.
namespace FileCode {
constexpr int32_t Overwritten = 1, Deleted = 2, Created = 3;
}
namespace RegistryCode {
constexpr int32_t KeyDeleted = 0, ValueDeleted = 1, BinarySet = 2, DwordSet = 3, StringSet = 4;
}
namespace ComCode {
constexpr int32_t ServerRegistered = 0, ServerUnregistered = 1, LibraryRegistered = 2, LibraryUnregistered = 3;
}
namespace BackupCode {
constexpr int32_t RegistryValue = 2, RegistryKey = 3, Files = 4, KeyRights = 16;
}
/// Of a check point, in the transaction log and in a history group.
constexpr int32_t CheckPointCode = 0;

/// The updater program's own class.
constexpr char UpdaterClassId[] = "{E39B3518-306A-4B3F-9095-5A3226FF60C9}";

/// The groups that point to saved lists.
constexpr char MacroGroupId[] = "{2E6B94D1-8C0F-4A7E-B35D-6F1A0C9E47B2}";
constexpr char InstalledFilesGroupId[] = "{5C1E8A42-7D3B-4F69-A0E2-91B4C6D8F031}";
constexpr char InstalledServersGroupId[] = "{A7D03F9E-26C4-4B85-9E71-3F0B8C52D6A4}";

/// The installer's record type for a file to delete; the values tell what the file is.
constexpr uint16_t DeleteFileRecord = 0x82;
constexpr int32_t PlainFile = 0, ComServer = 0x10, TypeLibrary = 0x40;
