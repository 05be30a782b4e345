"""The reader of day files must refuse whatever breaks a rule of the format; the other tests lean on it."""
import struct
import sys
import zlib

from harness import check, run_test
from read_day_file import Violation, key_of_day, rc4, read_day_bytes

DAY = 1699920000
NAME = "%d.db" % DAY
LARGE = bytes(3 * 1024 * 1024)


def counted(data):
    return struct.pack("<I", len(data)) + data


def block(plain, compress=zlib.compress, raw=None):
    payload = rc4(key_of_day(DAY), compress(plain))
    tail = struct.pack("<3I", len(payload), len(payload), len(plain) if raw is None else raw) + payload
    return struct.pack("<I", zlib.crc32(tail)) + tail


def process(path=b"/bin/a", md5=bytes(16), qid=bytes(32), puid=7, pid=8, references=1):
    return counted(path) + struct.pack("<16s32sQqi", md5, qid, puid, pid, references)


def address(last_octet, index=0xFFFFFFFF, port=443, first=10, last=20, total=1, inbound=0, outbound=1):
    return struct.pack("<4BIHQIIQIQ", 192, 0, 2, last_octet, index, port, first | last << 17 | 0x800 << 34, total,
                       inbound, 5, outbound, 6)


FREE = process(b"", puid=0, pid=-1, references=-1)
PROCESSES = (process(), FREE, process(b"/bin/b", references=2))
ADDRESSES = (address(1), address(2, 0), address(2, 2), address(2, 2, 444))


def table(rows, most, flags, count=None):
    return struct.pack("<HIII", 1, len(rows) if count is None else count, most, flags) + b"".join(rows)


def process_table(rows=PROCESSES, most=0x20000, **more):
    return counted(table(rows, most, 0x10000064, **more))


def address_table(rows=ADDRESSES, flags=0x10000400, **more):
    return counted(table(rows, 0x40000, flags, **more))


def day_file(pages=None, index=counted(b"p") + counted(b"4"), tail=b"", blob=struct.pack("<QQ", DAY, 0), magic=b"RYLB",
             versions=(2, 1), entries=2, flags=6, key_size=0, index_block=None):
    if pages is None:
        pages = [block(counted(process_table()) + counted(address_table()))]
    content = b"".join(pages)
    header = magic + struct.pack("<8I", *versions, entries, flags, key_size, 40 + len(blob) + len(content), len(blob),
                                 zlib.crc32(blob))
    return (header + struct.pack("<I", zlib.crc32(header)) + blob + content + (index_block or block(index)) + tail)


def one_page(processes=None, addresses=None):
    return day_file([block(counted(processes or process_table()) + counted(addresses or address_table()))])


def refused(name, data, text):
    try:
        read_day_bytes(name, data)
    except Violation as violation:
        check(text in str(violation), "\"%s\" instead of \"%s\"", violation, text)
        return
    check(False, "not refused: %s", text)


def a_good_file(_):
    rows = read_day_bytes(NAME, day_file())
    check([(row["ip"], row["port"], row["proc_fpath"], row["proc_pid"]) for row in rows] == [
        ("192.0.2.1", 443, "", -1), ("192.0.2.2", 443, "/bin/a", 8), ("192.0.2.2", 443, "/bin/b", 8),
        ("192.0.2.2", 444, "/bin/b", 8)], "rows: %s", rows)
    check(rows[0] == dict(rows[0], first_seen=DAY + 10, last_seen=DAY + 20, protos=0x800, conns_total=1, conns_in=0,
                          conns_out=1, bytes_in=5, bytes_out=6), "row: %s", rows[0])
    two_pages = [block(counted(process_table())), block(counted(address_table()))]
    refused(NAME, day_file(two_pages), "had room in the page before")
    filtered = day_file(blob=struct.pack("<QQ", DAY, DAY + 90000))
    check(read_day_bytes(NAME + ".f", filtered) == rows, "rows of the filtered file")


def any_byte_changed_or_missing(_):
    data = day_file()
    for at in range(len(data)):
        changed = bytearray(data)
        changed[at] ^= 0x10
        refused(NAME, bytes(changed), "")
        refused(NAME, data[:at], "")


def frame_rules(_):
    refused("169992000.db", day_file(), "not the name")
    refused("1699920001.db", day_file(), "not the start of a day")
    refused("1700006400.db", day_file(), "day_stamp")
    refused(NAME + ".f", day_file(), "filter_stamp")
    refused(NAME, day_file(magic=bytes(4)), "Magic")
    refused(NAME, day_file(versions=(1, 1)), "FormatVersion")
    refused(NAME, day_file(versions=(2, 2)), "DataVersion")
    refused(NAME, day_file(entries=3), "EntryCount")
    refused(NAME, day_file(flags=14), "FileFlags")
    refused(NAME, day_file(key_size=4), "KeyEntrySize")
    refused(NAME, day_file(blob=bytes(8)), "BinderHeaderSize")
    refused(NAME, day_file(tail=b"x"), "behind it")
    refused(NAME, day_file(pages=[]), "IndexPosition")
    refused(NAME, day_file(index=counted(b"4") + counted(b"p")), "keys are")
    refused(NAME, day_file(pages=[block(counted(process_table()))]), "2 keys and 1 values")
    refused(NAME, day_file(pages=[block(b"")]), "is empty")
    refused(NAME, day_file(pages=[block(counted(LARGE) + counted(LARGE))]), "2 values")
    refused(NAME, day_file(pages=[block(b"", raw=26214401)]), "above the limit")
    refused(NAME, day_file(pages=[block(b"abcd", raw=3)]), "another size")
    refused(NAME, day_file(pages=[block(b"abcd", compress=lambda plain: plain)]), "page 0: Error")
    refused(NAME, day_file(pages=[block(b"", compress=lambda plain: zlib.compress(plain) + b"x")]), "does not end")


def table_rules(_):
    refused(NAME, one_page(processes=process_table(most=0x20001)), "MaxCount")
    refused(NAME, one_page(addresses=address_table(flags=0x10000401)), "ArrayFlags")
    refused(NAME, one_page(addresses=address_table(count=3)), "bytes too many")
    refused(NAME, one_page(addresses=address_table(count=5)), "bytes wanted")
    refused(NAME, one_page(addresses=address_table(count=0x40001)), "262145 rows")
    refused(NAME, one_page(addresses=address_table(ADDRESSES[::-1])), "not above")
    refused(NAME, one_page(addresses=address_table((ADDRESSES[0],) * 2)), "not above")
    refused(NAME, one_page(addresses=address_table(ADDRESSES + (address(3, 3),))), "proc_index")
    refused(NAME, one_page(addresses=address_table(ADDRESSES + (address(3, 1),))), "process 1: ref_count")
    refused(NAME, one_page(addresses=address_table(ADDRESSES[:3])), "process 2: ref_count 2, but 1 rows")
    refused(NAME, one_page(addresses=address_table((address(0, first=21),) + ADDRESSES)), "seen from 21 to 20")
    refused(NAME, one_page(addresses=address_table((address(0, last=86400),) + ADDRESSES)), "seen from")
    refused(NAME, one_page(addresses=address_table((address(0, inbound=1),) + ADDRESSES)), "1 inbound")
    refused(NAME, one_page(processes=process_table(PROCESSES + (process(references=0),))), "ref_count 0")
    refused(NAME, one_page(processes=process_table(PROCESSES + (process(references=-1),))), "free slot")


if __name__ == "__main__":
    if len(sys.argv) != 1:
        sys.exit(__doc__)
    run_test(a_good_file, any_byte_changed_or_missing, frame_rules, table_rules)
