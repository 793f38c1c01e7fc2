"""The measurements of bench/run, which builds what they need and starts this.

Each section of RESULTS.md has its function, which measures, adds its goals to GOALS and its part of
the picture to PICTURE, and returns tables for RESULTS.md.in.
"""

import os
import platform
import random
import re
import shutil
import string
import subprocess
import sys
import time
from pathlib import Path
from statistics import median

ROOT = Path(__file__).resolve().parent.parent
BUILD, PEERS = ROOT / "build/bench", ROOT / "bench/peers"
LIBRARIES = BUILD / "lib/pmadmin"
PMADMIN, PMFILE = BUILD / "src/pmadmin", BUILD / "src/pmfile"
EXAMPLE, SMALL_EXAMPLE = ROOT / "examples/board-a.hex", ROOT / "examples/small.hex"
HW_VERSION_FILE = BUILD / "board-hw-version"  # compiled into the build's libboardutils.so
TMP = BUILD / "tmp"
BOARD, SETTINGS = TMP / "board", TMP / "settings"

PYTHON = "/usr/bin/python3"
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
FLOOR = "the floor"
FLOOR_ROW = {FLOOR: [BUILD / "bench/floor"]}
SIZES = {"10 KB": 10_000, "100 KB": 100_000, "1 MB": 1_000_000}

QUICK = "--quick" in sys.argv
ROUNDS = 1 if QUICK else 51
GOALS, PICTURE = [], {"runs": [], "files": []}


def number(value):
    """Three digits that count, without an exponent."""
    return f"{value:.0f}" if value >= 100 else f"{value:.3g}"


def table(head, rows):
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines) + "\n"


def goal(text, figure, met):
    GOALS.append([text, figure, "met" if met else "**not met**"])


def environment(command, bus=True, waits=False):
    """Preloads the instant bus, and into the build's programs the board's libraries."""
    libraries = [LIBRARIES / "libinstantbus.so"] if bus else []
    if Path(command[0]).is_relative_to(BUILD):
        libraries += [LIBRARIES / "libtrace.so", LIBRARIES / "libboardutils.so"]
    return {"PATH": PATH, "LC_ALL": "C", "INSTANT_BUS_BOARD": str(BOARD),
            "LD_PRELOAD": ":".join(map(str, libraries)),
            **({"INSTANT_BUS_WAITS": "1"} if waits else {})}


def output_of(command, env=None, status=0):
    """Standard output and error of a command that ends with `status`."""
    result = subprocess.run(list(map(str, command)), env=env or {"PATH": PATH},
                            capture_output=True, text=True)
    if result.returncode != status:
        sys.exit(f"bench: {command} ended with status {result.returncode}\n{result.stderr}")
    return result.stdout + result.stderr


def run(command, waits=False):
    """Wall time in ms."""
    command = list(map(str, command))
    start = time.perf_counter()
    pid = os.posix_spawn(command[0], command, environment(command, waits=waits),
                         file_actions=[(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)])
    if os.waitpid(pid, 0)[1] != 0:
        sys.exit(f"bench: {' '.join(command)} failed")
    return 1000 * (time.perf_counter() - start)


def in_rounds(commands, base):
    """Medians by name: wall time, its ratio to that of `base`, what it is beyond that of FLOOR."""
    walls = {name: [] for name in commands}
    for _ in range(ROUNDS):
        for name in random.sample(list(commands), len(commands)):
            walls[name].append(run(commands[name]))
    return {name: {"wall": median(own),
                   "ratio": median(one / other for one, other in zip(own, walls[base])),
                   "beyond": median(one - least for one, least in zip(own, walls[FLOOR]))}
            for name, own in walls.items()}


def under(tool, preload_option, command):
    """What `tool`, which itself preloads nothing, writes to TMP/trace of a command."""
    env = environment(command, waits=True)
    output_of([*tool, *preload_option, "LD_PRELOAD=" + env.pop("LD_PRELOAD"), *command], env)
    return (TMP / "trace").read_text()


