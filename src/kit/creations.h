#pragma once

#include "base/registry_place.h"
#include "kit/services.h"

#include <cstdint>
#include <string>
#include <vector>

/// Things that are made after it was recorded that they will be: a rollback removes them again, where nobody has
/// changed them since; see KitChanges. What exists already is not recorded. The user is asked about what fails.

/// A key, with those on the way to it.
void CreateKeyRecorded(TServices& Services, const TKeyPlace& Place);

/// A value, with the keys on the way to it. One that exists with other data is saved, recorded by the backup object,
/// and overwritten.
void CreateValueRecorded(TServices& Services, const TValuePlace& Place, DWORD Type, const std::vector<uint8_t>& Data);

/// A folder, with those on the way to it.
void CreateFolderRecorded(TServices& Services, const std::wstring& Folder);

/// A copy by Mendwork's own CopyFileLogged; the folders on the way to it are recorded here.
void CopyFileRecorded(TServices& Services, BSTR Source, BSTR Dest, long Mode);
