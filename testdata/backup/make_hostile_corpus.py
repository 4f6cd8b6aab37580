#!/usr/bin/env python3
"""Writes the hostile-archive corpus of the backup tests into a folder.

Every archive here must be refused by `lumeo backup restore` and `verify`
with a clear message, and nothing of it may be unpacked. The zip structures
are written by hand, so that each file breaks exactly one rule.

    make_hostile_corpus.py OUTDIR          the whole corpus
    make_hostile_corpus.py --small OUTDIR  without the two large cases
"""
import os
import struct
import sys
import zlib

GOOD_JSON = b'[{"date":"2026-03-02 09:00:00 AM","moodLevel":7,"moodDescription":{"comment":"x","wasEdited":0}}]'


def member(name, data=b"", method=8, **kw):
    m = dict(name=name, data=data, method=method, flags=0, made_by=20, external=0, local_name=None,
             sizes=None, local_sizes=None)
    m.update(kw)
    return m


def build(members, declared_count=None, cut_directory=0, cut_file=0):
    out = bytearray()
    central = bytearray()
    for m in members:
        data = m["data"]
        crc = zlib.crc32(data) & 0xffffffff
        if m["method"] == 8:
            c = zlib.compressobj(6, zlib.DEFLATED, -15)
            packed = c.compress(data) + c.flush()
        else:
            packed = data
        csize, usize = m["sizes"] or (len(packed), len(data))
        lcsize, lusize = m["local_sizes"] or (csize, usize)
        local_name = m["local_name"] if m["local_name"] is not None else m["name"]
        offset = len(out)
        out += struct.pack("<IHHHHHIIIHH", 0x04034b50, 20, m["flags"], m["method"], 0, 0x21, crc,
                           lcsize, lusize, len(local_name), 0)
        out += local_name + packed
        central += struct.pack("<IHHHHHHIIIHHHHHII", 0x02014b50, m["made_by"], 20, m["flags"], m["method"], 0,
                               0x21, crc, csize, usize, len(m["name"]), 0, 0, 0, 0, m["external"], offset)
        central += m["name"]
    count = len(members) if declared_count is None else declared_count
    cd_offset = len(out)
    cd = bytes(central[: len(central) - cut_directory]) if cut_directory else bytes(central)
    out += cd
    if count > 0xffff:
        # Only the 64-bit end records can tell more than 65,535 members.
        zip64_end = len(out)
        out += struct.pack("<IQHHIIQQQQ", 0x06064b50, 44, 45, 45, 0, 0, count, count, len(central), cd_offset)
        out += struct.pack("<IIQI", 0x07064b50, 0, zip64_end, 1)
        out += struct.pack("<IHHHHIIH", 0x06054b50, 0, 0, 0xffff, 0xffff, 0xffffffff, 0xffffffff, 0)
    else:
        out += struct.pack("<IHHHHIIH", 0x06054b50, 0, 0, count, count, len(central), cd_offset, 0)
    if cut_file:
        return bytes(out[:cut_file])
    return bytes(out)


def corpus(small):
    doc = member(b"/backup.json", GOOD_JSON)
    cases = {
        "dotdot.zip": [doc, member(b"../evil.txt", b"owned")],
        "dotdot_in_images.zip": [doc, member(b"/imageStore/../../evil.jpg", b"owned")],
        "absolute_outside.zip": [doc, member(b"/etc/cron.d/evil", b"owned")],
        "not_in_layout.zip": [doc, member(b"/notes.txt", b"hello")],
        "nested_image.zip": [doc, member(b"/imageStore/sub/x.jpg", b"jpeg")],
        "symlink.zip": [doc, member(b"/imageStore/link.jpg", b"/etc/passwd", method=0, made_by=(3 << 8) | 20,
                                    external=(0o120777 << 16))],
        "duplicate.zip": [doc, member(b"/backup.json", b"[]")],
        "duplicate_without_slash.zip": [doc, member(b"backup.json", b"[]")],
        "nul_in_name.zip": [doc, member(b"/imageStore/a\x00.jpg", b"jpeg")],
        "backslash_in_name.zip": [doc, member(b"/imageStore\\..\\evil.jpg", b"jpeg")],
        "encrypted.zip": [doc, member(b"/imageStore/a.jpg", b"jpeg", method=0, flags=1)],
        "absurd_size.zip": [doc, member(b"/imageStore/a.jpg", b"jpeg", method=0, sizes=(3 << 30, 3 << 30))],
        "local_header_mismatch.zip": [doc, member(b"/imageStore/a.jpg", b"jpeg", local_name=b"/imageStore/b.jpg")],
        "local_size_mismatch.zip": [doc, member(b"/imageStore/a.jpg", b"jpeg" * 10, local_sizes=(5, 9))],
    }
    files = {name: build(members) for name, members in cases.items()}
    files["truncated_directory.zip"] = build([doc, member(b"/imageStore/a.jpg", b"jpeg")], cut_directory=20)
    files["too_many_members_declared.zip"] = build([doc], declared_count=100001)
    if not small:
        # A deflate bomb: 200 MiB of zeros in a few hundred KiB.
        bomb = member(b"/imageStore/bomb.jpg", b"\0" * (200 << 20))
        files["zip_bomb.zip"] = build([doc, bomb])
        # More members than any journal has, all of them real.
        many = [doc] + [member(b"/imageStore/%024x.jpg" % i, b"", method=0) for i in range(100001)]
        files["too_many_members.zip"] = build(many)
        # The same with the 16-bit count wrapped, as careless writers do.
        files["too_many_members_wrapped.zip"] = build(many, declared_count=len(many) % 65536)
    return files


def main():
    args = sys.argv[1:]
    small = "--small" in args
    args = [a for a in args if a != "--small"]
    if len(args) != 1:
        sys.exit(__doc__)
    os.makedirs(args[0], exist_ok=True)
    for name, data in sorted(corpus(small).items()):
        with open(os.path.join(args[0], name), "wb") as f:
            f.write(data)


if __name__ == "__main__":
    main()