def peak_memory(command):
    """In KB. GNU time starts the command: a child of Python seems to be as large as Python."""
    return int(under(["time", "-f", "%M", "-o", TMP / "trace"], ["env"], command).split()[-1])


def system_calls(command):
    """Of a command and its children: how many, the bus requests among them, and the waits that they
    ask for, in ms."""
    trace = under(["strace", "-f", "-qq", "-X", "raw", "-o", TMP / "trace"], ["-E"], command)
    calls = re.findall(r"^\d+ +(\w+\([^,)]*,? ?\w*)", trace, re.MULTILINE)
    requests = [call for call in calls if re.fullmatch(r"ioctl\(\d+, 0x7(20|07)", call)]
    waits = re.findall(r"nanosleep\([^{]*\{tv_sec=(\d+), tv_nsec=(\d+)\}", trace)
    return len(calls), len(requests), sum(1000 * int(s) + int(ns) / 1e6 for s, ns in waits)


def overrun(command, waits):
    """How much longer than `waits` the waits of a command take, in ms."""
    return median(run(command, waits=True) - run(command) - waits for _ in range(ROUNDS))


def on_virtual_board(command, status=0):
    """Transfers and wire bits of a command."""
    options = ["--board", BOARD, "--time-scale", "0", "--summary"]
    text = output_of([BUILD / "virtualboard/virtual-board", *options, *command],
                     environment([PMADMIN], bus=False), status)
    transfers, ms = re.search(r"board: (\d+) transfers.* ([\d.]+) ms on a 100 kHz", text).groups()
    return int(transfers), round(100 * float(ms))


def new_board():
    BOARD.unlink(missing_ok=True)
    on_virtual_board(["/usr/bin/true"])


def entries_of(path):
    """Each entry's command code and data bytes, as 0x... texts."""
    text = output_of([PYTHON, PEERS / "smbus2-admin.py", "list", path])
    return [line.split() for line in text.splitlines()]


def whole_run_candidates():
    """By job: our program first, then what else people would use. They find EXAMPLE's settings."""
    script, smbus2 = PEERS / "per-entry.sh", [PYTHON, PEERS / "smbus2-admin.py"]
    return {
        "compare": {"pmadmin -E": [PMADMIN, "-E", EXAMPLE],
                    "i2c-tools": [script, "compare", SETTINGS],
                    "Python's smbus2": [*smbus2, "compare", EXAMPLE]},
        "write": {"pmadmin -r": [PMADMIN, "-r", EXAMPLE],
                  "i2c-tools": [script, "write", SETTINGS],
                  "Python's smbus2": [*smbus2, "write", EXAMPLE]},
        "read": {"pmfile read": [PMFILE, "read", "-o", "/dev/null"]},
    }


def prove(jobs):
    """Each must see that a new board differs, write it, and agree with pmadmin then."""
    for compare, write in zip(jobs["compare"].values(), jobs["write"].values()):
        new_board()
        on_virtual_board(compare, status=1)
        on_virtual_board(write)
        on_virtual_board(compare)
        on_virtual_board(jobs["compare"]["pmadmin -E"])


