// mendctl apply: the kit's own update.

#include "base/failure.h"
#include "base/handles.h"
#include "base/text.h"
#include "kit/interfaces.h"
#include "mendctl/commands.h"
#include "mendctl/windows_com.h"

namespace {

TBstr Given(std::wstring_view Text) { return MakeBstr(Text); }

/// The exit status for a result of the kit.
int StatusOf(long Result) {
  constexpr int Statuses[] = {Fine, Fine, CannotRead, CannotRead};
  return Result >= 0 && Result < static_cast<long>(std::size(Statuses)) ? Statuses[Result] : FoundSomething;
}

}  // namespace

TReport Apply(const std::filesystem::path& Manifest) {
  // Without it the library would show a box about its debug log, which no policy answers.
  std::string Missing;
  const auto Base = TMachine::RegisteredBase(Missing);
  std::error_code Error;
  if (!Base) throw EWrongUse{Missing};
  if (!std::filesystem::is_directory(*Base, Error)) throw EWrongUse{"There is no base folder " + NameOf(*Base) + "."};
  const TApartment Apartment;
  long Result = 0;
  TBstr Why;
  try {
    TComRef<IKit> Kit;
    CheckSystemCall(CoCreateInstance(CLSID_Kit, nullptr, CLSCTX_INPROC_SERVER, IID_IKit, Kit.OutVoid()));
    CheckCall(Kit->Silent(Given(L"cancel").Get()));
    CheckCall(Kit->Update(Given(std::filesystem::absolute(Manifest).wstring()).Get(), &Result));
    CheckCall(Kit->get_LastMessage(Why.Out()));
  } catch (const EFailure& Raised) {
    throw EWrongUse{Utf8(Raised.Message)};
  }
  TReport Report;
  const std::string Text = Utf8(ViewOf(Why.Get()));
  Report.Status = StatusOf(Result);
  Report.Data = {{"result", Result}, {"error", Result > 1 ? Text : ""}};
  Report.Text = Result == 0   ? "The update is applied.\n"
                : Result == 1 ? "There is nothing to do.\n"
                              : "The update failed with result " + std::to_string(Result) + ".\n" + Text + "\n";
  return Report;
}
