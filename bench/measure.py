"""The measurements of bench/run, which builds what they need and starts this.

Each function named after a section of RESULTS.md measures, adds its goals to GOALS, and returns
the section. Candidates run in rounds, in a new order each time: a figure is the median over the
rounds, a ratio or a difference the median of the rounds' own.
"""

import json
import os
import platform
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from statistics import median

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/bench"
PEERS = ROOT / "bench/peers"
LIBRARIES = BUILD / "lib/pmadmin"
PMADMIN, PMFILE = BUILD / "src/pmadmin", BUILD / "src/pmfile"
BENCHMARKS = BUILD / "bench/benchmarks"
EXAMPLE, SMALL_EXAMPLE = ROOT / "examples/board-a.hex", ROOT / "examples/small.hex"
HW_VERSION_FILE = BUILD / "board-hw-version"  # compiled into the build's libboardutils.so

PYTHON = "/usr/bin/python3"
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
NOTHING = ["/usr/bin/true"]
FLOOR = "the floor"
FLOOR_ROW = {FLOOR: [BUILD / "bench/floor"]}

QUICK = "--quick" in sys.argv
ROUNDS = 1 if QUICK else 51
SIZES = {"10 KB": 10_000, "100 KB": 100_000, "1 MB": 1_000_000}
FOLDER = BUILD / "quick" if QUICK else ROOT / "bench"
TMP = Path(tempfile.mkdtemp(prefix="pmadmin-bench."))
BOARD = TMP / "board"
GOALS, PLOT_DATA = [], {"runs": [], "files": []}


def number(value):
    """Three digits that count, without an exponent."""
    return f"{value:.0f}" if value >= 100 else f"{value:.3g}"


def table(head, rows):
    lines = [head, ["---"] + ["---:"] * (len(head) - 1), *rows]
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines) + "\n"


def goal(text, figure, met, reason="see below"):
    GOALS.append([text, figure, "met" if met else f"**not met**: {reason}"])


def environment(command, bus=True):
    """Preloads the instant bus, and into the build's programs the board's libraries."""
    libraries = [LIBRARIES / "libinstantbus.so"] if bus else []
    if Path(command[0]).is_relative_to(BUILD):
        libraries += [LIBRARIES / "libtrace.so", LIBRARIES / "libboardutils.so"]
    return {"PATH": PATH, "LC_ALL": "C", "INSTANT_BUS_BOARD": str(BOARD),
            "BOARD_HW_VERSION_FILE": str(HW_VERSION_FILE),
            "LD_PRELOAD": ":".join(map(str, libraries))}


def output_of(command, env=None, status=0):
    """Standard output and error of a command that ends with `status`."""
    result = subprocess.run(list(map(str, command)), env=env or {"PATH": PATH},
                            capture_output=True, text=True)
    if result.returncode != status:
        sys.exit(f"bench: {command} ended with status {result.returncode}\n{result.stderr}")
    return result.stdout + result.stderr


def run(command):
    """Wall time in ms and page faults."""
    command = list(map(str, command))
    start = time.perf_counter()
    pid = os.posix_spawn(command[0], command, environment(command),
                         file_actions=[(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)])
    _, status, usage = os.wait4(pid, 0)
    elapsed = 1000 * (time.perf_counter() - start)
    if status != 0:
        sys.exit(f"bench: {' '.join(command)} ended with status {status}")
    return elapsed, usage.ru_minflt + usage.ru_majflt


def in_rounds(commands, base):
    """Medians by name: wall time, its ratio to that of `base`, what it is beyond that of FLOOR, and
    page faults."""
    runs = {name: [] for name in commands}
    for _ in range(ROUNDS):
        for name in random.sample(list(commands), len(commands)):
            runs[name].append(run(commands[name]))
    return {name: {"wall": median(wall for wall, _ in own),
                   "ratio": median(one[0] / other[0] for one, other in zip(own, runs[base])),
                   "beyond": median(one[0] - least[0] for one, least in zip(own, runs[FLOOR])),
                   "faults": median(faults for _, faults in own)}
            for name, own in runs.items()}


