#!/usr/bin/env python3
"""Plants single faults in src, one at a time, and tells which of them the tests find.

usage: faults.py [--list] [NAME...]

The faults are of the kind that a tired engineer makes. Each is one text of one file and what takes its place; a fault
whose text is not there any more, or more than once, is told and counts as not found, and wants its row mended. Needs
src as it was committed, and leaves it so. Ends with status 1 when a fault was not found.
"""
import os
import re
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# name, file below src, what stands there, what the fault makes of it
FAULTS = [
    ('no-expand', 'base/data_folders.cpp',
     'if (Type == REG_EXPAND_SZ) Text = Expanded(Text);',
     'if (Type == REG_BINARY) Text = Expanded(Text);'),
    ('own-folder-above', 'base/data_folders.cpp',
     '(Recursive && LiesIn(Own, Folder))',
     '(Recursive && LiesIn(Folder, Own))'),
    ('cloud-is-link', 'base/folder_content.cpp',
     'return ReparseTag == 0 || IsReparseTagNameSurrogate(ReparseTag);',
     'return ReparseTag == 0 || ReparseTag != 0;'),
    ('folder-shared', 'base/folder_content.cpp',
     'FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,',
     'FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,'),
    ('root-of-share', 'base/paths.cpp',
     'if (Path.starts_with("\\\\\\\\")) return BehindComponents(Path, 2, 2);',
     'if (Path.starts_with("\\\\\\\\")) return BehindComponents(Path, 2, 1);'),
    ('inexact-text', 'base/text.cpp',
     'if (ToWide(Result) != Text) return std::nullopt;',
     'if (ToWide(Result).size() != Text.size()) return std::nullopt;'),
    ('file-version', 'base/file_version.h',
     'Info.dwProductVersionLS',
     'Info.dwFileVersionLS'),
    ('lost-count', 'base/named_lock.cpp',
     ' == WAIT_ABANDONED) ReleaseSemaphore(Both[1], 1, nullptr);',
     ' == WAIT_ABANDONED) SetLastError(0);'),
    ('ext-first-dot', 'base/paths.cpp',
     "Name.rfind('.')",
     "Name.find('.')"),
    ('last-root', 'base/registry_roots.h',
     'RootKey <= Last',
     'RootKey < Last'),
    ('module-stays', 'changes/com_registration.cpp',
     '    SwallowingQuietly([&] { RetryFreeLibrary(Module); });  // the first failure is the one to tell\n',
     '    Module.Handle.Detach();\n'),
    ('nearly-empty', 'changes/file_operations.cpp',
     'if (Entries == 0 && !IsLink',
     'if (Entries <= 1 && !IsLink'),
    ('onto-itself', 'changes/file_operations.cpp',
     'if (!HardLinks) Refuse',
     'if (HardLinks && Dest.empty()) Refuse'),
    ('link-attributes', 'changes/file_operations.cpp',
     'if (OneFile) RetrySetFileAttributes',
     'if (OneFile && Attributes == 0) RetrySetFileAttributes'),
    ('unsaved-goes', 'changes/file_operations.h',
     'return !Saved || Saved->contains(Name);',
     'return !Saved || !Name.empty();'),
    ('not-newer', 'changes/file_operations.cpp',
     'static_cast<int64_t>(TicksOf(New.LastWrite)) > static_cast',
     'static_cast<int64_t>(TicksOf(New.LastWrite)) >= static_cast'),
    ('torn-garbage', 'changes/garbage.cpp',
     'if (!EndsInWholeLine(Path)) CutTornLine(Path);',
     'if (EndsInWholeLine(Path)) CutTornLine(Path);'),
    ('owner-enters-twice', 'base/named_lock.cpp',
     '  RequireOther(Lock.OwnerThread);\n',
     ''),
    ('deaf-wait', 'base/waiting.cpp',
     '&Object, FALSE, INFINITE, QS_SENDMESSAGE)',
     '&Object, FALSE, INFINITE, 0)'),
    ('lock-of-nothing', 'base/named_lock.cpp',
     '  RequireMutex(Lock.OwnerMutex, Lock.Name);\n',
     ''),
    ('save-permanent', 'changes/macros.cpp',
     '    Save(Permanent);\n',
     '    if (IsPermanent) Save(Permanent);\n'),
    ('text-bound', 'formats/backup_items.cpp',
     'Fits = Fits && Length <= LongestText && Length <= Source.Remaining();',
     'Fits = Fits && Length <= Source.Remaining();'),
    ('zeros-kept', 'rollback/record_file.cpp',
     'while (Zeros == ZerosAreDamage && Whole > 0)',
     'while (Zeros == ZerosAreARecord && Whole > 0)'),
    ('tail-lost', 'rollback/record_file.cpp',
     '  RetryReadAndAppendFile(File, Aside);\n',
     ''),
    ('class-object-uncounted', 'server/class_factory.h',
     '    Owner.CountFactory(+1);\n',
     ''),
    ('unregistered-anyway', 'server/class_factory.cpp',
     '  if (Status != ERROR_FILE_NOT_FOUND) RequireStatus(Status);\n',
     ''),
    ('null-place', 'server/late_argument.cpp',
     'return Takes && Given->byref ? S_OK',
     'return Takes ? S_OK'),
    ('short-root', 'server/late_argument.cpp',
     'Argument.vt == VT_I2) Argument.lVal = Argument.iVal',
     'Argument.vt == VT_I2) Argument.lVal = Argument.uiVal'),
    ('circle-of-data', 'formats/type_library_bounds.cpp',
     '      Require(Left > 0);',
     '      Require(true);'),
    ('string-length', 'formats/type_library_bounds.cpp',
     '      InTable(Strings, At, Size);\n',
     ''),
    ('wide-library-name', 'changes/com_registration.cpp',
     'Form == TForm::Plain && Code == RegisterLibrary',
     'Form == TForm::Logged && Code == RegisterLibrary'),
    ('pointer-by-reference', 'server/late_argument.cpp',
     '    if (!Source->byref) return DISP_E_TYPEMISMATCH;\n',
     ''),
    ('lists-never-read', 'rollback/shared_lists.cpp',
     '  if (Loaded) return Saved;\n',
     '  if (!Loaded) return Saved;\n'),
    ('any-text-place', 'server/late_argument.cpp',
     '(!IsText && IsNumber(Place))',
     'IsNumber(Place)'),
    ('earlier-text', 'server/safe_call.h',
     '  SetErrorInfo(0, nullptr);\n  try {',
     '  try {'),
    ('class-key-stays', 'server/class_factory.cpp',
     'RequireGone(RegDeleteTreeA(HKEY_CLASSES_ROOT, Class.c_str()));',
     'RegDeleteTreeA(HKEY_CLASSES_ROOT, Class.c_str());'),
    ('slash-stays', 'server/arguments.cpp',
     "std::ranges::replace(Result, L'/', L'\\\\');",
     "std::ranges::replace(Result, L'/', L'/');"),
    ('nul-in-name', 'server/arguments.cpp',
     "if (Result.find(L'\\0') != std::wstring_view::npos)",
     'if (Result.empty() && !Text)'),
    ('any-pointer', 'server/safe_call.h',
     '  SetErrorInfo(0, nullptr);\n  return E_POINTER;',
     '  return E_POINTER;'),
    ('key-of-no-log', 'retry/registry_wrappers.cpp',
     'Call.Until([&] { return ByStatus(RegCloseKey(Open)); }, MsgCannotCloseKey, Key.Name);',
     'Call.Until([&] { return ByStatus(Open ? ERROR_SUCCESS : 6); }, MsgCannotCloseKey, Key.Name);'),
    ('quote-comma', 'formats/comma_text.cpp',
     '|| Character == \',\' || Character == \'"\') return true;',
     '|| Character == \'"\') return true;'),
    ('torn-line', 'formats/garbage_lines.cpp',
     'if (End == std::string_view::npos) return std::nullopt;',
     'if (End == std::string_view::npos) { if (Text.empty()) return std::nullopt; auto L = Text; Text = {}; return L; }'),
    ('help-module', 'formats/type_library_bounds.cpp',
     '& HasHelpModule ? NumberSize : 0',
     '& HasHelpModule ? 0 : NumberSize'),
    ('block-size', 'formats/uninstall_blocks.cpp',
     '|| Size > LargestBlock)',
     '|| Size >= LargestBlock)'),
    ('version-lost', 'formats/uninstall_log.cpp',
     'std::max(Version, Header.Number<int32_t>(VersionAt))',
     'Version'),
    ('tlb-case', 'installer/installer_log.cpp',
     'ExtensionOf(FileName) == ".TLB"',
     'ExtensionOf(FileName) == ".tlb"'),
    ('bits-lost', 'installer/installer_log.cpp',
     '  Added.Is64Bit = Identity.Is64Bit;\n',
     ''),
    ('patience', 'retry/engine.h',
     '.SilentRepeats = 3',
     '.SilentRepeats = 2'),
    ('path-not-found', 'retry/file_wrappers.cpp',
     'NotFound = Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND;',
     'NotFound = Code == ERROR_FILE_NOT_FOUND;'),
    ('read-only', 'retry/file_wrappers.cpp',
     '        RetrySetFileAttributes(FileName, FILE_ATTRIBUTE_NORMAL);\n',
     ''),
    ('message-by-disposition', 'retry/file_wrappers.cpp',
     'Disposition == OPEN_EXISTING ? MsgCannotOpen',
     'Disposition == OPEN_ALWAYS ? MsgCannotOpen'),
    ('room', 'retry/registry_wrappers.cpp',
     '          Size = Room;  // a failed attempt may have changed it\n',
     '          if (Room == 0) Size = Room;\n'),
    ('no-seek-back', 'rollback/backup_store.cpp',
     'if (Untaken > 0) RetrySetFilePointer',
     'if (Untaken == 0) RetrySetFilePointer'),
    ('upper-below', 'rollback/file_backup.cpp',
     'Flags.DirNames, VARIANT_FALSE}',
     'Flags.DirNames, Flags.UpperDirName}'),
    ('history-check-point', 'rollback/history.cpp',
     ' && Record.Code == CheckPointCode',
     ''),
    ('act-first', 'rollback/logged_change.h',
     '  if (DataID) CheckCall(TransactionLog.Put(Owner, Code, *DataID));\n  Act();',
     '  Act();\n  if (DataID) CheckCall(TransactionLog.Put(Owner, Code, *DataID));'),
    ('no-empty-copy', 'rollback/record_file.cpp',
     '    TOpenFile Empty = CreateToWrite(CopyPath);\n    RetryCloseHandle(Empty);\n',
     ''),
    ('terminator', 'rollback/registry_backup.cpp',
     'NoTerminator = 0xFF',
     'NoTerminator = 0'),
    ('commit-first', 'rollback/transaction_log.cpp',
     '    Change.Append({BytesOf(Id), static_cast<int32_t>(Code), BytesOf(DataID)});\n    Change.Commit();',
     '    Change.Commit();\n    Change.Append({BytesOf(Id), static_cast<int32_t>(Code), BytesOf(DataID)});'),
    ('key-part', 'server/arguments.cpp',
     'End - At > LongestPart',
     'End - At >= LongestPart'),
    ('newer-version', 'server/class_factory.cpp',
     'RegisteredVersion() < Version)',
     'RegisteredVersion() <= Version)'),
    ('two-sinks', 'server/connection_point.cpp',
     '  if (Connected) return CONNECT_E_ADVISELIMIT;\n',
     ''),
    ('end-anyway', 'server/routine.h',
     'void HasNoEnd() { Ends = false; }',
     'void HasNoEnd() {}'),
    ('default-button', 'services/custom_message_box.cpp',
     '(Default ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON)',
     '(Default ? BS_PUSHBUTTON : BS_DEFPUSHBUTTON)'),
    ('held-attributes', 'retry/file_wrappers.cpp',
     '        if (!Outcome.Ok && Before.dwFileAttributes) SetFileAttributesA(FileName.c_str(), Before.dwFileAttributes);\n',
     ''),
    ('waits-for-ever', 'retry/file_wrappers.cpp',
     'FileExistsByFind(FileName) && !IsNew(FactsNow())',
     'FileExistsByFind(FileName) && !IsNew({})'),
    ('open-flags', 'retry/file_wrappers.h',
     'FILE_ATTRIBUTE_NOT_CONTENT_INDEXED |',
     '0x20000000 |'),
    ('unnamed-folder', 'retry/folder_walk.cpp',
     'Unnamed.push_back({std::move(Entry.Name), ::IsFolder(Entry)});',
     'continue;'),
    ('kept-anyway', 'rollback/file_backup.cpp',
     'if (!Item.CheckRest(Existing.Get()) || GetFileAttributesA',
     'if ((!Existing && !Item.CheckRest(Existing.Get())) || GetFileAttributesA'),
    ('upper-folder', 'rollback/file_backup.cpp',
     'if (Flags.UpperDirName && !IsMissing(Folder))',
     'if (Flags.UpperDirName)'),
    ('relative-mask', 'rollback/file_backup.cpp',
     '    RequireRoot(Mask);\n',
     ''),
    ('log-begin', 'services/debug_log.cpp',
     'FILE_END',
     'FILE_BEGIN'),
]


