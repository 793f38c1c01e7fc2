#!/usr/bin/env python3
"""Makes a PM data file (Intel HEX) from a readable list of registers and values.

    make-pm-file.py LIST HEXFILE            write HEXFILE
    make-pm-file.py --verify LIST HEXFILE   is HEXFILE what LIST gives?

README.md beside this script describes the list. A list with a mistake gives one
line on standard error and status 1, and writes nothing.
"""

import argparse
import re
import sys
from decimal import Decimal
from functools import partial

RECORD_BYTES = 16  # data bytes of one Intel HEX record, the usual number
END_OF_FILE = ":00000001FF"
PAGE = 0x00  # command code
BLOCK_BYTES = 8  # MFR_LOCATION, MFR_DATE and MFR_SERIAL


class ListError(Exception):
    """A mistake in the list; its text is the line that the user sees."""


def direct(unit, factor, text, lowest=0, exact=True):
    """The number in `text`, which ends in `unit`, as a DIRECT word of `factor` counts per unit."""
    match = re.fullmatch(r"(-?[0-9]+(?:\.[0-9]+)?)\s*" + unit, text)
    if not match:
        raise ListError(f"'{text}' is not a number" + (f" in {unit}" if unit else ""))
    counts = Decimal(match[1]) * factor
    whole = int(counts.to_integral_value())
    if not lowest <= whole <= 0x7FFF:
        raise ListError(f"'{text}' is out of range")
    if exact and whole != counts:
        raise ListError(f"'{text}' is finer than the chip's step of {1 / Decimal(factor)} {unit}")
    return whole.to_bytes(2, "little", signed=True)


def integer(size, text):
    """A bit field or plain number, decimal or 0x..., of `size` bytes."""
    if not re.fullmatch(r"0x[0-9a-fA-F]{1,8}|[0-9]{1,9}", text):
        raise ListError(f"'{text}' is neither a decimal nor a 0x number")
    value = int(text, 16) if text.startswith("0x") else int(text)
    if value >= 1 << (8 * size):
        raise ListError(f"'{text}' is out of range")
    return value.to_bytes(size, "little")


def characters(text):
    """Quoted text of up to 8 printable characters, filled up with blanks."""
    match = re.fullmatch(r'"([ -~]*)"', text)
    if not match or len(match[1]) > BLOCK_BYTES:
        raise ListError(f"{text} is not a quoted text of up to {BLOCK_BYTES} ASCII characters")
    return match[1].ljust(BLOCK_BYTES).encode("ascii")


def version(text):
    """'MAJOR.MINOR hw MINIMUM' as the version record: minor, major, minimum hardware version."""
    match = re.fullmatch(r"([0-9]+)\.([0-9]+)\s+hw\s+([0-9]+)", text)
    if not match:
        raise ListError(f"'{text}' is not of the form '2.5 hw 3'")
    record = [byte(match[2]), byte(match[1]), byte(match[3])]
    return b"".join(record).ljust(BLOCK_BYTES, b"\0")


# Counts per unit: the DIRECT coefficients in the public data sheets of the chip's family.
volts = partial(direct, "V", 1000)
milliseconds = partial(direct, "ms", 5)
celsius = partial(direct, "°C", 100, lowest=-0x8000)
ratio = partial(direct, "", 32767, lowest=1, exact=False)
byte = partial(integer, 1)
word = partial(integer, 2)

# Command code and encoder of what each kind of section may set. Only registers that
# can also be read back: a comparison reads every register that the file lists.
REGISTERS = {
    "channel": {
        "MFR_CHANNEL_NOMINAL": (0xEA, volts),
        "VOUT_SCALE_MONITOR": (0x2A, ratio),
        "VOUT_MARGIN_HIGH": (0x25, volts),
        "VOUT_MARGIN_LOW": (0x26, volts),
        "VOUT_OV_FAULT_LIMIT": (0x40, volts),
        "VOUT_OV_WARN_LIMIT": (0x42, volts),
        "VOUT_UV_WARN_LIMIT": (0x43, volts),
        "VOUT_UV_FAULT_LIMIT": (0x44, volts),
        "POWER_GOOD_ON": (0x5E, volts),
        "POWER_GOOD_OFF": (0x5F, volts),
        "TON_DELAY": (0x60, milliseconds),
        "TON_MAX_FAULT_LIMIT": (0x62, milliseconds),
        "TOFF_DELAY": (0x64, milliseconds),
        "MFR_PSEN_CONFIG": (0xD2, byte),
        "MFR_SEQ_TIMESLOT": (0xD3, byte),
        "MFR_FAULT_RESPONSE": (0xD9, word),
        "MFR_MARGIN_CONFIG": (0xDF, word),
    },
    "sensor": {
        "OT_FAULT_LIMIT": (0x4F, celsius),
        "OT_WARN_LIMIT": (0x51, celsius),
        "MFR_TEMP_SENSOR_CONFIG": (0xF0, word),
    },
    "device": {
        "ON_OFF_CONFIG": (0x02, byte),
        "MFR_LOCATION": (0x9C, characters),
        "MFR_DATE": (0x9D, version),
        "MFR_SERIAL": (0x9E, characters),
        "MFR_MODE": (0xD1, word),
        "MFR_NV_LOG_CONFIG": (0xD8, word),
        "MFR_FAULT_RETRY": (0xDA, milliseconds),
        "MFR_PG_DELAY": (0xDB, milliseconds),
        "MFR_GPO_CONFIG": (0xFB, word),
        "MFR_WATCHDOG_CONFIG": (0xFD, word),
    },
}
PAGES = {"channel": range(0, 12), "sensor": range(13, 18), "device": range(255, 256)}