def peak_memory(command):
    """In bytes. GNU time starts the command: a child of Python seems to be as large as Python."""
    env = environment(command)
    preload = "LD_PRELOAD=" + env.pop("LD_PRELOAD")
    text = output_of(["time", "-f", "peak %M", "env", preload, *command], env)
    return 1024 * int(re.search(r"peak (\d+)", text)[1])


def system_calls(command):
    """Of a command and its children: all, and the bus requests among them."""
    env = environment(command)
    preload = "LD_PRELOAD=" + env.pop("LD_PRELOAD")
    trace = TMP / "trace"
    output_of(["strace", "-f", "-qq", "-X", "raw", "-o", trace, "-E", preload, *command], env)
    calls = re.findall(r"^\d+ +(\w+\([^,)]*,? ?\w*)", trace.read_text(), re.MULTILINE)
    requests = [call for call in calls if re.fullmatch(r"ioctl\(\d+, 0x7(20|07)", call)]
    return len(calls), len(requests)


def on_virtual_board(command, status=0):
    """Transfers and wire bits of a command."""
    options = ["--board", BOARD, "--time-scale", "0", "--summary"]
    text = output_of([BUILD / "virtualboard/virtual-board", *options, *command],
                     environment([PMADMIN], bus=False), status)
    transfers, ms = re.search(r"board: (\d+) transfers.* ([\d.]+) ms on a 100 kHz", text).groups()
    return int(transfers), round(100 * float(ms))


def new_board():
    BOARD.unlink(missing_ok=True)
    on_virtual_board(NOTHING)


def entries_of(path):
    """Each entry's command code and data bytes, as 0x... texts."""
    text = output_of([PYTHON, PEERS / "smbus2-admin.py", "list", path])
    return [line.split() for line in text.splitlines()]


