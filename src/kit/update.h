#pragma once

#include "kit/services.h"

#include <string>

/// How an update ended; docs/kit.md has what each means. The numbers are published.
enum class TUpdateResult : long {
  Applied = 0,
  NothingToDo = 1,
  BadManifest = 2,
  BadSource = 3,
  NoRoom = 4,
  InUse = 5,
  OtherUpdater = 6,
  RolledBack = 7,
  NotRolledBack = 8,
};

struct TUpdateOutcome {
  TUpdateResult Result = TUpdateResult::Applied;
  std::wstring Text;  ///< why it failed; empty otherwise
};

/// Does what a manifest says (see update_manifest.h), all of it or nothing: repairs what an interrupted update left,
/// checks beforehand, applies between two check points, and rolls back to the first of them when something fails. The
/// name is a full one. Raises nothing but what memory and the lock's creation raise.
TUpdateOutcome RunUpdate(TServices& Services, const std::wstring& ManifestName);
