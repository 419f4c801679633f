"""Holds what ProcessInno writes against a reader that shares nothing with the system's own: tools/uninstall_log.py.

usage: second_reader.py FOLDER COMMAND...    COMMAND runs the tests' program in a role
"""

import shutil
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
from uninstall_log import KINDS, Log, Record, file_record, read_log, write_log  # noqa: E402

FILES = [rf"C:\App\{name}" for name in ("new.txt", "n" * 245, "n" * 246, "n" * 247)]
FILES += [rf"C:\App\{number:03}-{'x' * 150}.dat" for number in range(60)]
SERVERS = [r"C:\App\server.dll", r"C:\App\types.TLB", r"C:\App\types2.tlb"]


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def installed(is_64_bit):
    """A log with records of many types, one of them longer than several blocks, and one that the update brings, too."""
    log = Log(is_64_bit, b"{5B0E7F4C}_is1", b"Orvane Notes", version=31, flags=1, reserved=bytes(range(108)))
    for number in range(300):
        kind = number * 217 % 0x10000
        log.records.append(Record(kind, kind * -32749, bytes([kind % 256]) * (number * 7 % 90)))
    log.records.append(Record(0xFFFF, -1, bytes(range(256)) * 50))
    log.records.append(file_record(FILES[0].upper().encode(), 0))
    return log


def dumped(folder):
    """The records as the system's reader gives them."""
    for line in (folder / "records.txt").read_text().splitlines():
        kind, extra, data = (line + " ").split(" ")[:3]
        yield Record(int(kind), int(extra), bytes.fromhex(data))


def check(folder, command, is_64_bit):
    shutil.rmtree(folder, ignore_errors=True)
    (folder / "Uninstall").mkdir(parents=True)
    path = folder / "Uninstall" / "unins000.dat"
    before = installed(is_64_bit)
    path.write_bytes(write_log(before))
    words = [f"file:{name}" for name in FILES] + [f"server:{name}" for name in SERVERS]
    (folder / "names.txt").write_text("\n".join(words) + "\n")
    subprocess.run([*command, "bring-to-log", windows_path(folder)], check=True, timeout=120)
    after = read_log(path.read_bytes())

    expected = list(before.records)
    expected += [file_record(name.encode(), KINDS["file"]) for name in FILES[1:]]
    expected += [file_record(name.encode(), KINDS["library" if name.endswith(".TLB") else "server"]) for name in SERVERS]
    assert after.records == expected, "the records are the old ones and the new ones"
    assert list(dumped(folder)) == expected, "the system's reader finds the same"
    assert after == Log(**{**vars(before), "version": 45, "records": expected}), "the header's fields stay"
    print(f"{'64' if is_64_bit else '32'}-bit log: both readers agree on {len(expected)} records")


def main(folder, *command):
    for is_64_bit in (False, True):
        check(Path(folder), command, is_64_bit)


main(*sys.argv[1:])
