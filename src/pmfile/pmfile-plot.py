#!/usr/bin/python3
"""Draws a PM data file for reviews, from what `pmfile show --json` says of it."""

import argparse
import contextlib
import errno
import io
import json
import math
import os
import shutil
import signal
import stat
import subprocess
import sys
import tempfile

DARK, GREY = "#404040", "#6E6E6E"
# By the registers, as the legend has them. Colour-blind people tell the colours apart, and where
# there are none, the shapes differ.
LIMITS = {
    "POWER_GOOD_ON": {"marker": ">", "ms": 6, "c": "#00664B"},
    "POWER_GOOD_OFF": {"marker": "<", "ms": 6, "c": "#00664B", "mfc": "white"},
    "VOUT_UV_FAULT_LIMIT\nVOUT_OV_FAULT_LIMIT": {"marker": "|", "ms": 20, "mew": 4, "c": "#D55E00"},
    "VOUT_UV_WARN_LIMIT\nVOUT_OV_WARN_LIMIT": {"marker": "|", "ms": 13, "mew": 2.5, "c": "#E69F00"},
    "VOUT_MARGIN_LOW\nVOUT_MARGIN_HIGH": {"marker": "|", "ms": 8, "mew": 2, "c": "#0072B2"}}
NAMES = "\n".join(LIMITS).split("\n")
SPANS = (("VOUT_UV_FAULT_LIMIT", "VOUT_OV_FAULT_LIMIT", 0.05, "#B0B0B0"),
         ("VOUT_MARGIN_LOW", "VOUT_MARGIN_HIGH", 0.3, "#A9D3EE"))
TON = {"TON_DELAY": {"height": 0.3, "color": DARK},
       "TON_MAX_FAULT_LIMIT": {"height": 0.5, "fc": "white", "ec": DARK, "hatch": "//////"}}
TOFF = {"TOFF_DELAY": TON["TON_DELAY"]}
STYLE = {
    "font.size": 7.5, "text.parse_math": False, "hatch.linewidth": 0.5, "axes.axisbelow": True,
    "axes.titlelocation": "left", "axes.titlepad": 28, "axes.grid": True, "axes.grid.axis": "x",
    "grid.color": "#DDDDDD", "xtick.major.size": 0, "ytick.major.size": 0, "legend.fontsize": 6.5,
    "legend.frameon": False, "legend.markerscale": 0.7, "legend.handlelength": 1.2,
    "legend.columnspacing": 1.5, "legend.labelspacing": 0.3, "legend.borderaxespad": 0.2,
    "svg.fonttype": "none", "svg.hashsalt": "pmfile-plot"}
METADATA = {"svg": {"Date": None, "Creator": None}, "png": {}}  # the same bytes each time
FARTHEST = 50  # per cent off nominal: limits beyond would flatten the others, and are written
UNSET = {"number": None, "value": "–"}  # of a register that is not in the file
NOTES = ("The step of times, 0.2 ms, is known from related chips only.\nslot: "
         "MFR_SEQ_TIMESLOT. Slots, where set, can order the channels in place of the delays; the "
         f"chip's data sheet says when. Limits beyond {FARTHEST} % are written in small letters.")


def printable(text):
    """The text in one line that does nothing to a terminal, whatever a file is called."""
    return "".join(c if c.isprintable() else "?" for c in text)


def fail(message):
    print(f"pmfile-plot: {printable(message)}", file=sys.stderr)
    sys.exit(2)


def show(path):
    """What pmfile says of a file. If that complains, its status is this program's."""
    here = os.path.dirname(os.path.realpath(__file__))
    pmfile = shutil.which("pmfile", path=here) or shutil.which("pmfile")
    if pmfile is None:
        fail("pmfile is neither beside this program nor on the path")
    try:
        shown = subprocess.run([pmfile, "show", "--json", "--", path], stdout=subprocess.PIPE)
    except OSError as error:
        fail(f"{pmfile}: cannot be run: {error.strerror}")
    if shown.returncode < 0:
        fail(f"{pmfile} was killed by signal {-shown.returncode}")
    if shown.returncode > 0:
        sys.exit(shown.returncode)
    return json.loads(shown.stdout)


