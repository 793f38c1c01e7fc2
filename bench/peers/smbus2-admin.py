#!/usr/bin/python3
"""Compares the power monitor with a PM data file, or writes the file, with smbus2.

    smbus2-admin.py compare|write FILE
    smbus2-admin.py list FILE           the entries as text, for the shell scripts
"""

import sys
import time

CHIP = 0x74
PAGE, MFR_ID, MFR_MODEL, MFR_REVISION, MFR_DATE = 0x00, 0x99, 0x9A, 0x9B, 0x9D
ACTIONS = (0x03, 0x11, 0x12)  # CLEAR_FAULTS, STORE_DEFAULT_ALL, RESTORE_DEFAULT_ALL


def read_entries(path):
    """The file's entries, command code and data, without those that make the chip act."""
    with open(path, encoding="ascii") as file:
        records = [bytes.fromhex(line[1:]) for line in file if len(line) > 10]
    data = b"".join(record[4:4 + record[0]] for record in records)
    position = 0
    while position < len(data):
        size, code = data[position:position + 2]
        if code not in ACTIONS:
            yield code, data[position + 2:position + 2 + size]
        position += 2 + size


def retry(transfer, *arguments):
    """Up to three attempts, 10 ms apart."""
    for attempts_left in (2, 1, 0):
        try:
            return transfer(*arguments)
        except OSError:
            time.sleep(0.01)
            if attempts_left == 0:
                raise


def write(bus, code, data):
    if len(data) == 1:
        bus.write_byte_data(CHIP, code, data[0])
    elif len(data) == 2:
        bus.write_word_data(CHIP, code, int.from_bytes(data, "little"))
    else:
        bus.write_i2c_block_data(CHIP, code, list(data))


def read(bus, code, size):
    if size == 1:
        return bytes([bus.read_byte_data(CHIP, code)])
    if size == 2:
        return bus.read_word_data(CHIP, code).to_bytes(2, "little")
    named, answer = i2c_msg.write(CHIP, [code]), i2c_msg.read(CHIP, size)
    bus.i2c_rdwr(named, answer)
    return bytes(answer)


action, entries = sys.argv[1], list(read_entries(sys.argv[2]))
if action == "list":
    for code, data in entries:
        print(f"{code:#04x}", *(f"{byte:#04x}" for byte in data))
    sys.exit()

from smbus2 import SMBus, i2c_msg  # noqa: E402 - a list is made without a bus

with SMBus(0) as bus:
    retry(write, bus, PAGE, b"\xff")
    for code, size in ((MFR_ID, 1), (MFR_MODEL, 1), (MFR_REVISION, 2)):
        retry(read, bus, code, size)
    print("Installed version, minor and major:", retry(read, bus, MFR_DATE, 8).hex())
    for code, data in entries:
        if action == "write" or code == PAGE:
            retry(write, bus, code, data)
        elif all(retry(read, bus, code, len(data)) != data for _ in range(2)):
            sys.exit(f"{code:#04x} {data.hex()}: compare failed")
