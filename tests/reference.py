"""What states, status bits and `pmstatus --with` must be for random settings, supplies, sensors and ratios, in words of
its own: the virtual board and pmstatus agree with it. Usage: reference.py SEED ROUNDS, with the variables of BoardRun."""
import json
import random
import subprocess
import sys

OFF = "off, or not watched yet"
# Register, direction, weight, words of the status bit, factory value.
VOLTS = [("VOUT_OV_FAULT_LIMIT", 1, 2, "overvoltage fault", 0x7FFF),
         ("VOUT_OV_WARN_LIMIT", 1, 1, "overvoltage warning", 0x7FFF),
         ("VOUT_UV_WARN_LIMIT", -1, 1, "undervoltage warning", 0),
         ("VOUT_UV_FAULT_LIMIT", -1, 2, "undervoltage fault", 0)]
CELSIUS = [("OT_FAULT_LIMIT", 1, 2, "overtemperature fault", 0x7FFF),
           ("OT_WARN_LIMIT", 1, 1, "overtemperature warning", 0x7FFF)]
STATES = ["good", "warning", "fault"]
FAULTY, DISABLED = 0x7FFF, 0


def run(options, command):
    line = f"$VIRTUAL_BOARD --time-scale 0 {options} -- {command}"
    done = subprocess.run(line, shell=True, stdout=subprocess.PIPE, check=False, text=True)
    if done.returncode == 3 or "pmstatus" not in command.lower() and done.returncode != 0:
        sys.exit(f"{line}: status {done.returncode}")
    return json.loads(done.stdout) if "--json" in command else None


class Rail:
    def __init__(self, chance, number, is_channel):
        self.number, self.is_channel = number, is_channel
        self.rows = VOLTS if is_channel else CELSIUS
        self.kind = "channel" if is_channel else "sensor"
        self.nominal = chance.randint(500, 12000)
        self.registers = {row[0]: self.bound(chance, row) for row in self.rows}
        if is_channel:
            self.registers["VOUT_SCALE_MONITOR"] = chance.choice([0x7FFF, 0x4000, 0x1000])
        self.off = chance.random() < 0.2
        # Two moments: the second is what is there when pmstatus looks.
        self.readings = [self.reading(chance), self.reading(chance)]
        self.up, self.bits = False, set()
        self.seen = [r for r in self.readings if self.measured(r)]
        for reading in self.readings:
            self.up = self.up or reading > 0 and reading >= self.registers.get("VOUT_UV_FAULT_LIMIT", 0)
            self.bits |= {row[3] for row in self.beyond(reading, self.registers) if row[1] > 0 or self.up}

    def bound(self, chance, row):
        near = round(self.nominal * (1 + row[1] * chance.uniform(-0.05, 0.2)))
        return row[4] if chance.random() < 0.2 else near

    def reading(self, chance):
        odd = [0] if self.is_channel else [FAULTY, DISABLED]
        edge = chance.choice(list(self.registers.values())[:len(self.rows)])
        near = round(self.nominal * chance.uniform(0.85, 1.15))
        return chance.choice(odd) if chance.random() < 0.1 else edge if edge < 20000 and chance.random() < 0.2 else near

    def measured(self, reading):
        return self.is_channel or reading not in (FAULTY, DISABLED)

    def beyond(self, reading, registers):
        return [row for row in self.rows if self.measured(reading) and registers[row[0]] != row[4]
                and (reading - registers[row[0]]) * row[1] > 0]

    def runs(self):
        return self.readings[1] > 0 and self.readings[1] >= self.registers["VOUT_UV_FAULT_LIMIT"]

    def state(self, reading, registers, bits, off):
        weights = [row[2] for row in self.rows if row[3] in bits]
        for row in self.beyond(reading, registers):
            unlatched_low = row[0] == "VOUT_UV_FAULT_LIMIT" and row[3] not in bits
            weights.append(0 if off and row[1] < 0 else 1 if unlatched_low else row[2])
        faulty = not self.is_channel and reading == FAULTY and not off
        return STATES[max(weights + [1 if faulty else 0])]

    def judged(self, reading, registers):
        return [row for row in self.beyond(reading, registers) if row[1] > 0 or self.runs()]


def settings(rails):
    return "".join(f"[{rail.kind} {rail.number}]\n" + "".join(f"{name} 0x{number:04X}\n" for name, number in changes)
                   for rail, changes in rails)


def make(name, text):
    with open(f"{name}.settings", "w", encoding="ascii") as file:
        file.write(text)
    subprocess.run(f"$PMFILE make --allow all {name}.settings -o {name}.hex", shell=True, check=True)


def inputs(rails, moment):
    def text(rail):
        reading = rail.readings[moment]
        if rail.is_channel:
            return f"--supply {rail.number}={reading / 1000}"
        return f"--sensor {rail.number}=" + {FAULTY: "faulty", DISABLED: "disabled"}.get(reading, str(reading / 100))
    return " ".join(map(text, rails))


