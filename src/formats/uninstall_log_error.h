#pragma once

/// Why a log cannot be read or written.
enum class TUninstallLogFault {
  NotALog,          ///< too short for a header, or another text at its begin
  HeaderChecksum,   ///< the header is damaged
  LaterVersion,     ///< of the format than this system knows
  BlockHeader,      ///< a block's size and its complement do not fit, or the size is too large
  BlockChecksum,    ///< a block's data is damaged
  EndsTooEarly,     ///< the records do not end before the log does
  EndOutsideFile,   ///< the header names an end that the file does not reach, or that lies in the header
  SomethingBehind,  ///< between the last record and the end, which new records would turn into a damaged one
  TooLarge,         ///< for the fields of the format
};

/// A log that is damaged, of a later version, or too large for its own fields. The debug log shows an empty message of
/// it; the reason is for whoever catches it.
struct EUninstallLogError {
  TUninstallLogFault Reason;
};
