#pragma once

#include "kit/services.h"

#include <string>

/// A folder tree that is copied: what it is, where it goes, which files. Names are full ones.
struct TTreeCopy {
  std::wstring Source, Dest;
  std::wstring Mask;  ///< for the names of files in every folder; empty or "*" or "*.*" for all
  long Mode;          ///< see copy_mode.h
};

/// Copies content, attributes and times of all files that the mask finds, under one entry of the transaction log: what
/// is replaced is saved, and all is recorded, before anything is changed, and each file gets its name when it is whole
/// and on the disk. Folders are made for files, and empty ones too when all files are meant; those that are links are
/// not entered in the source.
///
/// Gives a line for each file, ended by CR LF: "copied " or "skipped ", and its name below the folder.
///
/// These fail and change nothing: a source that is missing (after the user was asked), a name that the code page does
/// not hold (0x80040659), in the destination a file that is a link, or a folder below it (0x80040981); with
/// E_INVALIDARG a file copied onto itself, or into the system's own folders. A source that changes meanwhile fails with
/// 0x800405EE.
std::wstring CopyTreeRecorded(TServices& Services, const TTreeCopy& Copy);