def whole_runs():
    settings = TMP / "settings"
    settings.write_text("".join(" ".join(entry) + "\n" for entry in entries_of(EXAMPLE)))
    commands = {action: {
        "pmadmin": [PMADMIN, option, EXAMPLE],
        "i2c-tools per entry": [PEERS / "per-entry.sh", action, settings],
        "i2ctransfer per page": [PEERS / "per-page.sh", action, settings],
        "Python's smbus2": [PYTHON, PEERS / "smbus2-admin.py", action, EXAMPLE],
    } for action, option in (("compare", "-E"), ("write", "-r"))}
    bits = {}
    for name in commands["compare"]:
        # Each must see that a new board differs, write it, and agree with the tool then.
        new_board()
        on_virtual_board(commands["compare"][name], status=1)
        for action in ("write", "compare"):
            bits[action, name] = on_virtual_board(commands[action][name])[1]
        on_virtual_board(commands["compare"]["pmadmin"])
    commands["read"] = {"pmfile": [PMFILE, "read", "-o", "/dev/null"]}
    bits["read", "pmfile"] = on_virtual_board(commands["read"]["pmfile"])[1]

    tables = []
    for action, candidates in commands.items():
        own, candidates = next(iter(candidates)), candidates | FLOOR_ROW
        rows = []
        for name, one in in_rounds(candidates, own).items():
            wire = bits.get((action, name), 0) / 100
            total = one["wall"] + wire / 4
            share = f"{100 * one['beyond'] / total:.1f} %"
            rows.append([name, number(one["wall"]), f"{number(one['ratio'])}×",
                         system_calls(candidates[name])[0], number(one["wall"] + wire),
                         number(total), number(one["beyond"]), share])
            if name != FLOOR:
                start = one["wall"] - one["beyond"]
                PLOT_DATA["runs"].append([f'"{action}: {name}"', wire / 4, start, one["beyond"]])
            if name == own:
                goal(f"a {action}: below 5 % of the total at 400 kHz beyond the floor", share,
                     one["beyond"] < 0.05 * total)
            if name == "i2c-tools per entry":
                goal(f"a {action}: at most a fiftieth of the i2c-tools script's own time",
                     f"1/{number(one['ratio'])}", one["ratio"] >= 50)
        tables.append(table([action, "own time, ms", "ratio", "system calls",
                             "total at 100 kHz, ms", "at 400 kHz", "beyond the floor", "share"],
                            rows))
    return """All candidates run with the same preloaded "instant bus" (`instantBus.cpp`):
`/dev/i2c-0` is a virtual board's memory; each request enters the kernel once, as on a board, and is
answered at once. What is left is a candidate's own time, the start of its processes included; the
share is that of what lies beyond the floor in the total at 400 kHz. The wire time in the totals
comes from the bits that the virtual board counted for the same run. The scripts read a ready list
of the entries, the others the file. All make the same checks and retries; the tool also takes the
lock, heeds access rights and logs. `pmfile read` reads each register of the chip twice.

""" + "\n".join(tables)


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
        rows.append([f"`{option}`", len(transfers), used[0], large[1], sum(transfers), used[1],
                     small[0] - small[1], large[0] - large[1]])
    goal("the fewest transfers and bits, one request each", "section 2",
         all(row[1] == row[2] == row[3] and row[4] == row[5] for row in rows))
    goal("not one other system call per register", "section 2",
         all(row[6] == row[7] for row in rows))
    head = ["", "fewest transfers", "used", "requests", "fewest bits", "used", "others, small",
            "others"]
    entries = len(entries_of(SMALL_EXAMPLE)), len(reads)
    return f""""Fewest" is computed from the file: 6 transfers to start, then one per entry. An
upgrade of a new board reads the first register twice, sees that it differs, writes, stores, and
compares. "Others" are the system calls that are no requests, for `small.hex` ({entries[0]} entries)
and for `board-a.hex` ({entries[1]} entries).

{table(head, rows)}"""


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


def file_jobs(size):
    """What is done with a file, by job: our program first, then what else people would use."""
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


# What keeps our programs from a goal.
REASONS = {"pmadmin -m": "each entry becomes an object, 48 bytes of heap, in each of two lists",
           "pmfile check": "each entry is kept, 56 bytes, to look at all of them",
           "pmfile diff": "each entry is kept, 56 bytes, and looked up by its register"}


