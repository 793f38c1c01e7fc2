"""The measurements of bench/run, which builds what they need and starts this.

Each function named after a section of RESULTS.md measures, adds its goals to GOALS, and returns
the section. Candidates run in turn, round after round; a figure is the median over the rounds, a
ratio the median of the rounds' ratios.
"""

import json
import mmap
import os
import platform
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
PMADMIN, BENCHMARKS = BUILD / "src/pmadmin", BUILD / "bench/benchmarks"
EXAMPLE, SMALL_EXAMPLE = ROOT / "examples/board-a.hex", ROOT / "examples/small.hex"
HW_VERSION_FILE = BUILD / "board-hw-version"  # compiled into the build's libboardutils.so

PYTHON = "/usr/bin/python3"
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
I2CGET = ["/usr/sbin/i2cget", "-y", "0", "0x74", "0x99", "b"]
NOTHING = {"empty process": ["/usr/bin/true"]}
START_TO_END = {"pmadmin -a": [PMADMIN, "-a"], "i2cget": I2CGET} | NOTHING

QUICK = "--quick" in sys.argv
ROUNDS = 1 if QUICK else 11
SIZES = {"10 KB": 10_000, "1 MB": 1_000_000} | ({} if QUICK else {"32 MB": 32_000_000})
FOLDER = BUILD / "quick" if QUICK else ROOT / "bench"
TMP = Path(tempfile.mkdtemp(prefix="pmadmin-bench."))
BOARD = TMP / "board"
GOALS, PLOT_DATA = [], {}


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


def output_of(command, env, status=0):
    """Standard output and error of a command that ends with `status`."""
    result = subprocess.run(list(map(str, command)), env=env, capture_output=True, text=True)
    if result.returncode != status:
        sys.exit(f"bench: {command} ended with status {result.returncode}\n{result.stderr}")
    return result.stdout + result.stderr


def run(command):
    """Wall time and processor time in ms, and page faults."""
    command = list(map(str, command))
    start = time.perf_counter()
    pid = os.posix_spawn(command[0], command, environment(command),
                         file_actions=[(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)])
    _, status, usage = os.wait4(pid, 0)
    elapsed = 1000 * (time.perf_counter() - start)
    if status != 0:
        sys.exit(f"bench: {' '.join(command)} ended with status {status}")
    return elapsed, 1000 * (usage.ru_utime + usage.ru_stime), usage.ru_minflt + usage.ru_majflt


def in_turn(commands, base="pmadmin"):
    """Medians by name, and the ratio of wall times to that of the command called `base`."""
    runs, order = {name: [] for name in commands}, list(commands)
    for _ in range(ROUNDS):
        for name in order:
            runs[name].append(run(commands[name]))
        order.append(order.pop(0))
    return {name: dict(zip(("wall", "processor", "faults"), map(median, zip(*own))))
            | {"ratio": median(one[0] / other[0] for one, other in zip(own, runs[base]))}
            for name, own in runs.items()}


def peak_memory(command, **extra):
    """In bytes. GNU time starts the command: a child of Python seems to be as large as Python."""
    env = environment(command) | extra
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
    on_virtual_board(NOTHING["empty process"])


def entries_of(path):
    """Each entry's command code and data bytes, as 0x... texts."""
    text = output_of([PYTHON, PEERS / "smbus2-admin.py", "list", path], {})
    return [line.split() for line in text.splitlines()]


def whole_runs():
    settings = TMP / "settings"
    settings.write_text("".join(" ".join(entry) + "\n" for entry in entries_of(EXAMPLE)))
    commands = {action: {
        "pmadmin": [PMADMIN, option, EXAMPLE],
        "i2c-tools per entry": [PEERS / "per-entry.sh", action, settings],
        "i2ctransfer per page": [PEERS / "per-page.sh", action, settings],
        "Python, smbus2": [PYTHON, PEERS / "smbus2-admin.py", action, EXAMPLE],
    } for action, option in (("compare", "-E"), ("write", "-r"))}
    bits = {}
    for name in commands["compare"]:
        # Each must see that a new board differs, write it, and agree with the tool then.
        new_board()
        on_virtual_board(commands["compare"][name], status=1)
        for action in ("write", "compare"):
            bits[action, name] = on_virtual_board(commands[action][name])[1]
        on_virtual_board(commands["compare"]["pmadmin"])

    tables = []
    for action, candidates in commands.items():
        results, rows = in_turn(candidates | NOTHING), []
        nothing = results["empty process"]["wall"]
        for name, command in candidates.items():
            own, wire = results[name]["wall"], bits[action, name] / 100
            share = own / (own + wire / 4)
            rows.append([name, number(own), f"{number(results[name]['ratio'])}×",
                         system_calls(command)[0], number(own + wire), number(own + wire / 4),
                         f"{100 * share:.1f} %"])
            PLOT_DATA.setdefault(name, []).append(own)
            if name == "pmadmin":
                goal(f"own time of a {action} below 5 % of the total at 400 kHz", rows[0][-1],
                     share < 0.05, f"a process that does nothing takes {number(nothing)} ms here, "
                     f"where a page fault costs {number(page_fault_us())} µs; the tool takes "
                     f"{number(own - nothing)} ms more")
        script = results["i2c-tools per entry"]["ratio"]
        goal(f"own time of a {action} at most a fiftieth of the i2c-tools script's",
             f"1/{number(script)}", script >= 50)
        rows.append(["empty process", number(nothing), *[""] * 5])
        tables.append(table([action, "own time, ms", "ratio", "system calls",
                             "total at 100 kHz, ms", "at 400 kHz", "own share"], rows))
    return """All candidates run with the same preloaded "instant bus" (`instantBus.cpp`): `/dev/i2c-0`
is a virtual board's memory; each request enters the kernel once, as on a board, and is answered at
once. What is left is a candidate's own time, the start of its processes included. The wire time in
the totals comes from the bits that the virtual board counted for the same run. The scripts read a
ready list of the entries, the others the file. All make the same checks and retries; the tool also
takes the lock, heeds access rights and logs.

""" + "\n".join(tables)