def draw_limits(axes, channels):
    """The limits of channels whose nominal voltage is known. What has no place is written."""
    off = {(row, name): 100 * (value / registers["MFR_CHANNEL_NOMINAL"]["number"] - 1)
           for row, registers in channels.items() for name in NAMES
           if (value := registers.get(name, UNSET)["number"]) is not None}
    reach = 1.1 * max([abs(value) for value in off.values() if abs(value) <= FARTHEST] or [0]) or 10
    for row, registers in channels.items():
        for low, high, height, color in SPANS:
            if (row, low) in off and (row, high) in off:
                axes.barh(row, off[row, high] - off[row, low], height, off[row, low], color=color)
        written = {}
        for name in NAMES:
            if name in registers and abs(off.get((row, name), math.inf)) > reach:
                written.setdefault(registers[name]["value"], []).append(name)
        text = "\n".join(", ".join(names) + " " + value for value, names in written.items())
        axes.text(0, row - 0.44, text, size=5.5, ha="center", va="top")
    for names, style in LIMITS.items():
        points = [(x, row + (0.3 if "GOOD" in name else 0)) for (row, name), x in off.items()
                  if name in names.split("\n") and abs(x) <= reach]
        axes.plot([x for x, y in points], [y for x, y in points], ls="", label=names, **style)
    axes.axvline(0, color=DARK, linewidth=0.8, zorder=0.6)
    axes.set(xlim=(-reach, reach), title="Limits", xlabel="% off MFR_CHANNEL_NOMINAL")
    axes.locator_params(axis="x", nbins=14)


def draw_delays(axes, channels, title, delays):
    """One delay behind the other, then the values; a dash for what the file does not set."""
    ends = dict.fromkeys(channels, 0)
    for name, style in delays.items():
        lengths = [channels[row].get(name, UNSET)["number"] or 0 for row in channels]
        axes.barh(list(channels), [length or math.nan for length in lengths],  # nan: no outline
                  left=list(ends.values()), label=name, **style)
        ends = {row: ends[row] + length for row, length in zip(channels, lengths)}
    for row, end in ends.items():
        values = [channels[row].get(name, UNSET)["value"] for name in delays]
        axes.annotate(" + ".join(values).replace(" ms", ""), (end, row), (4, 0),
                      textcoords="offset points", va="center")
    axes.set(xlim=(0, 1.5 * max(ends.values(), default=0) or 1), title=title, xlabel="ms")
    axes.locator_params(axis="x", nbins=6, prune="upper")


def draw(content, form):
    """The picture as the bytes of a file in this form."""
    os.environ.pop("MPLBACKEND", None)  # a picture needs none
    import matplotlib
    from matplotlib.figure import Figure

    matplotlib.rcdefaults()  # whatever this user prefers
    matplotlib.rcParams.update(STYLE)
    channels = {row: {} for row in range(12)}
    for entry in content["entries"]:
        if entry["page"] in channels and entry["name"] not in (None, "PAGE"):
            channels[entry["page"]][entry["name"]] = entry  # of several the last counts
    used = {row: registers for row, registers in channels.items()
            if registers and row not in content["unusedPages"]}
    known = {row: registers for row, registers in used.items()
             if registers.get("MFR_CHANNEL_NOMINAL", UNSET)["number"]}

    figure = Figure(figsize=(11.7, 7))  # inches, as wide as A4 is long
    panels = limits, start, stop = figure.subplots(1, 3, sharey=True, gridspec_kw={
        "width_ratios": [5, 2.8, 1.8], "wspace": 0.04, "left": 0.075, "right": 0.94,
        "bottom": 0.12, "top": 0.855})
    draw_limits(limits, known)
    draw_delays(start, used, "From the start condition", TON)
    draw_delays(stop, used, "From the stop condition", TOFF)
    for row, registers in channels.items():
        why_not = ("" if row in known else "no nominal voltage" if row in used
                   else "unused: all as from the factory" if registers else "not in the file")
        limits.annotate(why_not, (0, row), (8, 0), textcoords="offset points", va="center", c=GREY)
        if "MFR_SEQ_TIMESLOT" in registers and row in used:
            stop.text(1.03, row, f"slot {registers['MFR_SEQ_TIMESLOT']['value']}", va="center",
                      transform=stop.get_yaxis_transform())
    for panel in panels:
        for row in range(0, 12, 2):
            panel.axhspan(row - 0.5, row + 0.5, facecolor="#F3F3F3", linewidth=0, zorder=0)
        panel.legend(loc="lower left", bbox_to_anchor=(0, 1), ncol=4)
        panel.spines[:].set_visible(False)
    limits.set(ylim=(11.5, -0.5), yticks=range(12), yticklabels=[
        f"channel {row}\n{registers['MFR_CHANNEL_NOMINAL']['value']}" if row in known
        else f"channel {row}" for row, registers in channels.items()])
    version = "settings {major}.{minor}, for hardware {minimumHardware} and later".format_map(
        content["version"]) if content["version"] else "no version record"
    name = printable(os.path.basename(content["file"]))
    figure.suptitle(f"{name}: {version}", x=0.02, ha="left", size=13)
    figure.text(0.02, 0.02, NOTES, size=6.5, color=GREY)
    picture = io.BytesIO()
    figure.savefig(picture, format=form, dpi=150, metadata=METADATA[form])
    return picture.getvalue()


