#!/usr/bin/env python3
"""Reads day files as docs/file-format.md describes them, and checks all that can be checked.

Shares nothing with the program. Prints one JSON object a row, sorted, in the form of expected_rows.py. Ends with 1 and a
message at the first file that breaks a rule.

usage: read_day_file.py DAY.db...
"""
import hashlib
import ipaddress
import json
import os
import re
import struct
import sys
import time
import zlib

HEADER_SIZE = 40
MAX_SIZE = 26214400
MAX_PAGE = 5242880
DAY_SECONDS = 86400
MAX_U32 = 2**32 - 1
FREE_SLOT = -1
NO_PROCESS = ("", "0" * 32, "0" * 64, 0, -1)
INDEX_OF_A_DAY = [b"p", b"4"]


class Violation(Exception):
    """A rule of the format that the file breaks."""


def need(condition, message, *arguments):
    if not condition:
        raise Violation(message % arguments)


class Cursor:
    """Takes fields off bytes, front to back."""

    def __init__(self, data, what):
        self.data, self.what, self.at = data, what, 0

    def bytes(self, count):
        need(count <= len(self.data) - self.at, "%s: %d bytes wanted at %d of %d", self.what, count, self.at,
             len(self.data))
        self.at += count
        return self.data[self.at - count:self.at]

    def fields(self, layout):
        return struct.unpack("<" + layout, self.bytes(struct.calcsize("<" + layout)))

    def field(self, layout):
        return self.fields(layout)[0]

    def counted(self):
        return self.bytes(self.field("I"))

    def ended(self):
        return self.at == len(self.data)

    def need_end(self):
        need(self.ended(), "%s: %d bytes too many", self.what, len(self.data) - self.at)


def rc4(key, data):
    state = list(range(256))
    j = 0
    for i in range(256):
        j = (j + state[i] + key[i % len(key)]) & 255
        state[i], state[j] = state[j], state[i]
    i = j = 0
    stream = bytearray(len(data))
    for n in range(len(data)):
        i = (i + 1) & 255
        a = state[i]
        j = (j + a) & 255
        b = state[j]
        state[i] = b
        state[j] = a
        stream[n] = state[(a + b) & 255]
    whole = int.from_bytes(data, "little") ^ int.from_bytes(stream, "little")
    return whole.to_bytes(len(data), "little")


def key_of_day(day):
    return hashlib.md5(time.strftime("ryl-netdb/%Y-%m-%d", time.gmtime(day)).encode()).digest()


def inflate(packed, size, what):
    inflater = zlib.decompressobj()
    try:
        plain = inflater.decompress(packed, size + 1)
    except zlib.error as error:
        raise Violation("%s: %s" % (what, error)) from error
    need(len(plain) == size, "%s: inflates to another size than %d", what, size)
    need(inflater.eof and not inflater.unused_data, "%s: the zlib stream does not end with the payload", what)
    return plain


def read_block(data, at, end, key, what):
    """The plain content of the block at `at`, and where it ends."""
    cursor = Cursor(data[at:end], what)
    crc, ciphered, compressed, raw = cursor.fields("4I")
    need(max(ciphered, compressed, raw) <= MAX_SIZE, "%s: a size is above the limit", what)
    need(ciphered == compressed, "%s: CipheredSize %d, CompressedSize %d", what, ciphered, compressed)
    payload = cursor.bytes(ciphered)
    need(crc == zlib.crc32(cursor.data[4:cursor.at]), "%s: BlockCrc is wrong", what)
    return inflate(rc4(key, payload), raw, what), at + cursor.at


def read_header(data, day):
    """Checks header and blob; gives the position of the first page and that of the index."""
    cursor = Cursor(data, "header")
    magic, version, data_version, entries, flags, key_size, index_at, blob_size, blob_crc, header_crc = cursor.fields(
        "4s9I")
    need(magic == b"RYLB", "header: Magic is %s", magic.hex())
    need(header_crc == zlib.crc32(data[:HEADER_SIZE - 4]), "header: HeaderCrc is wrong")
    need((version, data_version) == (2, 1), "header: FormatVersion %d, DataVersion %d", version, data_version)
    need(entries == 2, "header: EntryCount is %d", entries)
    need(flags == 2 + 4, "header: FileFlags is %d", flags)
    need(key_size == 0, "header: KeyEntrySize is %d", key_size)
    need(blob_size == 16, "header: BinderHeaderSize is %d", blob_size)
    blob = Cursor(cursor.bytes(blob_size), "blob")
    need(blob_crc == zlib.crc32(blob.data), "header: BinderHeaderCrc is wrong")
    day_stamp, filter_stamp = blob.fields("QQ")
    need(day_stamp == day, "blob: day_stamp is %d", day_stamp)
    need(cursor.at < index_at < len(data), "header: IndexPosition is %d in a file of %d bytes", index_at, len(data))
    return cursor.at, index_at, filter_stamp


def read_pages(data, at, index_at, key):
    """The values of all pages, in order."""
    values, number, size_before = [], 0, None
    while at < index_at:
        what = "page %d" % number
        plain, at = read_block(data, at, index_at, key, what)
        cursor = Cursor(plain, what)
        before = len(values)
        while not cursor.ended():
            values.append(cursor.counted())
        need(len(values) > before, "%s: is empty", what)
        need(len(plain) <= MAX_PAGE or len(values) == before + 1, "%s: has %d bytes and %d values", what, len(plain),
             len(values) - before)
        need(size_before is None or size_before + 4 + len(values[before]) > MAX_PAGE,
             "%s: its first value had room in the page before", what)
        number, size_before = number + 1, len(plain)
    need(at == index_at, "the last page ends at %d and the index starts at %d", at, index_at)
    return values


