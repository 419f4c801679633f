#include "kit/message_list.h"

#include "kit/kit_messages.h"

#include <utility>

namespace {

constexpr wchar_t LineEnds[] = L"\r\n";

std::wstring WithoutEmptyLines(const std::wstring& Text) {
  std::wstring Block;
  for (size_t At = 0; (At = Text.find_first_not_of(LineEnds, At)) != Text.npos;) {
    const size_t End = std::min(Text.find_first_of(LineEnds, At), Text.size());
    if (!Block.empty()) Block += L"\r\n";
    Block.append(Text, At, End - At);
    At = End;
  }
  return Block;
}

}  // namespace

void TMessageList::Add(std::wstring Text) {
  Texts.push_back(std::move(Text));
  if (Texts.size() <= Most) return;
  Texts.pop_front();
  ++Forgotten;
}

void TMessageList::Clear() {
  Texts.clear();
  Forgotten = 0;
}

std::wstring TMessageList::All() const {
  std::wstring Result;
  if (Forgotten > 0) Result = FormatWideMessage(MsgKitEarlier, std::to_wstring(Forgotten));
  for (const std::wstring& Text : Texts) {
    if (!Result.empty()) Result += L"\r\n\r\n";
    Result += WithoutEmptyLines(Text);
  }
  return Result;
}
