#include "support/doubles.h"

#include "base/text.h"
#include "support/tree.h"

HRESULT TScriptedDialog::ShowMsgBox(BSTR Text, BSTR Caption, long MsgType, long* Res) {
  Boxes.push_back({LossyAnsi(ViewOf(Text)), LossyAnsi(ViewOf(Caption)), MsgType});
  if (OnBox) OnBox();
  *Res = IDCANCEL;
  if (!Answers.empty()) {
    *Res = Answers.front();
    Answers.pop_front();
  }
  return Result;
}

HRESULT TMemoryLog::Put(long Id, BSTR Name, BSTR Action, BSTR Text) {
  if (OnLine) OnLine();
  if (LinesLeft == 0) return E_ACCESSDENIED;
  if (LinesLeft > 0) --LinesLeft;
  Lines.push_back({Id, LossyAnsi(ViewOf(Name)), LossyAnsi(ViewOf(Action)), LossyAnsi(ViewOf(Text))});
  return Result;
}

std::vector<std::string> TMemoryLog::Texts(const std::string& Name) const {
  std::vector<std::string> Result;
  for (const TLine& Line : Lines)
    if (Line.Name == Name) Result.push_back(Line.Action + " " + Line.Text);
  return Result;
}

DWORD RegisterActive(IUnknown* Object, const CLSID& ClassId) {
  DWORD Entry = 0;
  Must(SUCCEEDED(RegisterActiveObject(Object, ClassId, ACTIVEOBJECT_STRONG, &Entry)), "RegisterActiveObject failed");
  return Entry;
}