def whole_runs():
    SETTINGS.write_text("".join(" ".join(entry) + "\n" for entry in entries_of(EXAMPLE)))
    jobs, tables = whole_run_candidates(), []
    prove(jobs)
    for job, candidates in jobs.items():
        own, rows = next(iter(candidates)), []
        for name, one in in_rounds(candidates | FLOOR_ROW, own).items():
            command = (candidates | FLOOR_ROW)[name]
            wire = on_virtual_board(command)[1] / 100
            calls, _, waits = system_calls(command)
            total = one["wall"] + wire / 4 + waits
            share = f"{100 * one['beyond'] / total:.1f} %"
            late = overrun(command, waits) if waits else 0
            rows.append([name, number(one["wall"]), f"{number(one['ratio'])}×", calls,
                         number(waits), number(late), number(one["wall"] + wire + waits),
                         number(total), number(one["beyond"]), share])
            if name != FLOOR:
                PICTURE["runs"].append([f'"{job}: {name}"', wire / 4 + waits,
                                        one["wall"] - one["beyond"], one["beyond"]])
            if name == own:
                goal(f"`{own}`: below 5 % of the total at 400 kHz beyond the floor", share,
                     one["beyond"] < 0.05 * total)
            if name == "i2c-tools":
                goal(f"`{own}`: at most a fiftieth of the i2c-tools script's own time",
                     f"1/{number(one['ratio'])}", one["ratio"] >= 50)
        tables.append(table([job, "own time, ms", "ratio", "system calls", "waits, ms",
                             "overrun, ms", "total at 100 kHz, ms", "at 400 kHz",
                             "beyond the floor", "share"], rows))
    return {"whole_runs": "\n".join(tables)}


def bus_budget():
    def write_bits(entry):
        return 20 + 9 * (len(entry) - 1)

    def read_bits(entry):
        return write_bits(entry) + (0 if entry[0] == "0x00" else 10)  # PAGE is written

    def prepared(measure, option, path):
        new_board()
        on_virtual_board([PMADMIN, "-r" if option == "-E" else "-a", path])
        return measure([PMADMIN, option, path])

    start = [29, 39, 39, 48, 29, 102]  # PAGE, MFR_ID, MFR_MODEL, MFR_REVISION; PAGE, MFR_DATE
    writes, reads = ([*map(bits, entries_of(EXAMPLE))] for bits in (write_bits, read_bits))
    # A new board differs in the first register, which is read twice before that is believed.
    upgrade = [reads[0], reads[1], reads[1], *writes, 20, *reads]
    rows = []
    for option, bits in (("-E", reads), ("-r", writes), ("-u", upgrade)):
        transfers = start + bits
        used = prepared(on_virtual_board, option, EXAMPLE)
        small, large = (prepared(system_calls, option, path) for path in (SMALL_EXAMPLE, EXAMPLE))
        rows.append([f"`pmadmin {option}`", len(transfers), used[0], large[1], sum(transfers),
                     used[1], small[0] - small[1], large[0] - large[1]])
    goal("the fewest transfers and bits, one request each", "section 2",
         all(row[1] == row[2] == row[3] and row[4] == row[5] for row in rows))
    goal("not one other system call per register", "section 2",
         all(row[6] == row[7] for row in rows))
    head = ["", "fewest transfers", "used", "requests", "fewest bits", "used",
            "other calls, small.hex", "board-a.hex"]
    return {"bus_budget": table(head, rows), "entries": len(reads),
            "small_entries": len(entries_of(SMALL_EXAMPLE))}


def hex_files(size):
    """An Intel HEX file of about `size` bytes as others need it, and the same as a PM data file,
    without the records for the upper half of addresses."""
    once = b"".join(bytes([len(entry) - 1, *(int(byte, 16) for byte in entry)])
                    for entry in entries_of(EXAMPLE))
    binary, addressed, plain = (TMP / f"{size}.{end}" for end in ("bin", "ihex", "hex"))
    binary.write_bytes(once * round(size * 16 / 44 / len(once)))  # 16 bytes a line of 44 characters
    output_of(["srec_cat", binary, "-binary", "-o", addressed, "-intel", "-line-length=44"])
    records = addressed.read_text().splitlines(keepends=True)
    plain.write_text("".join(record for record in records if record[7:9] != "04"))
    return addressed, plain


