#!/usr/bin/env python3
"""Reads and makes uninstall logs, independently of the system's own reader; docs/formats/uninstall-log.md describes them.

usage: uninstall_log.py list FILE                    lists the records
       uninstall_log.py make FILE NAME [RECORD...]   makes a log of the application NAME; a RECORD is a file name behind
                                                     "file:", "server:" or "library:"
"""

import struct
import sys
import zlib
from dataclasses import dataclass, field

HEADER = struct.Struct("<64s128s128siiII108sI")
BLOCK = struct.Struct("<III")
RECORD = struct.Struct("<HiI")
ID_32 = b"Inno Setup Uninstall Log (b)"
ID_64 = ID_32 + b" 64-bit"
HIGHEST_VERSION = 45
UNCHECKED = 0x11111111
NO_BLOCK_CHECKS = 2
BLOCK_SIZE = 4096
DELETE_FILE = 0x82
KINDS = {"file": 0, "server": 0x10, "library": 0x40}


class Damaged(Exception):
    pass


def require(holds, what):
    if not holds:
        raise Damaged(what)


@dataclass
class Record:
    type: int
    extra: int
    data: bytes


@dataclass
class Log:
    is_64_bit: bool = False
    application_id: bytes = b""
    application_name: bytes = b""
    version: int = HIGHEST_VERSION
    flags: int = 0
    reserved: bytes = bytes(108)
    records: list = field(default_factory=list)


def text_at(place):
    return place.split(b"\0", 1)[0]


def read_stream(content, end, checked):
    """Joins the data of the blocks between the header and `end`."""
    stream, at = bytearray(), HEADER.size
    while at < end:
        require(at + BLOCK.size <= end, "a block's header is cut off")
        size, complement, crc = BLOCK.unpack_from(content, at)
        at += BLOCK.size
        require(complement == size ^ 0xFFFFFFFF, "a block's size and its complement differ")
        require(size <= BLOCK_SIZE, "a block is too large")
        require(at + size <= end, "a block is cut off")
        data = content[at : at + size]
        require(not checked or zlib.crc32(data) == crc, "a block's checksum is wrong")
        stream += data
        at += size
    return bytes(stream)


def read_log(content):
    require(len(content) >= HEADER.size, "the header is cut off")
    identity, app_id, app_name, version, count, end, flags, reserved, crc = HEADER.unpack_from(content)
    require(crc in (UNCHECKED, zlib.crc32(content[: HEADER.size - 4])), "the header's checksum is wrong")
    require(identity in (ID_32.ljust(64, b"\0"), ID_64.ljust(64, b"\0")), "this is no uninstall log")
    require(version <= HIGHEST_VERSION, "the log is of a later version")
    require(HEADER.size <= end <= len(content), "the log's end is not in the file")
    stream = read_stream(content, end, not flags & NO_BLOCK_CHECKS)
    log = Log(identity.startswith(ID_64), text_at(app_id), text_at(app_name), version, flags, reserved)
    at = 0
    for _ in range(count):
        require(at + RECORD.size <= len(stream), "a record's header is cut off")
        kind, extra, size = RECORD.unpack_from(stream, at)
        at += RECORD.size
        require(at + size <= len(stream), "a record is cut off")
        log.records.append(Record(kind, extra, stream[at : at + size]))
        at += size
    require(at == len(stream), "there is something behind the last record")
    return log


def write_log(log):
    stream = b"".join(RECORD.pack(one.type, one.extra, len(one.data)) + one.data for one in log.records)
    blocks = b""
    for at in range(0, len(stream), BLOCK_SIZE):
        data = stream[at : at + BLOCK_SIZE]
        blocks += BLOCK.pack(len(data), len(data) ^ 0xFFFFFFFF, zlib.crc32(data)) + data
    identity = ID_64 if log.is_64_bit else ID_32
    header = HEADER.pack(identity, log.application_id, log.application_name, log.version, len(log.records),
                         HEADER.size + len(blocks), log.flags, log.reserved, 0)[:-4]
    return header + struct.pack("<I", zlib.crc32(header)) + blocks


def read_strings(data):
    strings, at = [], 0
    while True:
        require(at < len(data), "a string list has no end mark")
        first = data[at]
        at += 1
        if first == 0xFF:
            return strings
        width = {0xFD: 2, 0xFE: 4}.get(first, 0)
        require(at + width <= len(data), "a string's length is cut off")
        length = int.from_bytes(data[at : at + width], "little") if width else first
        at += width
        require(at + length <= len(data), "a string is cut off")
        strings.append(data[at : at + length])
        at += length


def write_strings(strings):
    data = b""
    for one in strings:
        if len(one) < 0xFD:
            data += bytes([len(one)])
        elif len(one) <= 0xFFFF:
            data += b"\xFD" + struct.pack("<H", len(one))
        else:
            data += b"\xFE" + struct.pack("<I", len(one))
        data += one
    return data + b"\xFF"


def file_record(name, extra):
    return Record(DELETE_FILE, extra, write_strings([name]))


def tell_record(record):
    """One line: what a delete-file record deletes, or the bytes of any other."""
    kinds = {extra: kind for kind, extra in KINDS.items()}
    if record.type != DELETE_FILE or record.extra not in kinds:
        return f"record {record.type:#x}, {record.extra:#x}: {record.data.hex()}"
    names = ", ".join(one.decode("cp1252", "replace") for one in read_strings(record.data))
    return f"{kinds[record.extra]:<8} {names}"


def list_log(name):
    with open(name, "rb") as file:
        log = read_log(file.read())
    for record in log.records:
        print(tell_record(record))


def make_log(name, application, *records):
    log = Log(application_id=application.encode("cp1252"), application_name=application.encode("cp1252"))
    for one in records:
        kind, path = one.split(":", 1)
        log.records.append(file_record(path.encode("cp1252"), KINDS[kind]))
    with open(name, "wb") as file:
        file.write(write_log(log))


def main(words):
    commands = {"list": list_log, "make": make_log}
    if len(words) < 2 or words[0] not in commands:
        sys.exit(__doc__)
    try:
        commands[words[0]](*words[1:])
    except (Damaged, OSError) as error:
        sys.exit(f"{words[1]}: {error}")


if __name__ == "__main__":
    main(sys.argv[1:])
