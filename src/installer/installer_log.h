#pragma once

#include "rollback/shared_lists.h"

struct TInstallerList;
class TUninstallLog;

/// Adds the files and COM servers that an update brings to the installer's uninstall log, so that the uninstaller of
/// the application takes them away, too. They are collected in two lists, which all objects of a process share; every
/// addition saves its list through the backup store and the history, and the first object of a later process reads them
/// back. Names are compared without case.
class TUInno final : public TListObject<IUInno> {
 public:
  using TListObject::TListObject;

  /// A name that is in the list already is not added again. When saving fails, the name stays in the list, and the next
  /// call saves it, also one that adds nothing.
  STDMETHOD(AddFile)(BSTR FileName) override;
  /// The same for COM servers and type libraries.
  STDMETHOD(AddCOM)(BSTR FileName) override;
  /// The lists as comma text, as they are at this moment. They wait for nobody, also not for ProcessInno in another
  /// thread or process.
  STDMETHOD(GetFileList)(BSTR* FileList) override;
  STDMETHOD(GetCOMList)(BSTR* COMList) override;

  /// Appends a record for each listed name to "unins000.dat" in the uninstall folder, except for those that it has
  /// already. Succeeds whatever becomes of that: an Exception line in the debug log tells what went wrong.
  ///
  /// When the process ends inside, the log holds the old records, or the old and all of the new ones.
  ///
  /// The first phase reads the log, for its records and for the ApplicationId and the 32-bit or 64-bit mark that the
  /// second phase writes back. If the first phase could not read it, the second tries once more, since another program
  /// may only have had it open for a moment, and gives up, with a line of its own and the file untouched, when that
  /// fails as well. A log that is damaged or of a later version is thus never written to: the uninstaller refuses it
  /// or knows it better than this system, and a rewritten header would only hide what is wrong with it. The same goes
  /// for a log with something between its last record and its end, which new records would turn into a damaged one.
  STDMETHOD(ProcessInno)() override;

 private:
  TSharedLists& Lists() const override;
  HRESULT Add(const char* Name, TInstallerList& To, BSTR FileName);
  HRESULT Get(const TInstallerList& From, BSTR* Text);
  void DeleteDuplicatesInLists(const TUninstallLog& Uninstall) const;
};