def file_candidates(size):
    """By job: our program first, then what else people would use."""
    (addressed, plain), binary = hex_files(size), TMP / "binary"
    convert = "import intelhex, sys; intelhex.hex2bin(*sys.argv[1:])"
    load = "import intelhex, sys; a, *b = map(intelhex.IntelHex, sys.argv[1:]); "
    # A file larger than a chip's settings repeats them, and its addresses begin again.
    allowed = ["--allow=repetition", "--allow=several-versions", "--allow=address"]
    return {"read": {
        "pmadmin -m": [PMADMIN, "-m", plain],
        "srec_cat": ["/usr/bin/srec_cat", addressed, "-intel", "-o", binary, "-binary"],
        "objcopy": ["/usr/bin/objcopy", "-I", "ihex", "-O", "binary", addressed, binary],
        "Python's intelhex": [PYTHON, "-c", convert, addressed, binary],
    }, "check": {
        "pmfile check": [PMFILE, "check", *allowed, plain],
        "srec_info": ["/usr/bin/srec_info", addressed, "-intel"],
        "Python's intelhex": [PYTHON, "-c", load, addressed],
    }, "compare two": {
        "pmfile diff": [PMFILE, "diff", plain, plain],
        "srec_cmp": ["/usr/bin/srec_cmp", addressed, "-intel", addressed, "-intel"],
        "Python's intelhex": [PYTHON, "-c", load + "sys.exit(a.todict() != b[0].todict())",
                              addressed, addressed],
    }}


def files():
    by_size, tables = {label: file_candidates(size) for label, size in SIZES.items()}, []
    for job, candidates in by_size["1 MB"].items():
        own, *others = candidates
        results = {label: in_rounds(jobs[job] | FLOOR_ROW, own) for label, jobs in by_size.items()}
        others = [name for name in others if name != "objcopy"]  # no goal: it only converts
        goal(f"`{own}`: faster than {' and '.join(others)}, 10 KB and 100 KB", "section 3",
             all(results[label][name]["ratio"] > 1
                 for label in ("10 KB", "100 KB") for name in others))
        growth = results["1 MB"][own]["beyond"] / results["100 KB"][own]["beyond"]
        goal(f"`{own}`: linear in the size", f"{number(growth)}× the time beyond the floor "
             "for 10× the size", growth < 15)
        rows = [[name, *(number(one[name]["wall"]) for one in results.values()),
                 peak_memory(command)] for name, command in (candidates | FLOOR_ROW).items()]
        PICTURE["files"] += [[f'"{job}: {row[0]}"', *row[1:-1]] for row in rows]
        tables.append(table([job, *(f"{label}, ms" for label in results),
                             "peak memory at 1 MB, KB"], rows))
    return {"files": "\n".join(tables)}


def write_results(figures):
    folder = BUILD / "quick" if QUICK else ROOT / "bench"
    folder.mkdir(exist_ok=True)
    for name, rows in PICTURE.items():
        (TMP / name).write_text("".join(" ".join(map(str, row)) + "\n" for row in rows))
    output_of(["gnuplot", "-e", f'folder = "{TMP}"; picture = "{folder / "results.svg"}"',
               ROOT / "bench/results.gnuplot"])
    text = string.Template((ROOT / "bench/RESULTS.md.in").read_text()).substitute(figures)
    (folder / "RESULTS.md").write_text(text)
    print(text)


def main():
    processor = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())[1]
    figures = {"date": time.strftime("%Y-%m-%d"), "processors": f"{os.cpu_count()} × {processor}",
               "kernel": platform.release(), "load": f"{os.getloadavg()[0]:.1f}", "rounds": ROUNDS}
    HW_VERSION_FILE.write_text("3\n")
    shutil.rmtree(TMP, ignore_errors=True)
    TMP.mkdir()
    try:
        for section in (whole_runs, bus_budget, files):
            print(section.__name__, flush=True)
            figures |= section()
        write_results(figures | {"goals": table(["goal", "measured", ""], GOALS)})
    finally:
        shutil.rmtree(TMP)


if __name__ == "__main__":
    main()
