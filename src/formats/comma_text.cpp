#include "formats/comma_text.h"

namespace {

bool IsBlank(char Character) { return static_cast<unsigned char>(Character) <= ' '; }

bool NeedsQuotes(const std::string& Entry) {
  for (const char Character : Entry)
    if (IsBlank(Character) || Character == ',' || Character == '"') return true;
  return false;
}

std::string Quoted(const std::string& Entry) {
  std::string Result = "\"";
  for (const char Character : Entry) {
    if (Character == '"') Result += '"';
    Result += Character;
  }
  return Result + '"';
}

class TCommaReader {
 public:
  explicit TCommaReader(std::string_view Text) : Text(Text) {}

  std::vector<std::string> Read() {
    std::vector<std::string> Entries;
    SkipBlanks();
    while (!AtEnd()) {
      Entries.push_back(Text[At] == '"' ? ReadQuoted() : ReadPlain());
      SkipBlanks();
      if (AtEnd() || Text[At] != ',') continue;
      ++At;
      SkipBlanks();
      if (AtEnd()) Entries.emplace_back();
    }
    return Entries;
  }

 private:
  bool AtEnd() const { return At >= Text.size(); }
  void SkipBlanks() {
    while (!AtEnd() && IsBlank(Text[At])) ++At;
  }
  std::string ReadPlain() {
    const size_t Start = At;
    while (!AtEnd() && !IsBlank(Text[At]) && Text[At] != ',') ++At;
    return std::string(Text.substr(Start, At - Start));
  }
  std::string ReadQuoted() {
    std::string Entry;
    for (++At; !AtEnd(); ++At) {
      if (Text[At] == '"') {
        ++At;
        if (AtEnd() || Text[At] != '"') break;
      }
      Entry += Text[At];
    }
    return Entry;
  }

  std::string_view Text;
  size_t At = 0;
};

}  // namespace

std::string MakeCommaText(const std::vector<std::string>& Entries) {
  std::string Result;
  for (size_t At = 0; At < Entries.size(); ++At) {
    const std::string& Entry = Entries[At];
    if (At > 0) Result += ',';
    const bool Unseen = Entry.empty() && Entries.size() == 1;  // else the comma before it tells
    Result += Unseen || NeedsQuotes(Entry) ? Quoted(Entry) : Entry;
  }
  return Result;
}

std::vector<std::string> ParseCommaText(std::string_view Text) { return TCommaReader(Text).Read(); }
