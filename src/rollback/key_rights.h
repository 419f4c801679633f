#pragma once

#include "base/registry_place.h"
#include "server/interfaces.h"

/// The access rights of registry keys, which the items of keys have no room for: an item and an entry of their own give
/// them back. Only keys that have rights of their own get one: a list that is protected from inheritance, or entries
/// that are not inherited. All other keys get theirs from the key above when they are made again.

/// Saves the rights of a key and of all below it that have some, and records them under the backup object's class and
/// BackupCode::KeyRights. To be called before the entry of the change that removes the keys is recorded, so that a
/// rollback comes to the rights when the keys are there again.
void RecordKeyRights(IUTransactionLog& TransactionLog, const TKeyPlace& Place);

/// Gives a key its saved rights back; one that is missing gets none. `Dialog` shows a damaged item.
void LoadKeyRights(const GUID& DataID, IUDialog& Dialog);
