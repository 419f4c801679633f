#pragma once

#include <string>

/// A link of the host's file system, for as long as this object lives. Programs of the platform see a folder that is a
/// link to another one, or a drive.
class THostLink {
 public:
  /// A link with this Windows path.
  static std::string Path(const std::string& WindowsPath);
  /// A drive, by its letter.
  static std::string Drive(char Letter);

  /// `Link` is one of the above, `Target` the Windows path of what it leads to.
  THostLink(const std::string& Link, const std::string& Target);
  ~THostLink();
  THostLink(const THostLink&) = delete;
  THostLink& operator=(const THostLink&) = delete;

 private:
  std::string Link;
};