# Each register of a row must be below the next one of the row that the section sets.
ASCENDING = [
    ["VOUT_UV_FAULT_LIMIT", "VOUT_UV_WARN_LIMIT", "VOUT_MARGIN_LOW", "MFR_CHANNEL_NOMINAL",
     "VOUT_MARGIN_HIGH", "VOUT_OV_WARN_LIMIT", "VOUT_OV_FAULT_LIMIT"],
    ["POWER_GOOD_OFF", "POWER_GOOD_ON", "MFR_CHANNEL_NOMINAL"],
    ["OT_WARN_LIMIT", "OT_FAULT_LIMIT"],
]

TITLE = re.compile(r"(?P<device>device)|(?P<kind>channel|sensor)\s+(?P<number>[0-9]{1,2})\s+\S+")
LINE = re.compile(r'\s*(?:\[(?P<title>[^]]*)\]|(?P<name>\w+)\s+(?P<value>"[^"]*"|[^#"]+?))?'
                  r"\s*(?:#.*)?")


class Section:
    """One page of the chip with the registers that the list sets on it."""

    def __init__(self, title):
        match = TITLE.fullmatch(title)
        if not match:
            raise ListError(f"[{title}] is none of [channel N NAME], [sensor N NAME], [device]")
        self.title = title
        self.kind = match["device"] or match["kind"]
        number = int(match["number"] or 0)
        if number >= len(PAGES[self.kind]):
            raise ListError(f"[{title}]: the last {self.kind} is {len(PAGES[self.kind]) - 1}")
        self.page = PAGES[self.kind][number]
        self.values = {}  # name: (text, data bytes), in the order of the list

    def set(self, name, text):
        if name not in REGISTERS[self.kind]:
            raise ListError(f"{name} is not a register that a {self.kind} section can set")
        if name in self.values:
            raise ListError(f"{name} is set twice in [{self.title}]")
        try:
            self.values[name] = (text, REGISTERS[self.kind][name][1](text))
        except ListError as error:
            raise ListError(f"{name} {error}") from None

    def check(self):
        """Limits out of order would trip a healthy supply, or never trip a bad one."""
        for row in ASCENDING:
            present = [name for name in row if name in self.values]
            for low, high in zip(present, present[1:]):
                (low_text, low_data), (high_text, high_data) = self.values[low], self.values[high]
                if (int.from_bytes(low_data, "little", signed=True)
                        >= int.from_bytes(high_data, "little", signed=True)):
                    raise ListError(f"[{self.title}]: {low} ({low_text}) must be below "
                                    f"{high} ({high_text})")

    def entries(self):
        """PAGE first, then the registers; each entry is length, command code, data."""
        yield bytes([1, PAGE, self.page])
        for name, (_, data) in self.values.items():
            yield bytes([len(data), REGISTERS[self.kind][name][0]]) + data


def read(path):
    try:
        with open(path, encoding="utf-8", newline="\n") as file:
            return file.read()
    except UnicodeDecodeError:
        raise ListError(f"{path}: not UTF-8 text") from None


def parse_line(line, sections):
    match = LINE.fullmatch(line)
    if not match:
        raise ListError(f"'{line.strip()}' is neither a [section] nor a register and its value")
    if match["title"] is not None:
        section = Section(match["title"].strip())
        if section.page in [other.page for other in sections]:
            raise ListError(f"[{section.title}] stands twice")
        sections.append(section)
    elif match["name"]:
        if not sections:
            raise ListError(f"{match['name']} stands before the first [section]")
        sections[-1].set(match["name"], match["value"])


def read_list(path):
    """The sections of the list, in its order, each checked."""
    sections = []
    for number, line in enumerate(read(path).split("\n"), 1):
        try:
            parse_line(line, sections)
        except ListError as error:
            raise ListError(f"{path}:{number}: {error}") from None
    try:
        for section in sections:
            section.check()
        if not any("MFR_DATE" in section.values for section in sections):
            raise ListError("MFR_DATE, the version record, is missing")
    except ListError as error:
        raise ListError(f"{path}: {error}") from None
    return sections


def record(address, data):
    """One Intel HEX data record; its checksum makes the sum of its bytes 0 modulo 256."""
    content = bytes([len(data)]) + address.to_bytes(2, "big") + b"\0" + data
    return ":" + (content + bytes([-sum(content) & 0xFF])).hex().upper()


def intel_hex(data):
    starts = range(0, len(data), RECORD_BYTES)
    records = [record(start, data[start:start + RECORD_BYTES]) for start in starts]
    return "\n".join(records + [END_OF_FILE]) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Make a PM data file from a readable list.")
    parser.add_argument("--verify", action="store_true", help="compare HEXFILE, write nothing")
    parser.add_argument("list", metavar="LIST")
    parser.add_argument("hexfile", metavar="HEXFILE")
    args = parser.parse_args()
    try:
        entries = [entry for section in read_list(args.list) for entry in section.entries()]
        text = intel_hex(b"".join(entries))
        if args.verify and read(args.hexfile) != text:
            raise ListError(f"{args.hexfile}: not what {args.list} gives")
        if not args.verify:
            with open(args.hexfile, "w", encoding="ascii", newline="\n") as file:
                file.write(text)
        print(f"{args.hexfile}: {len(entries)} entries, as in {args.list}")
    except OSError as error:
        sys.exit(f"{error.filename or args.hexfile}: {error.strerror}")
    except ListError as error:
        sys.exit(str(error))


if __name__ == "__main__":
    main()