def page_fault_us():
    memory = mmap.mmap(-1, 64 << 20)
    start = time.process_time()
    for at in range(0, len(memory), mmap.PAGESIZE):
        memory[at] = 1
    return 1e6 * (time.process_time() - start) * mmap.PAGESIZE / len(memory)


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
    fixed = {name: system_calls(command)[0] for name, command in START_TO_END.items()}
    head = ["", "fewest transfers", "used", "requests", "fewest bits", "used", "others, small",
            "others"]
    entries = len(entries_of(SMALL_EXAMPLE)), len(reads)
    return f""""Fewest" is computed from the file: 6 transfers to start, then one per entry. An
upgrade of a new board reads the first register twice, sees that it differs, writes, stores, and
compares. "Others" are the system calls that are no requests, for `small.hex` ({entries[0]} entries)
and for `board-a.hex` ({entries[1]} entries).

{table(head, rows)}
System calls from start to end: {", ".join(f"{name} {calls}" for name, calls in fixed.items())}.
"""


def hex_files(size):
    """A PM data file of about `size` bytes, and its like with the addresses that others need."""
    def record(address, kind, data):
        content = bytes([len(data), *address.to_bytes(2, "big"), kind]) + data
        return ":" + (content + bytes([-sum(content) & 0xFF])).hex().upper() + "\n"

    once = b"".join(bytes([len(entry) - 1, *(int(byte, 16) for byte in entry)])
                    for entry in entries_of(EXAMPLE))
    data = once * round(size * 16 / 44 / len(once))  # 16 bytes a line of 44 characters
    records = [record(at & 0xFFFF, 0, data[at:at + 16]) for at in range(0, len(data), 16)]
    plain, addressed = TMP / f"{size}.hex", TMP / f"{size}-addressed.hex"
    plain.write_text("".join(records) + ":00000001FF\n")
    for segment in range(0, len(records), 4096):
        records[segment] = record(0, 4, (segment // 4096).to_bytes(2, "big")) + records[segment]
    addressed.write_text("".join(records) + ":00000001FF\n")
    return plain, addressed


def benchmarks(name_filter, **env):
    """Medians by name: processor time in ns, and allocations."""
    text = subprocess.run(
        [BENCHMARKS, f"--benchmark_filter={name_filter}", "--benchmark_format=json",
         f"--benchmark_repetitions={ROUNDS}", f"--benchmark_min_time={0.02 if QUICK else 0.2}",
         "--benchmark_enable_random_interleaving=true"],
        env=environment([BENCHMARKS], bus=False) | env, check=True, stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL).stdout
    runs = [one for one in json.loads(text)["benchmarks"] if one["run_type"] == "iteration"]
    return {name: [median(one.get(key, 0) for one in runs if one["run_name"] == name)
                   for key in ("cpu_time", "allocations")]
            for name in sorted({one["run_name"] for one in runs})}


def reading():
    parts, speeds, memory = ("parseFile", "loadCommands"), {}, {}
    convert = "import intelhex, sys; intelhex.hex2bin(*sys.argv[1:])"
    benchmark = [BENCHMARKS, "--benchmark_min_time=0"]
    for label, size in SIZES.items():
        path, addressed = hex_files(size)
        file_size, binary = path.stat().st_size, TMP / "binary"
        peers = {"srec_cat": ["/usr/bin/srec_cat", addressed, "-intel", "-o", binary, "-binary"],
                 "objcopy": ["/usr/bin/objcopy", "-I", "ihex", "-O", "binary", addressed, binary],
                 "Python, intelhex": [PYTHON, "-c", convert, addressed, binary]}
        tool = {"pmadmin -m": [PMADMIN, "-m", path]}
        inside = benchmarks("|".join(parts), PM_DATA_FILE=str(path))
        ms = {part: inside[part][0] / 1e6 for part in parts}
        ms |= {name: one["processor"] for name, one in in_turn(tool | peers, "pmadmin -m").items()}
        speeds[label] = {name: file_size / one / 1000 for name, one in ms.items()}
        commands = {part: [*benchmark, f"--benchmark_filter={part}"] for part in parts} | tool
        memory[label] = {name: peak_memory(command, PM_DATA_FILE=str(path)) / file_size
                         for name, command in commands.items()}

    page = f"in new memory, at {number(page_fault_us())} µs a page here"
    cost = {"parseFile": f"the text and two copies of its digits lie {page}; objcopy streams",
            "loadCommands": f"each entry becomes an object of its own {page}"}
    for part in parts:
        slower = [f"{name} at {label}" for label, speed in speeds.items() for name in peers
                  if speed[name] >= speed[part]]
        goal(f"`{part}` faster than srec_cat, objcopy and intelhex", "section 3", not slower,
             f"slower than {', '.join(slower)}; {cost[part]}")
        before, last = list(speeds.items())[-2:]
        growth = before[1][part] / last[1][part]
        goal(f"`{part}` linear in the size", f"{last[0]}: {number(growth)}× the time per byte at "
             f"{before[0]}", 0.67 < growth < 1.5, cost[part])
    for name, peak in memory[label].items():
        goal(f"memory below eight times the file: `{name}`, {label}", f"{number(peak)}×", peak < 8,
             "on a 64-bit machine an entry of 11 characters becomes, in each list, an object of "
             "48 bytes and a pointer")
    PLOT_DATA["speeds"] = speeds

    def by_size(figures):
        return table(["", *figures], [[name, *(number(column[name]) for column in figures.values())]
                                      for name in figures[label]])

    return f"""MB per second of processor time: `parseFile` and `loadCommands` (one list) alone, in
memory that is new; the others as whole processes. srec_cat, objcopy and intelhex turn an Intel HEX
file of the same size into binary; `pmadmin -m` fills both lists.

{by_size(speeds)}
Peak memory of the process over the file's size (`loadCommands` with the `parseFile` before it):

{by_size(memory)}"""


# Instructions on x86-64 or PowerPC; all others, like moves between registers, are "other".
KINDS = {"compare": "test|cmp", "branch": "j(?!mp)|b(eq|ne|lt|le|gt|ge)",
         "load": r"mov.*\(|lwz", "call": r"(call|bl)\s"}


def gated_path(machine, object_file, disassembler):
    """The instructions of a gated-off statement, up to its third branch, counted by kind."""
    command = [disassembler, "-d", "--no-show-raw-insn", BUILD / "bench" / object_file]
    listing = output_of(command, {"PATH": PATH})
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
    rows = []
    for name, one in in_turn(START_TO_END, "i2cget").items():
        command, stripped = START_TO_END[name], TMP / "stripped"
        output_of(["strip", "-o", stripped, command[0]], {"PATH": PATH})
        rows.append([name, number(one["wall"]), f"{one['ratio']:.2f}×", f"{one['faults']:.0f}",
                     peak_memory(command) // 1024, stripped.stat().st_size])
    return table(["", "wall time, ms", "ratio", "page faults", "peak memory, KB",
                  "stripped file, bytes"], rows)


def plot():
    speeds = PLOT_DATA.pop("speeds")
    data = ["$runs << END", *(f'"{name}" {own[0]} {own[1]}' for name, own in PLOT_DATA.items()),
            "END", "$speeds << END", "file " + " ".join(f'"{label}"' for label in speeds)]
    for name in next(iter(speeds.values())):
        data.append(f'"{name}" ' + " ".join(str(column[name]) for column in speeds.values()))
    script = "\n".join([*data, "END", f"""
set terminal svg size 900,420 font "sans,12" background "white" noenhanced
set output "{FOLDER / "results.svg"}"
set multiplot layout 1,2
set style data histograms
set style fill solid 0.8 noborder
set logscale y
set grid y
set key outside top center horizontal
set tics nomirror
set xtics rotate by -25
set yrange [1:]
set title "Own time (ms, less is better)"
plot $runs using 2:xtic(1) title "compare", "" using 3 title "write"
set yrange [0.1:]
set title "Reading a PM data file (MB/s, more is better)"
plot for [i=2:{1 + len(speeds)}] $speeds using i:xtic(1) title columnheader(i)
"""])
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


SECTIONS = {
    whole_runs: "A whole compare and a whole write of `board-a.hex`",
    bus_budget: "The bus budget",
    reading: "Reading a PM data file",
    transfers_and_log_statements: "Transfers and gated-off log statements",
    start_to_end: "`pmadmin -a` beside `i2cget`, start to end",
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
runs.

![The same numbers as a picture](results.svg)

{table(["goal", "measured", ""], GOALS)}
""" + "\n".join(sections)
    FOLDER.mkdir(exist_ok=True)
    (FOLDER / "RESULTS.md").write_text(text)
    plot()
    print(text)


main()
