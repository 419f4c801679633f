#pragma once

#include "base/failure.h"
#include "rollback/backup_client.h"
#include "server/logged_object.h"

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>

/// A logged change: what it will destroy is saved, then the entry that names the saved item is recorded in the
/// transaction log, and only then is anything changed. The entry therefore stands also when the change fails half-way.
/// `Save` gives the item's DataID, or nothing when there is nothing to be saved; then nothing is recorded. Gives the
/// DataID, all zero without one.
template <class TSave, class TAct>
GUID MakeLoggedChange(IUTransactionLog& TransactionLog, const CLSID& Owner, long Code, TSave Save, TAct Act) {
  const std::optional<GUID> DataID = Save();
  if (DataID) CheckCall(TransactionLog.Put(Owner, Code, *DataID));
  Act();
  return DataID.value_or(GUID{});
}

/// The two forms of an operation. The name of the logged one is the plain one's with "Logged" behind it.
enum class TForm { Plain, Logged };

/// An operation whose arguments have been converted.
struct TPreparedChange {
  std::function<std::optional<GUID>()> Save;  ///< see MakeLoggedChange
  std::function<void(TRoutine&)> Act;         ///< the plain operation, between its Begin and its End line
};

/// What the classes that change things share: they save through the backup object, record in the transaction log under
/// codes of their own, and undo the change of an entry.
template <class TInterface, class... TOthers>
class TChangeObject : public TLoggedObject<TInterface, TOthers..., IUBackup, IUTransactionLog> {
 public:
  using TLoggedObject<TInterface, TOthers..., IUBackup, IUTransactionLog>::TLoggedObject;

  STDMETHOD(Rollback)(long Code, GUID DataID) override {
    return this->Method("Rollback", {Code, DataID}, [&] { Undo(Code, DataID); });
  }

 protected:
  /// Undoes the change of one entry. A code that the class does not know is ignored.
  virtual void Undo(long Code, const GUID& DataID) = 0;

  TBackupClient Store() const { return TBackupClient(this->template Use<IUBackup>()); }

  /// A change in either form; the plain one only acts, and gives an all-zero DataID.
  template <class TSave, class TAct>
  GUID MakeChange(TForm Form, long Code, TSave Save, TAct Act) const {
    if (Form == TForm::Logged)
      return MakeLoggedChange(this->template Use<IUTransactionLog>(), this->Class().ClassId, Code, Save, Act);
    Act();
    return GUID{};
  }

  /// An operation in either form, as a routine of the object. `Prepare` converts its arguments, behind the Begin line,
  /// and gives a TPreparedChange. The logged form writes the lines of the plain one inside its own.
  template <class TPrepare>
  void Perform(TForm Form, const char* Name, long Code, std::initializer_list<TLogWord> Words, TPrepare Prepare) const {
    if (Form == TForm::Plain) return this->Routine(Name, Words, [&](TRoutine& Plain) { Prepare().Act(Plain); });
    this->Routine((std::string(Name) + "Logged").c_str(), Words, [&] {
      const TPreparedChange Prepared = Prepare();
      MakeChange(Form, Code, Prepared.Save, [&] { this->Routine(Name, Words, Prepared.Act); });
    });
  }
};