def take_rights(descriptor, replaced):
    """Gives a new file the owner and rights of the one that it replaces, and nobody more."""
    mode = stat.S_IMODE(replaced.st_mode)
    for owner in (replaced.st_uid, -1):
        with contextlib.suppress(OSError):
            os.chown(descriptor, owner, replaced.st_gid)
            break
    else:
        mode &= stat.S_IRWXU
    os.fchmod(descriptor, mode)


def write(picture, path):
    """Writes beside the file, then takes its place; a device or pipe is written directly."""
    target = os.path.realpath(path)  # a link stays one
    replaced = os.stat(target) if os.path.exists(target) else None
    if replaced and not stat.S_ISREG(replaced.st_mode):
        with open(target, "wb") as device:
            device.write(picture)
        return
    if replaced and not os.access(target, os.W_OK):
        raise PermissionError(errno.EACCES, os.strerror(errno.EACCES))
    mask = os.umask(0)
    os.umask(mask)
    # Signals that people end programs with wait, so that no half of a file is left behind.
    signal.pthread_sigmask(signal.SIG_BLOCK,
                           (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT))
    descriptor, temporary = tempfile.mkstemp(prefix=os.path.basename(target) + ".",
                                             dir=os.path.dirname(target))
    try:
        with open(descriptor, "wb") as file:
            file.write(picture)
            file.flush()
            if replaced:
                take_rights(descriptor, replaced)
            else:
                os.fchmod(descriptor, 0o666 & ~mask)
            os.fsync(descriptor)
        os.replace(temporary, target)
    except OSError:
        os.unlink(temporary)
        raise


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="pmfile-plot", add_help=False, allow_abbrev=False,
        description="Draws the limits and delays of each channel in a PM data file.")
    parser.add_argument("file", metavar="FILE", help="PM data file; - is standard input")
    parser.add_argument("-o", metavar="PICTURE", help="name of the picture, ending in .svg or .png "
                        "(default: FILE with .svg in place of its extension)")
    parser.add_argument("--help", action="help", help="show this text")
    parser.add_argument("--version", action="version", help="show the version",
                        version="pmfile-plot @PROJECT_VERSION@")
    parser.error = lambda message: fail(f"{message} (see pmfile-plot --help)")
    return parser.parse_args()


def main():
    if signal.getsignal(signal.SIGINT) == signal.default_int_handler:
        signal.signal(signal.SIGINT, signal.SIG_DFL)  # an end without a traceback
    arguments = parse_arguments()
    source, output = arguments.file, arguments.o
    if output is None and source == "-":
        fail("a picture of standard input needs -o")
    if output is None:
        output = os.path.splitext(source)[0] + ".svg"
    if not output.endswith((".svg", ".png")):
        fail(f"{output}: expected a name that ends in .svg or .png")
    content = show(source)
    try:
        if os.path.realpath(source) == os.path.realpath(output):
            fail(f"{output}: is the input, which would be lost")
        write(draw(content, output[-3:]), output)
    except ImportError:
        fail("drawing takes matplotlib: install the Debian package python3-matplotlib")
    except OSError as error:
        fail(f"{output}: cannot be written: {error.strerror}")


try:
    try:
        main()
    finally:
        if sys.stdout:
            sys.stdout.flush()
except OSError as error:
    print(f"pmfile-plot: standard output: {error.strerror}", file=sys.stderr)
    os._exit(2)  # otherwise what can't be written would be tried again
