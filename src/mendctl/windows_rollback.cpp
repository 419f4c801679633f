// mendctl rollback: the library's own, watched from outside.

#include "base/failure.h"
#include "base/guid.h"
#include "base/handles.h"
#include "base/text.h"
#include "mendctl/commands.h"
#include "mendctl/windows_com.h"
#include "server/interfaces.h"

#include <atomic>
#include <chrono>
#include <map>
#include <thread>

namespace {

/// Presses Cancel, or No, in every box and keeps what it said. The library takes it from the running object table in
/// place of its own boxes.
class TSilentDialog final : public IUDialog {
 public:
  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    const bool Known = Iid == IID_IUnknown || Iid == IID_IDispatch || Iid == IID_IUDialog;
    *Result = Known ? this : nullptr;
    if (Known) AddRef();
    return Known ? S_OK : E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return ++References; }
  STDMETHOD_(ULONG, Release)() override { return --References; }  // it belongs to whoever made it
  STDMETHOD(GetTypeInfoCount)(UINT*) override { return E_NOTIMPL; }
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }

  STDMETHOD(ShowMsgBox)(BSTR Text, BSTR, long MsgType, long* Answer) override {
    constexpr long Buttons = 0xF;
    Said += Utf8(ViewOf(Text)) + "\n";
    *Answer = (MsgType & Buttons) == MB_YESNO ? IDNO : IDCANCEL;
    return S_OK;
  }
  STDMETHOD(ShowCustomMsgBox)(BSTR Text, BSTR, long, BSTR, BSTR DefButton, BSTR* Answer) override {
    Said += Utf8(ViewOf(Text)) + "\n";
    *Answer = MakeBstr(ViewOf(DefButton)).Detach();
    return S_OK;
  }

  std::string Said;

 private:
  std::atomic<ULONG> References = 1;
};

/// An object in the running object table for as long as this lives.
class TActive {
 public:
  TActive(IUnknown* Object, const CLSID& ClassId) {
    CheckSystemCall(RegisterActiveObject(Object, ClassId, ACTIVEOBJECT_STRONG, &Cookie));
  }
  ~TActive() { RevokeActiveObject(Cookie, nullptr); }
  TActive(const TActive&) = delete;
  TActive& operator=(const TActive&) = delete;

 private:
  DWORD Cookie = 0;
};

/// Tells from a thread of its own how much of the log is left, while the library shortens it.
class TProgress {
 public:
  TProgress(const TStateFolder& State, size_t First, size_t Last, const std::function<void(const std::string&)>& Tell)
      : Path(State.TransactionLogPath()), First(First), Last(Last), Tell(Tell), Thread([this] { Watch(); }) {}
  ~TProgress() {
    Ended = true;
    Thread.join();
    Look();
  }
  TProgress(const TProgress&) = delete;
  TProgress& operator=(const TProgress&) = delete;

 private:
  void Watch() {
    constexpr auto Pause = std::chrono::milliseconds(100);
    for (; !Ended; std::this_thread::sleep_for(Pause)) Look();
  }
  /// A log that is not there is empty, or just being written anew.
  void Look() {
    std::error_code Error;
    const uintmax_t Size = std::filesystem::file_size(Path, Error);
    if (Error && !Ended) return;
    const size_t Left = std::max<size_t>(First, Error ? 0 : static_cast<size_t>(Size / LogRecordSize));
    if (Left < Told) TellBar(Told = Left);
  }
  void TellBar(size_t Left) const {
    constexpr size_t Width = 40;
    if (First == Last) return;
    const size_t All = Last - First, Done = Last - std::min(Left, Last);
    Tell("[" + std::string(Width * Done / All, '#') + std::string(Width - Width * Done / All, '.') + "] " +
         std::to_string(Done) + " of " + std::to_string(All));
  }

  const std::filesystem::path Path;
  const size_t First, Last;  ///< the log's size in entries at the end and at the begin
  size_t Told = SIZE_MAX;
  const std::function<void(const std::string&)>& Tell;
  std::atomic<bool> Ended = false;
  std::thread Thread;
};

