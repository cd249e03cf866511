#!/usr/bin/env python3
"""Reads the port counter table an agent publishes, without the C++ library.

    vorn_table_reader.py [-n NS] [--no-baseline] [--shm-dir DIR]

Maps /dev/shm/<ns>.allIntfCounters read-only, checks its header, walks its
slots with the sequence protocol, checks every slot it uses, and prints one
JSON object per port (sorted by interface id). Counters are shown minus the
port's record in <ns>.allIntfClearCounters when that table exists, as the
command-line reader shows them. Exits 1 with a one-line "damaged" message on
stderr when the table cannot be trusted; a damaged record is never printed.

Written from docs/table-format.md alone; standard library only.
"""

import argparse
import json
import mmap
import os
import struct
import sys
import time

MASK = (1 << 64) - 1

MAGIC = 0x4C4241544D495242
MAJOR_VERSION = 2
HEADER_SIZE = 4096
MAX_CAPACITY = 1 << 24

EMPTY = 0xF2A74DE452E6B439
LIVE = 0x6513270E269E0D37
TOMB = 0x0C5C7FD0A6A3A451

EVEN_WEIGHT = 0x6513270E269E0D37
ODD_WEIGHT = 0xD23F0824128B2F33
KEY_WEIGHT = 0x1818E811892F902B
STATE_WEIGHT = 0x9531985D5D9DC9F9
LIVE_SEED = 0x36F675CC81E74EF5

PORT_TYPE_NAME = "Interface::EthIntfCounterBrim"
PORT_RECORD_SIZE = 424
PORT_LAYOUT_HASH = 0

# Fixed header fields: offset, struct format.
HEADER_FIELDS = {
    "magic": (0, "<Q"),
    "majorVersion": (8, "<I"),
    "minorVersion": (12, "<I"),
    "recordSize": (80, "<I"),
    "slotSize": (84, "<I"),
    "capacity": (88, "<I"),
    "slotCount": (92, "<I"),
    "layoutHash": (96, "<Q"),
    "slotsOffset": (104, "<Q"),
    "totalSize": (112, "<Q"),
    "fixedChecksum": (120, "<Q"),
}
LIVE_SEQ_OFFSET = 128
LIVE_WORDS_OFFSET = 136
LIVE_WORD_NAMES = ("generation", "writerPid", "heartbeat", "liveCount", "tombCount",
                   "maxProbe", "changeCount")
LIVE_CHECKSUM_OFFSET = 192

# Slot control words.
SEQ, KEY, STATE, CHECKSUM = 0, 1, 2, 3
SLOT_HEADER_WORDS = 4

# Retry budget for a slot or the live words mid-write: spins, yields, 1 ms sleeps.
SPINS, YIELDS, SLEEPS = 64, 1000, 250

STAT_FIELDS = ("inOctets", "inUcastPkts", "inMulticastPkts", "inBroadcastPkts", "inDiscards",
               "outOctets", "outUcastPkts", "outMulticastPkts", "outBroadcastPkts",
               "outDiscards", "inErrors", "inUnknownProtos", "outErrors")
OPTIONAL_STATS = ("outMulticastPkts", "inUnknownProtos")
ETH_FIELDS = ("alignmentErrors", "fcsErrors", "frameTooLongs", "frameTooShorts",
              "internalMacReceiveErrors", "symbolErrors", "sqeTestErrors", "lateCollisions",
              "excessiveCollisions", "internalMacTransmitErrors", "carrierSenseErrors",
              "deferredTransmissions", "singleCollisionFrames", "multipleCollisionFrames",
              "inPauseFrames", "outPauseFrames", "inFrames64", "inFrames65To127",
              "inFrames128To255", "inFrames256To511", "inFrames512To1023",
              "inFrames1024To1522", "inFrames1523ToMax", "outFrames64", "outFrames65To127",
              "outFrames128To255", "outFrames256To511", "outFrames512To1023",
              "outFrames1024To1522", "outFrames1523ToMax")
PRESENT = 1 << 63


class Damaged(Exception):
    """The table cannot be trusted; the message says why."""


class Missing(Exception):
    """The table does not exist."""