def tests_fail():
    """Builds and runs the tests up to the first that fails; gives its name, "the build", or None."""
    run = subprocess.run(['./mend', 'test', 'native', 'win32', '--', '--stop-on-failure'], cwd=ROOT, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if run.returncode == 0:
        return None
    failed = re.search(r'- ((?:native|win32)\.\S+) \(', run.stdout)
    return failed.group(1) if failed else 'the build' if 'The build of' in run.stdout else 'the run'


def plant(name, file, old, new):
    """Whether a test finds one fault."""
    path = os.path.join(ROOT, 'src', file)
    with open(path) as source:
        text = source.read()
    begin = time.time()
    if text.count(old) != 1:
        found = None
        print(f'{name}: its text stands {text.count(old)} times in {file}.')
    else:
        try:
            with open(path, 'w') as source:
                source.write(text.replace(old, new))
            found = tests_fail()
        finally:
            with open(path, 'w') as source:
                source.write(text)
    by_test = found is not None and '.' in found
    print(f'{name:24} {file:36} {time.time() - begin:4.0f} s  {found or "NOT FOUND"}', flush=True)
    return by_test


def main(names):
    wanted = [row for row in FAULTS if not names or row[0] in names]
    if names == ['--list'] or len(wanted) < len(names):
        print('\n'.join(f'{row[0]:24} {row[1]}' for row in FAULTS))
        return 0 if names == ['--list'] else 2
    if subprocess.run(['git', 'diff', '--quiet', 'HEAD', '--', 'src'], cwd=ROOT).returncode:
        print('src has changes that are not committed.')
        return 2
    found = sum([plant(*row) for row in wanted])
    print(f'{found} of {len(wanted)} faults were found by a test.')
    return 0 if found == len(wanted) else 1


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
