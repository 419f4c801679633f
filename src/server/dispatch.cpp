#include "server/dispatch.h"

#include "base/failure.h"
#include "base/handles.h"
#include "server/coclass_table.h"
#include "server/late_argument.h"
#include "server/safe_call.h"

#include <deque>

namespace {

/// The arguments of one call, in the order of the parameters.
class TCall {
 public:
  explicit TCall(const TMethod& Method) : Method(Method) {
    for (const auto& Parameter : Method.Parameters) Arguments.emplace_back(Parameter);
  }

  HRESULT Bind(DISPPARAMS& Given);
  HRESULT Convert(const DISPPARAMS& Given, UINT* BadArgument);
  HRESULT Run(IDispatch* Target);
  HRESULT GiveResults(const DISPPARAMS& Given, VARIANT* Result, UINT* BadArgument);

 private:
  const TMethod& Method;
  std::deque<TLateArgument> Arguments;  // which stay where they are
};

/// Finds each parameter's argument: named ones by position identifier, the rest from the last to the first.
HRESULT TCall::Bind(DISPPARAMS& Given) {
  UINT Wanted = 0;
  for (const auto& Parameter : Method.Parameters) Wanted += Parameter.ReturnValue ? 0 : 1;
  if (Given.cArgs != Wanted || Given.cNamedArgs > Given.cArgs) return DISP_E_BADPARAMCOUNT;
  for (UINT At = 0; At < Given.cArgs; ++At) {
    const bool Named = At < Given.cNamedArgs;
    const DISPID Position = Named ? Given.rgdispidNamedArgs[At] : static_cast<DISPID>(Given.cArgs - 1 - At);
    if (Position < 0 || static_cast<UINT>(Position) >= Wanted) return DISP_E_PARAMNOTFOUND;
    TLateArgument& Argument = Arguments[static_cast<size_t>(Position)];
    if (Argument.Given) return DISP_E_BADPARAMCOUNT;
    Argument.Given = &Given.rgvarg[At];
  }
  return S_OK;
}

/// Tells the caller which argument is bad; a return value is none of them.
HRESULT Blame(const TLateArgument& Argument, const DISPPARAMS& Given, UINT* BadArgument, HRESULT Failure) {
  if (BadArgument && Argument.Given) *BadArgument = static_cast<UINT>(Argument.Given - Given.rgvarg);
  return Failure;
}

HRESULT TCall::Convert(const DISPPARAMS& Given, UINT* BadArgument) {
  for (TLateArgument& Argument : Arguments) {
    if (Argument.Parameter.Out && !Argument.Given) continue;
    const HRESULT Outcome = Argument.Parameter.Out ? Argument.CheckPlace() : Argument.Convert();
    if (FAILED(Outcome)) return Blame(Argument, Given, BadArgument, Outcome);
  }
  return S_OK;
}

HRESULT TCall::Run(IDispatch* Target) {
  TVtableArguments Passed;
  for (TLateArgument& Argument : Arguments) Argument.Pass(Passed);
  std::vector<VARIANTARG*> Pointers;
  for (VARIANT& Value : Passed.Values) Pointers.push_back(&Value);
  TVariant Returned;
  const HRESULT Outcome =
      DispCallFunc(Target, static_cast<ULONG_PTR>(Method.VtableOffset), CC_STDCALL, VT_ERROR,
                   static_cast<UINT>(Passed.Values.size()), Passed.Types.data(), Pointers.data(), &Returned);
  return FAILED(Outcome) ? Outcome : Returned.scode;
}

HRESULT TCall::GiveResults(const DISPPARAMS& Given, VARIANT* Result, UINT* BadArgument) {
  for (TLateArgument& Argument : Arguments) {
    HRESULT Outcome = S_OK;
    if (Argument.Parameter.ReturnValue && Result)
      Argument.TakeOut(*Result);
    else if (Argument.Parameter.Out && Argument.Given)
      Outcome = Argument.GiveOut();
    if (FAILED(Outcome)) return Blame(Argument, Given, BadArgument, Outcome);
  }
  return S_OK;
}

void DescribeFailure(HRESULT Failure, EXCEPINFO* Exception) {
  TComRef<IErrorInfo> Info;
  const bool Known = GetErrorInfo(0, Info.Out()) == S_OK && Info;
  if (!Exception) return;
  *Exception = EXCEPINFO{};
  Exception->scode = Failure;
  if (!Known) return;
  Info->GetSource(&Exception->bstrSource);
  Info->GetDescription(&Exception->bstrDescription);
}

bool HasBuffer(const TMethod& Method) {
  for (const auto& Parameter : Method.Parameters)
    if (Parameter.Type == VT_VOID) return true;
  return false;
}

HRESULT CallMethod(const TMethod& Method, IDispatch* Target, DISPPARAMS& Arguments, VARIANT* Result,
                   EXCEPINFO* Exception, UINT* BadArgument) {
  TCall Call(Method);
  HRESULT Outcome = Call.Bind(Arguments);
  if (FAILED(Outcome)) return Outcome;
  if (HasBuffer(Method)) throw EFailure(E_NOTIMPL, FormatWideMessage(MsgBufferLateBound, Method.Name));
  if (FAILED(Outcome = Call.Convert(Arguments, BadArgument))) return Outcome;
  SetErrorInfo(0, nullptr);
  if (FAILED(Outcome = Call.Run(Target))) {
    DescribeFailure(Outcome, Exception);
    return DISP_E_EXCEPTION;
  }
  return Call.GiveResults(Arguments, Result, BadArgument);
}

}  // namespace

HRESULT TDispatchTable::Invoke(IDispatch* Target, DISPID Id, REFIID Iid, WORD Flags, DISPPARAMS* Arguments,
                               VARIANT* Result, EXCEPINFO* Exception, UINT* BadArgument) const {
  if (Iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  if (!Arguments) return E_POINTER;
  if (Result) VariantInit(Result);
  const TMethod* const Method = Methods.Find(Id, Flags);
  if (!Method) return DISP_E_MEMBERNOTFOUND;
  HRESULT Outcome = S_OK;
  const HRESULT Refused = RunSafely(IID_IDispatch, OwnModule.Name, [&] {
    Outcome = CallMethod(*Method, Target, *Arguments, Result, Exception, BadArgument);
  });
  if (SUCCEEDED(Refused)) return Outcome;
  DescribeFailure(Refused, Exception);
  return DISP_E_EXCEPTION;
}
