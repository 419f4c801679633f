#include "formats/backup_items.h"
#include "formats/comma_text.h"
#include "fuzz/targets.h"

#include <cstring>
#include <sstream>

namespace {

class TInputSource final : public TByteSource {
 public:
  explicit TInputSource(TFuzzInput Input) : Input(Input) {}
  uint64_t Remaining() const override { return Input.size(); }
  void Read(void* Buffer, uint32_t Size) override {
    Promise(Size <= Input.size(), "a reader takes what is there");
    std::memcpy(Buffer, Input.data(), Size);
    Input = Input.subspan(Size);
  }

 private:
  TFuzzInput Input;
};

/// What was read is what would have been written.
template <class TItem>
void ReadItem(TFuzzInput Input) {
  TInputSource Source(Input);
  TItemReader Reader(Source);
  TItem Item;
  Item.Fields(Reader);
  if (!Reader.Good()) return;
  const std::string Taken(Input.begin(), Input.end() - static_cast<ptrdiff_t>(Source.Remaining()));
  Promise(EncodeItem(Item).substr(ItemTagSize) == Taken, "an item is written as it was read");
}

void ReadCommaText(TFuzzInput Input) {
  const std::string Text(Input.begin(), Input.end());
  const std::vector<std::string> Entries = ParseCommaText(Text);
  Promise(ParseCommaText(MakeCommaText(Entries)) == Entries, "what any text gives survives");
  std::vector<std::string> Lines;
  std::istringstream Stream(Text);
  for (std::string Line; std::getline(Stream, Line);) Lines.push_back(Line);
  Promise(ParseCommaText(MakeCommaText(Lines)) == Lines, "any list survives");
}

}  // namespace

void FuzzBackupItems(TFuzzInput Input) {
  if (Input.empty()) return;
  constexpr TFuzzTarget Readers[] = {ReadItem<TSingleFileItem>, ReadItem<TFileSetItem>, ReadItem<TRegistryValueItem>,
                                     ReadItem<TRegistryKeyItem>, ReadCommaText};
  Readers[Input[0] % std::size(Readers)](Input.subspan(1));
}
