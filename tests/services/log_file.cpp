#include "services/log_file.h"

#include <cstdio>

std::string LogStamp() {
  SYSTEMTIME Now;
  GetLocalTime(&Now);
  char Stamp[32] = "";
  std::snprintf(Stamp, sizeof Stamp, "%04d.%02d.%02d %02d:%02d:%02d ", Now.wYear, Now.wMonth, Now.wDay, Now.wHour,
                Now.wMinute, Now.wSecond);
  return Stamp;
}

std::vector<std::string> LinesOf(const std::string& LogFile) {
  CoFreeUnusedLibrariesEx(0, 0);
  const std::string Content = Read(LogFile);
  std::vector<std::string> Lines;
  for (size_t Begin = 0, End = 0; Begin < Content.size(); Begin = End + 2) {
    End = Content.find("\r\n", Begin);
    if (End == std::string::npos) End = Content.size();
    const std::string Line = Content.substr(Begin, End - Begin);
    Lines.push_back(Line.size() < LogStamp().size() ? "too short: " + Line : Line.substr(LogStamp().size()));
  }
  return Lines;
}