def files():
    by_size = {label: file_jobs(size) for label, size in SIZES.items()}
    tables = []
    for job, candidates in by_size["1 MB"].items():
        own, *others = candidates
        results = {label: in_rounds(jobs[job] | FLOOR_ROW, own)
                   for label, jobs in by_size.items()}
        peaks = {name: peak_memory(command) for name, command in (candidates | FLOOR_ROW).items()}
        slower = {name: [label for label in ("10 KB", "100 KB")
                         if results[label][name]["ratio"] <= 1] for name in others}
        slower = [f"{name} ({', '.join(labels)})" for name, labels in slower.items() if labels]
        growth = results["1 MB"][own]["beyond"] / results["100 KB"][own]["beyond"]
        memory = (peaks[own] - peaks[FLOOR]) / SIZES["1 MB"]
        goal(f"`{own}`: faster than {', '.join(others)}, 10 KB and 100 KB", "section 3", not slower,
             f"slower than {', '.join(slower)}; {REASONS[own]}")
        goal(f"`{own}`: linear in the size", f"{number(growth)}× the time beyond the floor "
             "for 10× the size", growth < 15, REASONS[own])
        if own == "pmadmin -m":
            goal(f"`{own}`: memory below eight times the file", f"{number(memory)}× at 1 MB",
                 memory < 8, REASONS[own])
        rows = [[name, *(number(one[name]["wall"]) for one in results.values()), peak // 1024]
                for name, peak in peaks.items()]
        PLOT_DATA["files"] += [[f'"{job}: {row[0]}"', *row[1:-1]] for row in rows]
        tables.append(table([job, *(f"{label}, ms" for label in results),
                             "peak memory at 1 MB, KB"], rows))
    return """Wall time of whole processes. srec_cat, objcopy and intelhex turn an Intel HEX file of
the same size into binary; `pmadmin -m` identifies the chip and fills both of its lists. `pmfile`
checks and compares settings, srecord the records and their data.

""" + "\n".join(tables)


# Instructions on x86-64 or PowerPC; all others, like moves between registers, are "other".
KINDS = {"compare": "test|cmp", "branch": "j(?!mp)|b(eq|ne|lt|le|gt|ge)",
         "load": r"mov.*\(|lwz", "call": r"(call|bl)\s"}


def gated_path(machine, object_file, disassembler):
    """The instructions of a gated-off statement, up to its third branch, counted by kind."""
    command = [disassembler, "-d", "--no-show-raw-insn", BUILD / "bench" / object_file]
    listing = output_of(command)
    counts, path = dict.fromkeys([*KINDS, "other"], 0), []
    for instruction in re.findall(r"^ +[0-9a-f]+:\t(.*?) *$", listing, re.MULTILINE):
        kinds = [kind for kind, pattern in KINDS.items() if re.match(pattern, instruction)]
        counts[(kinds or ["other"])[0]] += 1
        path.append("    " + " ".join(instruction.split()))
        if counts["branch"] == 3:
            break
    goal(f"a gated-off log statement: two pointer tests, one comparison ({machine})", "section 4",
         counts["compare"] == counts["branch"] == 3 and counts["call"] == 0)
    summary = ", ".join(f"{count} {kind}" for kind, count in counts.items())
    return "\n".join([f"{machine}: {summary}", "", *path, ""])


def benchmarks(name_filter):
    """Medians by name: processor time in ns, and allocations."""
    text = subprocess.run(
        [BENCHMARKS, f"--benchmark_filter={name_filter}", "--benchmark_format=json",
         f"--benchmark_repetitions={ROUNDS}", "--benchmark_min_time=0.05",
         "--benchmark_enable_random_interleaving=true"],
        env=environment([BENCHMARKS], bus=False), check=True, stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL).stdout
    runs = [one for one in json.loads(text)["benchmarks"] if one["run_type"] == "iteration"]
    return {name: [median(one.get(key, 0) for one in runs if one["run_name"] == name)
                   for key in ("cpu_time", "allocations")]
            for name in sorted({one["run_name"] for one in runs})}


def transfers_and_log_statements():
    results = benchmarks("transfer|log")
    gated, none = results.pop("log/gated off")[0], results.pop("log/none")[0]
    slowest = max(ns for ns, _ in results.values())
    allocations = sum(count for _, count in results.values())
    goal("a transfer below 1 µs beside the system call", f"at most {number(slowest)} ns",
         slowest < 1000)
    goal("a transfer allocates nothing", f"{allocations:.0f} allocations", allocations == 0)
    rows = [[name.split("/")[1], number(ns), f"{count:.0f}"]
            for name, (ns, count) in results.items()]
    return f"""Processor time with an `ioctl` that returns at once, and calls of `malloc`:

{table(["", "ns", "allocations"], rows)}
A gated-off statement with an argument takes {gated - none:.2f} ns. Its instructions (g++ -O2) up to
the last branch; "other" ones belong to the function, which as position-independent code first finds
the table of its global variables.

{gated_path("x86-64", "gatedLog-host.o", "objdump")}
{gated_path("PowerPC", "gatedLog-powerpc.o", "powerpc-linux-gnu-objdump")}"""


def start_to_end():
    i2cget = ["/usr/sbin/i2cget", "-y", "0", "0x74", "0x99", "b"]
    commands = {"pmadmin -a": [PMADMIN, "-a"], "i2cget": i2cget, "empty C process": NOTHING}
    commands, rows = commands | FLOOR_ROW, []
    for name, one in in_rounds(commands, FLOOR).items():
        command, stripped = commands[name], TMP / "stripped"
        output_of(["strip", "-o", stripped, command[0]])
        rows.append([name, number(one["wall"]), f"{one['ratio']:.2f}×", system_calls(command)[0],
                     f"{one['faults']:.0f}", peak_memory(command) // 1024,
                     stripped.stat().st_size])
        if name == "pmadmin -a":
            goal("start: `pmadmin -a` within 1.15 of the floor", rows[0][2], one["ratio"] <= 1.15)
    return table(["", "wall time, ms", "ratio", "system calls", "page faults", "peak memory, KB",
                  "stripped file, bytes"], rows)


def bar(data, begin, end, top, height, color, title):
    """A bar in each row of gnuplot's `data`."""
    return (f"{data} using 0:0:({begin}):({end}):($0+{top}):($0+{top}+{height}):ytic(1) "
            f'with boxxyerror linecolor rgb "{color}" title "{title}"')


def plot():
    data = [f"${name} << END\n" + "\n".join(" ".join(map(str, row)) for row in rows) + "\nEND\n"
            for name, rows in PLOT_DATA.items()]
    runs = [bar("$runs", "0", "$2", -0.35, 0.7, "#b0b0b0", "the bus"),
            bar("$runs", "$2", "$2+$3", -0.35, 0.7, "#204880", "the start of one process"),
            bar("$runs", "$2+$3", "$2+$3+$4", -0.35, 0.7, "#d06020", "the rest")]
    files = [bar("$files", 0.5, f"${2 + i}", 0.27 * i - 0.4, 0.27, color, label)
             for i, label, color in zip(range(3), SIZES, ("#a8c8e8", "#5890c8", "#204880"))]
    script = "".join(data) + f"""
set terminal svg size 900,640 font "sans,12" background "white" noenhanced
set output "{FOLDER / "results.svg"}"
set multiplot layout 2,1
set style fill solid noborder
set grid x
set key inside right center vertical Left reverse
set tics nomirror
set ytics scale 0
set yrange [] reverse
set offsets 0, graph 0.08, 0.6, 0.6
set title "A whole compare and a whole write at 400 kHz, in ms"
set xrange [0:*]
plot {", ".join(runs)}, \\
    $runs using ($2+$3+$4):0:(sprintf(" %.1f", $2+$3+$4)) with labels left notitle
set title "Whole processes with a file, in ms"
set logscale x
set xrange [0.5:*]
set key outside right top
plot {", ".join(files)}
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


SECTIONS = {
    whole_runs: "A whole compare and a whole write of `board-a.hex`",
    bus_budget: "The bus budget",
    files: "PM data files",
    transfers_and_log_statements: "Transfers and gated-off log statements",
    start_to_end: "`pmadmin -a`, start to end",
}


def main():
    HW_VERSION_FILE.write_text("3\n")
    load, sections = os.getloadavg()[0], []
    try:
        for count, (measure, title) in enumerate(SECTIONS.items(), 1):
            print(f"{count}. {title}", flush=True)
            sections.append(f"## {count}. {title}\n\n{measure()}")
    finally:
        shutil.rmtree(TMP)
    processor = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())[1]
    text = f"""# What the tool costs, beside what people would use instead

Written by `bench/run` on {time.strftime("%Y-%m-%d")}: {processor}, {os.cpu_count()} processors,
Linux {platform.release()}, load {load:.1f} at the start; release build. Medians of {ROUNDS} paired
runs. The *floor* of a run is a C++ process that does nothing, with the tool's libraries.

![The same numbers as a picture](results.svg)

{table(["goal", "measured", ""], GOALS)}
""" + "\n".join(sections)
    FOLDER.mkdir(exist_ok=True)
    (FOLDER / "RESULTS.md").write_text(text)
    plot()
    print(text)


main()