/// The entries, each in a line of its own, by their numbers. Told beforehand: while the library is at work, the debug
/// log cannot be read, which knows what a missing item held.
std::map<size_t, std::string> LinesOf(const TContext& Context, const std::vector<TEntry>& Entries) {
  const TItemReaderOf Reader(Context.State);
  std::map<size_t, std::string> Lines;
  for (const TEntry& Entry : Entries)
    Lines[Entry.Number] = EntryLine(Context, Entry, Reader.Read(Entry.Meaning.Layout, Entry.Record.DataID));
  return Lines;
}

std::string WithoutBreaks(std::string Text) {
  while (!Text.empty() && Text.back() <= ' ') Text.pop_back();
  return Text;
}

}  // namespace

TReport Rollback(const TContext& Context, const TRollbackOptions& Options,
                 const std::function<void(const std::string&)>& Tell) {
  std::string Why;
  const auto Registered = TMachine::RegisteredBase(Why);
  std::error_code Error;
  if (!Registered) throw EWrongUse{Why};
  if (!std::filesystem::equivalent(*Registered, Context.State.Base, Error) ||
      Context.State.Service.filename() != (sizeof(void*) == 8 ? "Mendwork64" : "Mendwork"))
    throw EWrongUse{"The library rolls back what the registry names: " + NameOf(*Registered) + ", for " +
                    std::to_string(8 * sizeof(void*)) + "-bit programs; " + NameOf(Context.State.Service) +
                    " is another state."};
  TReport Report;
  Report.Data = {{"skipped", nullptr}, {"undone", 0}, {"failed", nullptr}, {"error", ""}, {"boxes", ""}, {"left", 0}};
  if (Options.Skip) {
    const TEntry Skipped = EntryOf(Context, *Options.Skip);
    const std::string Line = LinesOf(Context, {Skipped}).begin()->second;
    const std::string File = SkipEntry(Context, *Options.Skip);
    Report.Data["skipped"] = {{"number", Skipped.Number}, {"kept_in", File}};
    Report.Text += "Skipped, and kept in " + File + ":\n" + Line + "\n";
  }
  const TRecordFile Before = Context.State.TransactionLog();
  const std::vector<TEntry> Walk = EntriesOf(Before, Options.All, Context.Machine);
  const std::map<size_t, std::string> Lines = LinesOf(Context, Walk);
  size_t Stop = 0;
  if (!Options.All && !Walk.empty() && Walk.back().Meaning.Layout == TLayout::CheckPoint) Stop = Walk.back().Number;

  const TApartment Apartment;
  TSilentDialog Dialog;
  std::optional<TActive> Silence;
  if (Options.Silent) Silence.emplace(&Dialog, CLSID_UDialog);
  std::string Failure;
  try {
    TComRef<IUTransactionLog> Log;
    CheckSystemCall(
        CoCreateInstance(CLSID_UTransactionLog, nullptr, CLSCTX_INPROC_SERVER, IID_IUTransactionLog, Log.OutVoid()));
    const TProgress Progress(Context.State, Stop, Before.Records.size(), Tell);
    GUID CheckPoint{};
    CheckCall(Log->Rollback(Options.All ? VARIANT_FALSE : VARIANT_TRUE, &CheckPoint));
  } catch (const EFailure& Raised) {
    Failure = WithoutBreaks(Utf8(Raised.Message));
  }
  const TRecordFile After = Context.State.TransactionLog();
  const size_t Undone = Before.Records.size() - std::min(Before.Records.size(), After.Records.size());
  Report.Data["undone"] = Undone;
  Report.Data["left"] = After.Records.size();
  Report.Data["boxes"] = Dialog.Said;
  Report.Text += Counted(Undone, "change") + " undone.\n";
  if (Failure.empty()) return Report;
  Report.Status = FoundSomething;
  Report.Data["error"] = Failure;
  const auto Line = Lines.find(After.Records.size());
  const std::string Step = Line == Lines.end() ? "" : Line->second;
  Report.Data["failed"] = After.Records.size();
  Report.Text += Context.Paint.Bad("The rollback stopped: ") + Failure + "\n" + Step + "\n" + Dialog.Said +
                 "What was changed after it is undone. Mend what is in its way and roll back again, or leave this "
                 "entry out: mendctl "
                 "rollback --skip " +
                 std::to_string(After.Records.size()) + "\n";
  return Report;
}