def rescaled(reading, old, new):
    return min(0x7FFF, (2 * reading * old + new) // (2 * new))


def forecast(rails, sections):
    """What --with must say, and of each rail that can be simulated: reading and registers at the end."""
    now = {rail: (rail.readings[1], dict(rail.registers)) for rail in rails}
    crossings, hopeless, index = {}, {}, -1
    for rail, changes in sections:
        index += 1
        for name, number in changes:
            index += 1
            registers = now[rail][1]
            registers[name] = number
            old, new = (each.get("VOUT_SCALE_MONITOR", 1) for each in (rail.registers, registers))
            if rail in hopeless or new <= 0:
                hopeless.setdefault(rail, new)
                continue
            reading = rescaled(rail.readings[1], old, new) if rail.is_channel else rail.readings[1]
            now[rail] = reading, registers
            for row in rail.judged(reading, registers):
                first = crossings.get((rail, row[0]), [0, 0, 0, index])
                crossings[rail, row[0]] = (first[:3] if first[2] else [reading, registers[row[0]], row[2]]) \
                    + [first[3], index]
    end, peaks = {}, set()
    for rail in [rail for rail in now if rail not in hopeless]:
        reading, registers = now[rail]
        end.update({(rail, row[0]): (reading, registers[row[0]], row[2]) for row in rail.judged(reading, registers)})
        for seen, sign in [(f(rail.seen), s) for f, s in ((max, 1), (min, -1)) if rail.seen]:
            if sign < 0 and not rail.is_channel or sign > 0 and rail.is_channel and seen == 0:
                continue
            then = rescaled(seen, rail.registers["VOUT_SCALE_MONITOR"], registers["VOUT_SCALE_MONITOR"]) \
                if rail.is_channel else seen
            before = rail.beyond(seen, rail.registers)
            peaks |= {(rail, row[0], then, registers[row[0]], 1) for row in rail.judged(then, registers)
                      if row[1] == sign and row not in before}
    during = {(*key, *value) for key, value in crossings.items() if key not in end}
    at_end = {(*key, *value) for key, value in end.items()}
    at_end |= {(rail, "VOUT_SCALE_MONITOR", ratio, 0, 2) for rail, ratio in hopeless.items()}
    return {"atEnd": at_end, "whileWritten": during, "sincePeaks": peaks}, \
        {rail: now[rail] for rail in now if rail not in hopeless}


def latched(shown):
    words = [text for text in shown["complaints"] if " (latched" in text]
    return {text.split(" (latched")[0] for text in words}


def differ(what, rail, expected, shown):
    if expected != shown:
        sys.exit(f"{what} of {rail.kind} {rail.number}: expected {expected}, shown {shown}; {vars(rail)}")


def play(chance):
    rails = [Rail(chance, n, True) for n in range(12)] + [Rail(chance, n, False) for n in range(5)]
    make("init", settings([(rail, rail.registers.items()) for rail in rails]))
    run("--power-cycle --supply all=none " + " ".join(f"--sensor {n}=none" for n in range(5)), "$PMADMIN -r init.hex")
    run(inputs(rails, 0), "$PMADMIN -a")
    off = ",".join(("" if rail.is_channel else "sensor") + str(rail.number) for rail in rails if rail.off)
    before = run(inputs(rails, 1), "$PMSTATUS --all --json" + (f" --off {off}" if off else ""))
    for rail, shown in zip(rails, before["supplies"] + before["sensors"]):
        differ("bits", rail, rail.bits, latched(shown))
        differ("state", rail, rail.state(rail.readings[1], rail.registers, rail.bits, rail.off), shown["state"])

    sections = []
    for rail in chance.choices(rails, k=12):
        changes = [(row[0], rail.bound(chance, row)) for row in chance.choices(rail.rows, k=3)]
        if rail.is_channel and chance.random() < 0.4:
            changes.insert(chance.randint(0, 3), ("VOUT_SCALE_MONITOR", chance.choice([0, 0x7FFF, 0x4000, 0x3F00])))
        sections.append((rail, changes))
    make("new", settings(sections))
    expected, ends = forecast(rails, sections)
    said = run("", "$PMSTATUS --json --with new.hex")
    for name, crossings in expected.items():
        told = set()
        for one in said[name]:
            rail = rails[one["channel"] if "channel" in one else 12 + one["sensor"]]
            steps = 32767 if one["limit"] == "VOUT_SCALE_MONITOR" else 1000 if rail.is_channel else 100
            told.add((rail, one["limit"], round(one["value"] * steps), round(one["bound"] * steps),
                      STATES.index(one["state"])) + ((one["first"], one["last"]) if "first" in one else ()))
        for rail in {one[0] for one in crossings ^ told}:
            differ(name, rail, *({one[1:] for one in side if one[0] == rail} for side in (crossings, told)))

    run("", "$PMADMIN -r new.hex")
    after = run("", "$PMSTATUS --all --json")
    for rail, shown in zip(rails, after["supplies"] + after["sensors"]):
        if rail not in ends or (rail.is_channel and not rail.runs()):
            continue
        reading, registers = ends[rail]
        words = {row[0]: row[3] for row in rail.rows}
        anew = {words[one[1]] for name in ("atEnd", "whileWritten") for one in expected[name] if one[0] == rail}
        differ("bits afterwards", rail, rail.bits | anew, latched(shown))
        differ("state afterwards", rail, rail.state(reading, registers, rail.bits | anew, False), shown["state"])


for seed in range(int(sys.argv[1]), int(sys.argv[1]) + int(sys.argv[2])):
    try:
        play(random.Random(seed))
    except SystemExit as failure:
        sys.exit(f"seed {seed}: {failure}")
