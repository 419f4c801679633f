#include "kit/kit_fixture.h"

#include <cstring>

namespace {

class KitSilent : public TKitTest {
 protected:
  /// What is answered to a message box under a policy; 0 when nobody stands in.
  long Press(const std::string& Policy, long Style, const std::string& Question = "Cannot delete 'a'.") {
    EXPECT_EQ(S_OK, Kit->Silent(Text(Policy))) << Policy;
    const auto Dialog = Active<IUDialog>(CLSID_UDialog);
    long Answer = 0;
    if (!Dialog) return 0;
    EXPECT_EQ(S_OK, Dialog->ShowMsgBox(Text(Question), Text("Error"), Style | MB_ICONERROR, &Answer));
    return Answer;
  }
  std::string Choose(const std::string& Buttons, const std::string& Question = "What now?") {
    TBstr Answer;
    EXPECT_EQ(S_OK, Active<IUDialog>(CLSID_UDialog)
                        ->ShowCustomMsgBox(Text(Question), Text("C"), 0, Text(Buttons), Text("Go"), Answer.Out()));
    return Take(Answer);
  }
};

TEST_F(KitSilent, AnswersWhatThePolicySays) {
  const std::string Overwrite = "Overwrite 'C:\\a.dll'\r\n       size 3 byte(s)";
  const std::tuple<const char*, long, std::string, long> Rows[] = {
      {"cancel", MB_RETRYCANCEL, "a", IDCANCEL},
      {"cancel", MB_OK, "a", IDOK},
      {"cancel", MB_OKCANCEL, "a", IDCANCEL},
      {"cancel", MB_ABORTRETRYIGNORE, "a", IDABORT},
      {"cancel", MB_YESNOCANCEL, "a", IDCANCEL},
      {"cancel", MB_YESNO, "a", IDNO},
      {"cancel", MB_CANCELTRYCONTINUE, "a", IDCANCEL},
      {"cancel", MB_YESNO, Overwrite, IDNO},
      {" Retry 5 ,OVERWRITE  no", MB_RETRYCANCEL, "a", IDRETRY},
      {"retry 5", MB_ABORTRETRYIGNORE, "a", IDRETRY},
      {"retry 5", MB_CANCELTRYCONTINUE, "a", IDTRYAGAIN},
      {"retry 5", MB_YESNO, "a", IDNO},
      {"retry 0", MB_RETRYCANCEL, "a", IDCANCEL},
      {"overwrite yes", MB_YESNO, Overwrite, IDYES},
      {"overwrite yes", MB_YESNO, "a", IDNO},
      {"overwrite yes,retry 5", MB_RETRYCANCEL, "a", IDRETRY},
  };
  for (const auto& [Policy, Style, Question, Answer] : Rows)
    EXPECT_EQ(Answer, Press(Policy, Style, Question)) << Policy << " " << Style << " " << Question;

  EXPECT_EQ("Try Again", Choose("Go,\"Try Again\",Cancel"));
  EXPECT_EQ("Yes to All", Choose("No,Yes,\"Yes to All\"", Overwrite));
  EXPECT_EQ("no", Choose("Yes,no"));
  EXPECT_EQ("Go", Choose("Go"));
  EXPECT_EQ("", Choose("Go,Stop"));

  for (const char* Bad : {"yes", "cancel,", "retry", "retry -1", "retry 86401", "retry 5 s", "cancel, retry 5",
                          "overwrite", "overwrite yes, overwrite no", " ", "retry 99999999999"}) {
    EXPECT_EQ(E_INVALIDARG, Kit->Silent(Text(std::string(Bad)))) << Bad;
    EXPECT_EQ("'" + std::string(Bad) + "' says nothing to do", ErrorText().substr(0, std::strlen(Bad) + 21)) << Bad;
  }
  EXPECT_EQ(IDRETRY, [&] {
    long Answer = 0;
    Active<IUDialog>(CLSID_UDialog)->ShowMsgBox(nullptr, nullptr, MB_RETRYCANCEL, &Answer);
    return Answer;
  }()) << "a policy that is not understood changes nothing";
  EXPECT_EQ(0, Press("", MB_OK));
}

TEST_F(KitSilent, KeepsTheTextsWithTheNamesThatFailuresLack) {
  const std::string Missing = App("missing.txt");
  ASSERT_EQ(S_OK, Kit->Silent(Text("retry 1")));
  const auto File = Make<IUFile>(CLSID_UFile);
  const uint64_t Start = GetTickCount64();
  EXPECT_EQ(static_cast<HRESULT>(0x80040202), File->CopyFile(Text(Missing), Text(App("b.txt")), 0));
  EXPECT_GE(GetTickCount64() - Start, 1000u);
  const std::string Box =
      "Cannot get attributes of '" + Missing + "'.\r\n\r\nError: '" + SystemText(2) + "' (Error code: 2).";
  EXPECT_EQ(Box, LastMessage());
  EXPECT_EQ(std::string::npos, Messages().find("\r\n\r\n")) << "asked again and again, but one: " << Messages();
  EXPECT_EQ(IDCANCEL, Press("cancel", MB_OKCANCEL, "two\r\n\r\nlines\r\n"));
  VARIANT Late{};
  EXPECT_EQ(S_OK, CallByName(*Kit.Get(), L"Messages", {}, &Late, DISPATCH_METHOD | DISPATCH_PROPERTYGET));
  const std::string All = LossyAnsi(ViewOf(Late.bstrVal));
  VariantClear(&Late);
  EXPECT_EQ("\r\n\r\ntwo\r\nlines", All.substr(All.size() - 14));
  EXPECT_EQ(DISP_E_MEMBERNOTFOUND, CallByName(*Kit.Get(), L"LastMessage", {}, nullptr));
  const auto Dialog = Active<IUDialog>(CLSID_UDialog);
  EXPECT_EQ(S_OK, CallByName(*Dialog.Get(), L"ShowMsgBox", {"late", "c", "4"}, &Late));
  EXPECT_EQ(IDNO, Late.lVal);
  EXPECT_EQ("late", LastMessage());
  for (int At = 0; At < 200; ++At) Press("cancel", MB_OK, "n" + std::to_string(At));
  EXPECT_EQ("(3 earlier messages are not kept.)\r\n\r\nn0\r\n\r\nn1\r\n", Messages().substr(0, 48));
  EXPECT_EQ(S_OK, Kit->ClearMessages());
  EXPECT_EQ("", Messages() + LastMessage());
}

TEST_F(KitSilent, StandsInAsLongAsItIsThereAndNobodyElseDoes) {
  EXPECT_FALSE(Active<IUDialog>(CLSID_UDialog));
  EXPECT_NE(0, Press("cancel", MB_OK));
  Kit = {};
  EXPECT_FALSE(Active<IUDialog>(CLSID_UDialog));
  EXPECT_EQ(S_OK, Make<IKit>(CLSID_Kit)->Silent(nullptr));
  const TComRef<TScriptedDialog> Other(new TScriptedDialog);
  const DWORD Entry = RegisterActive(Other.Get(), CLSID_UDialog);
  Kit = Make<IKit>(CLSID_Kit);
  EXPECT_EQ(E_UNEXPECTED, Kit->Silent(Text("cancel")));
  EXPECT_EQ(
      "An object of somebody else stands in for 'Mendwork.UDialog.6' already; what is asked of the kit would have "
      "no effect.",
      ErrorText());
  RevokeActive(Entry);
  EXPECT_FALSE(Active<IUDialog>(CLSID_UDialog)) << "nothing was left behind";
}

}  // namespace