def read_index(data, index_at, key):
    plain, end = read_block(data, index_at, len(data), key, "index")
    need(end == len(data), "index: %d bytes behind it", len(data) - end)
    cursor = Cursor(plain, "index")
    keys = []
    while not cursor.ended():
        keys.append(cursor.counted())
    return keys


def open_table(value, what, max_count, array_flags):
    """A cursor on the first row, and the number of rows."""
    outer = Cursor(value, what)
    cursor = Cursor(outer.counted(), what)
    outer.need_end()
    version, count = cursor.fields("HI")
    need(version in (0, 1), "%s: version %d", what, version)
    if version == 1:
        limits = cursor.fields("II")
        need(limits == (max_count, array_flags), "%s: MaxCount 0x%x, ArrayFlags 0x%x", what, *limits)
    need(count <= max_count, "%s: %d rows", what, count)
    return cursor, count


def read_processes(value):
    """Pairs of process (path, md5, qid, puid, pid) and reference count."""
    cursor, count = open_table(value, "process table", 0x20000, 0x10000064)
    processes = []
    for number in range(count):
        path = cursor.counted().decode("utf-8", "surrogateescape")
        md5, qid, puid, pid, references = cursor.fields("16s32sQqi")
        process = (path, md5.hex(), qid.hex(), puid, pid)
        need(references > 0 or references == FREE_SLOT, "process %d: ref_count %d", number, references)
        need(references != FREE_SLOT or process == NO_PROCESS, "process %d: a free slot with content", number)
        processes.append((process, references))
    cursor.need_end()
    return processes


def read_address(cursor):
    """A row's sort key, and the row without its process."""
    address, process, port, packed, total, inbound, received, outbound, sent = cursor.fields("4sIHQIIQIQ")
    return (address, process, port), {
        "ip": str(ipaddress.IPv4Address(address)), "port": port, "protos": packed >> 34,
        "first_seen": packed & 0x1FFFF, "last_seen": packed >> 17 & 0x1FFFF, "conns_total": total, "conns_in": inbound,
        "conns_out": outbound, "bytes_in": received, "bytes_out": sent}


def check_address(row, what):
    need(row["first_seen"] <= row["last_seen"] < DAY_SECONDS, "%s: seen from %d to %d", what, row["first_seen"],
         row["last_seen"])
    need(row["conns_in"] + row["conns_out"] <= row["conns_total"] or row["conns_total"] == MAX_U32,
         "%s: %d connections, %d inbound, %d outbound", what, row["conns_total"], row["conns_in"], row["conns_out"])


def read_addresses(value, processes, day):
    cursor, count = open_table(value, "address table", 0x40000, 0x10000400)
    rows, last_key, references = [], None, [0] * len(processes)
    for number in range(count):
        key, row = read_address(cursor)
        what = "address row %d" % number
        check_address(row, what)
        need(last_key is None or last_key < key, "%s: not above the row before", what)
        last_key, index, process = key, key[1], NO_PROCESS
        if index != MAX_U32:
            need(index < len(processes), "%s: proc_index %d of %d", what, index, len(processes))
            references[index] += 1
            process = processes[index][0]
        row["first_seen"] += day
        row["last_seen"] += day
        rows.append(dict(row, **dict(zip(("proc_fpath", "proc_md5", "proc_qid", "proc_puid", "proc_pid"), process))))
    cursor.need_end()
    for number, (process, said) in enumerate(processes):
        need(references[number] == max(said, 0), "process %d: ref_count %d, but %d rows", number, said,
             references[number])
    return rows


def day_of_name(name):
    """The day and whether harmless addresses were removed. A save under way has its own ending."""
    found = re.fullmatch(r"([0-9]{10})\.db(\.f|\.temp)?", name)
    need(found, "not the name of a day file")
    need(int(found.group(1)) % DAY_SECONDS == 0, "the name is not the start of a day")
    return int(found.group(1)), found.group(2) == ".f"


def read_day_bytes(name, data):
    """The rows of the day file `name` with the content `data`. Raises Violation."""
    day, is_filtered = day_of_name(name)
    first_page, index_at, filter_stamp = read_header(data, day)
    need(filter_stamp != 0 or not is_filtered, "blob: filter_stamp is 0 in a filtered file")
    key = key_of_day(day)
    values = read_pages(data, first_page, index_at, key)
    keys = read_index(data, index_at, key)
    need(keys == INDEX_OF_A_DAY, "index: the keys are %r", keys)
    need(len(values) == len(keys), "%d keys and %d values", len(keys), len(values))
    return read_addresses(values[1], read_processes(values[0]), day)


def read_day_file(path):
    with open(path, "rb") as file:
        return read_day_bytes(os.path.basename(path), file.read())


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    rows = []
    for path in sys.argv[1:]:
        try:
            rows += read_day_file(path)
        except (Violation, OSError) as error:
            sys.exit("%s: %s" % (path, error))
    for line in sorted(json.dumps(row, sort_keys=True) for row in rows):
        print(line)


if __name__ == "__main__":
    main()