def rotl(x, r):
    r %= 64
    return ((x << r) | (x >> (64 - r))) & MASK if r else x


def mix64(x):
    x ^= x >> 33
    x = (x * 0xFF51AFD7ED558CCD) & MASK
    x ^= x >> 33
    x = (x * 0xC4CEB9FE1A85EC53) & MASK
    x ^= x >> 33
    return x


def lanes(words):
    blocks = (len(words) + 7) // 8
    rotated = 0
    added = 0
    for i, w in enumerate(words):
        rotated ^= rotl(w, 2 + (i % 8) + 8 * ((i // 8) % 7))
        weight = EVEN_WEIGHT if i % 2 == 0 else ODD_WEIGHT
        added = (added + w * weight * (1 + 2 * (4 * blocks - i // 2))) & MASK
    return rotated, added


def slot_checksum(key, state, record_words):
    rotated, added = lanes(record_words)
    rotated ^= rotl(key, 60) ^ rotl(state, 61)
    added = (added + key * KEY_WEIGHT + state * STATE_WEIGHT) & MASK
    return rotated ^ added


EMPTY_CHECKSUM = slot_checksum(0, EMPTY, [])


def header_checksum(words15):
    rotated, added = lanes(words15)
    return rotated ^ added ^ MAGIC


def live_checksum(words7):
    rotated, added = lanes(words7)
    return rotated ^ added ^ LIVE_SEED


def intf_name(value):
    """The canonical name of an interface id, or IntfId(0x...) for a value no name gives."""
    kind = value >> 56
    p0, p1, p2 = (value >> 32) & 0xFFFF, (value >> 16) & 0xFFFF, value & 0xFFFF
    bad = "IntfId(0x%x)" % value
    if (value >> 48) & 0xFF:
        return bad
    if kind == 0:
        return "" if value == 0 else bad
    if kind == 1:
        if p0 == 0 or (p1 == 0 and p2 != 0):
            return bad
        parts = [p0] + ([p1] if p1 else []) + ([p2] if p1 and p2 else [])
        return "Ethernet" + "/".join(str(p) for p in parts)
    if kind == 2:
        if p0 == 0 or p0 > 4094 or p1 or p2:
            return bad
        return "Vlan%d" % p0
    if kind == 3:
        if p1 or p2:
            return bad
        return "Cpu" if p0 == 0 else "Cpu%d" % p0
    if kind == 4:
        if p0 == 0 or p1 or p2:
            return bad
        return "Fabric%d" % p0
    return bad


class Table:
    """One table, mapped read-only."""

    def __init__(self, path, type_name, record_size, layout_hash):
        self.path = path
        try:
            fd = os.open(path, os.O_RDONLY)
        except FileNotFoundError:
            raise Missing("table %s does not exist" % os.path.basename(path))
        try:
            size = os.fstat(fd).st_size
            if size < HEADER_SIZE:
                raise Damaged("object is %d bytes, smaller than its header (%d bytes)"
                              % (size, HEADER_SIZE))
            self.map = mmap.mmap(fd, size, mmap.MAP_SHARED, mmap.PROT_READ)
        finally:
            os.close(fd)
        self.size = size
        self._check_header(type_name, record_size, layout_hash)

    def word(self, offset):
        return struct.unpack_from("<Q", self.map, offset)[0]

    def _check_header(self, type_name, record_size, layout_hash):
        h = {name: struct.unpack_from(fmt, self.map, off)[0]
             for name, (off, fmt) in HEADER_FIELDS.items()}
        if h["magic"] != MAGIC:
            raise Damaged("bad magic number 0x%016x (not a table of this format)" % h["magic"])
        if h["majorVersion"] != MAJOR_VERSION:
            raise Damaged("layout version %d.%d, this reader reads major version %d"
                          % (h["majorVersion"], h["minorVersion"], MAJOR_VERSION))
        problems = []
        raw_name = bytes(self.map[16:80])
        name = raw_name.split(b"\0", 1)[0].decode("latin-1")
        if name != type_name:
            problems.append("record type is '%s', expected '%s'" % (name, type_name))
        if h["recordSize"] != record_size:
            problems.append("record size is %d bytes, expected %d" % (h["recordSize"], record_size))
        if h["layoutHash"] != layout_hash:
            problems.append("record field layout hash is 0x%016x, expected 0x%016x"
                            % (h["layoutHash"], layout_hash))
        words15 = list(struct.unpack_from("<15Q", self.map, 0))
        if header_checksum(words15) != h["fixedChecksum"]:
            problems.append("header checksum mismatch")
        if not problems:
            geometry = self._geometry_problem(h)
            if geometry:
                problems.append(geometry)
        if problems:
            raise Damaged("; ".join(problems))
        self.header = h
        self.slot_count = h["slotCount"]
        self.slot_size = h["slotSize"]
        self.record_words = h["recordSize"] // 8
        self.mask = self.slot_count - 1
        live = self.live_words()
        if not (live["liveCount"] <= h["capacity"] and live["tombCount"] <= self.slot_count
                and live["liveCount"] + live["tombCount"] <= self.slot_count
                and live["maxProbe"] < self.slot_count):
            raise Damaged("impossible counts (%d live, %d tombstones, longest probe %d, "
                          "capacity %d, %d slots)" % (live["liveCount"], live["tombCount"],
                                                      live["maxProbe"], h["capacity"],
                                                      self.slot_count))
        if live["bad"]:
            raise Damaged(live["bad"])

    def _geometry_problem(self, h):
        capacity, record_size = h["capacity"], h["recordSize"]
        sane = 1 <= capacity <= MAX_CAPACITY and record_size % 8 == 0 and record_size <= 1 << 20
        if sane:
            slot_size = (32 + record_size + 63) // 64 * 64
            slot_count = 2
            while slot_count < 2 * capacity:
                slot_count *= 2
            total = HEADER_SIZE + slot_count * slot_size
        if (not sane or h["slotSize"] != slot_size or h["slotCount"] != slot_count
                or h["slotsOffset"] != HEADER_SIZE or h["totalSize"] != total):
            return ("impossible geometry (capacity %d, %d slots of %d bytes at offset %d, "
                    "%d bytes in all)" % (capacity, h["slotCount"], h["slotSize"],
                                          h["slotsOffset"], h["totalSize"]))
        if h["totalSize"] > self.size:
            return ("object is %d bytes, smaller than the %d bytes its header describes"
                    % (self.size, h["totalSize"]))
        return None

    def _consistent(self, seq_offset, read, what):
        """read() under the sequence count at seq_offset, with the bounded retry budget."""
        attempts = SPINS + YIELDS + SLEEPS + 1
        s1 = 0
        for attempt in range(attempts):
            s1 = self.word(seq_offset)
            if s1 % 2 == 0:
                copy = read()
                if self.word(seq_offset) == s1:
                    return copy
            if attempt < SPINS:
                pass
            elif attempt < SPINS + YIELDS:
                os.sched_yield()
            else:
                time.sleep(0.001)
        raise Damaged("%s could not be read consistently (sequence count %d)" % (what, s1))

    def live_words(self):
        def read():
            return struct.unpack_from("<8Q", self.map, LIVE_WORDS_OFFSET)
        words = self._consistent(LIVE_SEQ_OFFSET, read, "header live words")
        live = dict(zip(LIVE_WORD_NAMES, words[:7]))
        live["bad"] = None if live_checksum(list(words[:7])) == words[7] else \
            "header live words fail their checksum"
        return live

    def max_probe(self):
        live = self.live_words()
        if live["bad"]:
            raise Damaged(live["bad"])
        return min(live["maxProbe"], self.mask)

    def read_slot(self, slot):
        base = HEADER_SIZE + slot * self.slot_size
        n = SLOT_HEADER_WORDS + self.record_words

        def read():
            return struct.unpack_from("<%dQ" % (n - 1), self.map, base + 8)
        words = self._consistent(base, read, "slot %d" % slot)
        return words[0], words[1], words[2], list(words[3:])

    def walk(self):
        """(slot, key, record words) of every live slot; raises Damaged on any damage."""
        start = self.live_words()
        if start["bad"]:
            raise Damaged(start["bad"])
        limit = min(start["maxProbe"], self.mask)
        seen = 0
        out = []
        for slot in range(self.slot_count):
            key, state, checksum, record = self.read_slot(slot)
            where = "slot %d (key 0x%016x)" % (slot, key)
            if state == EMPTY:
                if key != 0 or checksum != EMPTY_CHECKSUM:
                    raise Damaged(where + " is marked empty but is not blank")
                continue
            if state == TOMB:
                continue
            if state != LIVE:
                raise Damaged("slot %d has an invalid state %d" % (slot, state))
            seen += 1
            home = mix64(key) & 0xFFFFFFFF & self.mask
            distance = (slot - home) & self.mask
            if distance > limit:
                limit = self.max_probe()
                if distance > limit:
                    raise Damaged("%s is %d slots from its home slot %d, beyond the longest "
                                  "probe %d" % (where, distance, home, limit))
            if slot_checksum(key, state, record) != checksum:
                raise Damaged(where + " fails its checksum")
            if record[0] != key:
                raise Damaged("slot %d holds a record whose key differs from the slot's key"
                              % slot)
            out.append((slot, key, record))
        end = self.live_words()
        if end["bad"]:
            raise Damaged(end["bad"])
        if start["changeCount"] % 2 == 0 and end["changeCount"] == start["changeCount"] \
                and seen != end["liveCount"]:
            raise Damaged("a walk met %d live slots, but the header counts %d"
                          % (seen, end["liveCount"]))
        return out


def stat_difference(name, total, base):
    if name in OPTIONAL_STATS:
        if total & PRESENT and base & PRESENT:
            return PRESENT | ((total - base) & (PRESENT - 1))
        return 0
    return (total - base) & MASK


def decode_port(record, base):
    """The JSON object of one port record minus its baseline record (or None)."""
    out = {"interface": intf_name(record[0])}
    for i, name in enumerate(STAT_FIELDS):
        total = record[1 + i]
        value = stat_difference(name, total, base[1 + i]) if base else total
        if name in OPTIONAL_STATS:
            out[name + "Present"] = bool(value & PRESENT)
            value &= PRESENT - 1
        out[name] = value
    double = lambda w: struct.unpack("<d", struct.pack("<Q", w))[0]
    out["updated"] = double(record[14])
    out["inBitsRate"] = double(record[15])
    out["inPktsRate"] = double(record[16])
    out["outBitsRate"] = double(record[17])
    out["outPktsRate"] = double(record[18])
    out["ratesUpdated"] = double(record[19])
    for k, name in enumerate(ETH_FIELDS):
        total = record[21 + k]
        out[name] = (total - base[21 + k]) & MASK if base else total
    out["lastClearTime"] = double(record[51])
    return out


def read_ports(ns, shm_dir="/dev/shm", baseline=True):
    def open_table(table):
        return Table(os.path.join(shm_dir, "%s.%s" % (ns, table)), PORT_TYPE_NAME,
                     PORT_RECORD_SIZE, PORT_LAYOUT_HASH)

    def walk(table):
        try:
            return open_table(table).walk()
        except Damaged as e:
            raise Damaged("table %s.%s is damaged: %s" % (ns, table, e))

    rows = walk("allIntfCounters")
    bases = {}
    if baseline:
        try:
            bases = {key: record for _, key, record in walk("allIntfClearCounters")}
        except Missing:
            pass
    rows.sort(key=lambda row: row[1])
    return [decode_port(record, bases.get(key)) for _, key, record in rows]


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("-n", "--namespace", default="vorn", help="the agent's namespace")
    parser.add_argument("--no-baseline", action="store_true",
                        help="print the raw totals, without subtracting the clear baseline")
    parser.add_argument("--shm-dir", default="/dev/shm", help="where the tables live")
    args = parser.parse_args(argv)
    try:
        ports = read_ports(args.namespace, args.shm_dir, not args.no_baseline)
    except Missing as e:
        print("vorn_table_reader: %s" % e, file=sys.stderr)
        return 2
    except Damaged as e:
        print("vorn_table_reader: %s" % e, file=sys.stderr)
        return 1
    json.dump(ports, sys.stdout, indent=2, sort_keys=True)
    sys.stdout.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
