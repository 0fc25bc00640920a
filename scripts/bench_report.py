#!/usr/bin/env python3
"""Turns results of Google Benchmark into benchmarks.json, .md and .svg: bench_report.py DIRECTORY RESULTS.json..."""

import json
import platform
import statistics
import sys
from pathlib import Path

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402

NAMES = {
    "asio": "Asio", "glib": "GLib", "qt": "Qt", "libevent_precise": "libevent, precise",
    "gst_structure": "GstStructure", "qvariantmap": "QVariantMap", "nlohmann_json": "nlohmann::json",
    "av_dictionary": "AVDictionary", "absl_flat_hash_map": "absl::flat_hash_map", "absl_btree_map": "absl::btree_map",
    "qdatastream": "QDataStream",
}
# Not libraries but the least that the same takes.
BOUNDS = {
    "condvar": "condition variable", "locked_deque": "locked deque", "map_of_lists": "map of lists",
    "clock_nanosleep": "clock_nanosleep",
    "map_shared_ptr": "map of shared_ptr", "map_own_texts": "map of shared_ptr, texts copied",
    "map_variant": "map of variant", "memcpy": "memcpy", "std_thread": "std::thread",
    "clock_gettime": "clock_gettime", "raw_calls": "system calls",
}
REMOVALS = {
    "removal": "Removal from", "removal_in_order": "Removal, due times in order, from",
    "removal_in_no_order": "Removal, due times in no order, from",
}
# Row, title, unit of "ns". The tables show all of them, the picture those with a title for it.
ROWS = [
    ("queue/burst", "Burst: queue and run", "a message, 10,000 at once"),
    ("queue/post producers:1", "Post to a free worker", "a message, one producer"),
    ("queue/post producers:2", None, "a message, two producers"),
    ("queue/timers", "Timers", "processor time, a message"),
    ("queue/hop", "Hop between two queues", "a hop"),
    ("queue/lateness", "Lateness", "after 1 ms"),
    ("queue/lateness_rt", "Lateness, real time", "after 1 ms"),
    *((f"queue/{row} pending:{pending}", None, f"a pending message, of {pending:,}")
      for row in REMOVALS for pending in (10, 1000, 100000)),
    ("queue/memory pending:1000000", None, "a pending message"),
    *((f"container/{row} entries:{size}", title if size == 16 else None, f"an entry of {size}")
      for row, title in (("build", "Build"), ("read", "Read"), ("update", "Update"), ("copy", "Copy"),
                         ("walk", "Walk"), ("release", "Release"), ("memory", None))
      for size in (16, 128)),
    ("parcel/write", "Parcel: write", "a value"),
    ("parcel/read", "Parcel: read", "a value"),
    ("parcel/texts", None, "a text, written and read"),
    ("parcel/copy", None, "a parcel of 2,000 values"),
    ("thread/start_stop", "Thread: start and stop", "a thread"),
    ("clock/boot_us", "Clock", "a reading"),
    ("memfd/create_seal_size_close", "Memory file", "create, seal, size, close"),
]
COUNTERS = {
    "ns": "ns", "queue_ns": "ns, of that queuing", "run_ns": "ns, of that running", "median_ns": "ns, median",
    "p99_ns": "ns, 99 %", "allocations": "allocations", "bytes": "bytes", "idle_bytes": "bytes left when idle again",
}
FAMILIES = {"queue": "Queue", "container": "Container", "parcel": "Parcel", "thread": "Thread",
            "clock": "Clock", "memfd": "Memory file"}
IDLE_BYTES = 4096
NOTES = [
    "- No queue has real-time priority, except in the rows called rt, where the workers of all have the same.",
    "- libuv and Qt count delays in milliseconds. libevent's usual clock is as coarse as the scheduler's tick;"
    " \"precise\" uses the one that the others use. libuv has no queue: its messages wait in a locked vector.",
    "- Containers are given their keys as plain text, QVariantMap as QStrings made beforehand. AVDictionary stores"
    " text only, and converts.",
    "- Copies share the values in osal, its texts excepted, in the map of shared_ptr and, until they are changed, in"
    " QVariantMap.",
    "- \"of 16\" is the size of the container; a third of the keys are longer than 15 characters.",
    "- The parcel that is called memcpy checks nothing.",
    "- Messages that are due at once share a list in osal. In the rows \"in order\" and \"in no order\" each has a"
    " due time of its own: a key of a map, and the only message of its list.",
    "- The map of lists is that map alone: one thread, no lock, nobody to wake. In the rows of removal it only looks"
    " for the message.",
]

AHEAD = [
    "- Queue: libuv and the locked deque hand over a vector or a deque. No message of theirs has a due time, and"
    " libuv's cannot be withdrawn.",
    "- Timers: each message is a key of an ordered map and a node of its list; the map of lists shows what that takes"
    " on one thread. Most of the rest comes of two threads that work on the same nodes and want the same lock: one"
    " searches all that is pending under it, the other takes it for each message, which may be withdrawn until it runs."
    " Asio and libevent keep a heap in an array. libevent's usual clock saves waking: its timers are milliseconds late,"
    " many at a time.",
    "- Lateness at ordinary priority: the system lets every ordinary thread that waits on a condition variable be 50"
    " microseconds late. Asio and the precise libevent wait for a timer's descriptor, which is exempt, as real-time"
    " threads are: the priority that workers of osal ask for. With all at that priority osal is about as late as"
    " the bare clock_nanosleep: the rest is the system's.",
    "- Removal in no order: the messages can only be reached through the map, whose neighbours are then far apart in"
    " memory; in the bare map of lists, too. GLib goes through a list in the order of queuing.",
    "- Reading one of 16: GstStructure goes through 16 numbers of interned names, osal searches an ordered map of"
    " texts, in less time than the bare map of variant.",
    "- Containers: a hash table keeps no order, and a B-tree holds its values in place. Here items are shared, with"
    " copies and with whoever walks, so that each is a node, a count and an item, and a text one block more. Most of"
    " the time that building, copying and releasing take is spent on getting and returning that memory. A bare map that"
    " copies texts, too, takes as long.",
]


def targets():
    """Yields what, row, counter, kind and number of each limit, and the row and the subject that it refers to."""
    for factor, subjects in ((1.8, ["asio"]), (1, ["glib", "qt", "libevent"])):
        for subject in subjects:
            yield "Burst, queuing and running one message", "queue/burst", "ns", "×", factor, "queue/burst", subject
    for subject in ("asio", "glib", "libevent", "libevent_precise", "qt"):
        yield "Timers, processor time per message", "queue/timers", "ns", "×", 0.5, "queue/timers", subject
    yield "Hop", "queue/hop", "ns", "×", 1.3, "queue/hop", "condvar"
    lateness = "Lateness, median, at real-time priority"
    for other, note in (("queue/lateness", ""), ("queue/lateness_rt", ", all at that priority")):
        for subject in ("glib", "libuv", "qt"):
            yield lateness + note, "queue/lateness_rt", "median_ns", "×", 0.5, other, subject
    yield lateness, "queue/lateness_rt", "median_ns", "×", 1, "queue/lateness", "clock_nanosleep"
    for size in (16, 128):
        def container(row, factor, subject):
            name = f"container/{row} entries:{size}"
            return f"Container of {size}, {row} one entry", name, "ns", "×", factor, name, subject
        for row in ("read", "update"):
            for subject in ("gst_structure", "qvariantmap", "nlohmann_json"):
                yield container(row, 1, subject)
            yield container(row, 1.2, "map_variant")
        yield container("walk", 1.5, "map_shared_ptr")
        for row in ("build", "copy"):
            yield container(row, 1.2, "map_shared_ptr")
        yield container("copy", 1.2, "map_own_texts")
    for row in ("write", "read"):
        what = f"Parcel, one fixed value {'written' if row == 'write' else 'read'}"
        yield what, f"parcel/{row}", "ns", "×", 1, f"parcel/{row}", "qdatastream"
        yield what, f"parcel/{row}", "ns", "+", 3, f"parcel/{row}", "memcpy"
    yield "Start and stop", "thread/start_stop", "ns", "×", 1.1, "thread/start_stop", "std_thread"
    yield "Clock", "clock/boot_us", "ns", "×", 1.15, "clock/boot_us", "clock_gettime"
    memfd = "memfd/create_seal_size_close"
    yield "Memory file", memfd, "ns", "×", 1.15, memfd, "raw_calls"
    for name, what in REMOVALS.items():
        for pending in (10, 1000, 100000):
            row = f"queue/{name} pending:{pending}"
            yield f"{what} {pending:,}, ns per pending message", row, "ns", "=", 25, None, None
            yield f"{what} {pending:,}, allocations", row, "allocations", "=", 0, None, None
    in_no_order = "queue/removal_in_no_order pending:100000"
    yield f"{REMOVALS['removal_in_no_order']} 100,000", in_no_order, "ns", "×", 1.2, in_no_order, "map_of_lists"
    yield "Idle size after a million messages, bytes more than before", "queue/memory pending:1000000", \
        "idle_bytes", "=", IDLE_BYTES, None, None


def number(value):
    if value == 0 or abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


def read(paths):
    """The figures of all runs, each the least of its passes, by row, subject and counter; and the machine."""
    passes = {}
    about = {}
    for path in paths:
        number_of_run = Path(path).name.split("-")[0]
        result = json.loads(Path(path).read_text())
        about = min({**about, **result["context"]}, {**result["context"], **about}, key=lambda one: one["date"])
        for run in result["benchmarks"]:
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            if run["run_type"] != "iteration":
                continue
            family, row, subject, *rest = run["name"].split("/")
            arguments = [text for text in rest if text.split(":")[0] in ("producers", "pending", "entries")]
            counters = passes.setdefault(" ".join([f"{family}/{row}", *arguments]), {}).setdefault(subject, {})
            for counter in COUNTERS.keys() & run.keys():
                counters.setdefault(counter, {}).setdefault(number_of_run, []).append(run[counter])
    runs = {row: {subject: {counter: [min(values) for values in by_run.values()]
                            for counter, by_run in counters.items()}
                  for subject, counters in subjects.items()} for row, subjects in passes.items()}
    known = {row for row, *_ in ROWS}
    if runs.keys() - known:
        sys.exit(f"rows without a place in the report: {sorted(runs.keys() - known)}")
    return runs, about


def describe(about):
    cpu = next((line.split(":")[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                if line.startswith("model name")), platform.machine())
    caches = ", ".join(f"L{cache['level']} {cache['type'].lower()} {cache['size'] // 1024} KiB"
                       for cache in about.get("caches", []))
    system = platform.freedesktop_os_release().get("PRETTY_NAME", "") if Path("/etc/os-release").exists() else ""
    versions = [f"{key.removeprefix('version of ')} {value}" for key, value in about.items()
                if key.startswith("version of ")]
    virtual = " (virtual machine)" if "hypervisor" in Path("/proc/cpuinfo").read_text() else ""
    return {
        "date": about["date"][:10],
        "processor": f"{cpu}, {about['num_cpus']} cores at {about['mhz_per_cpu']} MHz{virtual}",
        "caches": caches,
        "system": f"{system}, Linux {platform.release()}, {platform.libc_ver()[0]} {platform.libc_ver()[1]}",
        "load before": ", ".join(f"{load:.1f}" for load in about.get("load_avg", [])),
        "compiler": about["compiler"],
        "compared with": ", ".join(sorted(versions, key=str.lower)),
    }


def verdicts(runs):
    """Compared run by run, since what else the machine does weighs on all figures of a run alike."""
    for what, row, counter, kind, limit, other_row, subject in targets():
        osal = runs.get(row, {}).get("osal", {}).get(counter)
        other = runs.get(other_row, {}).get(subject, {}).get(counter) if subject else [0] * len(osal or [])
        name = BOUNDS.get(subject) or NAMES.get(subject, subject)
        bound = {"×": f"{limit} × {name}", "+": f"{name} + {limit} ns", "=": f"{limit:,}"}[kind]
        if osal is None or other is None:
            yield what, bound, "not measured", ""
        elif kind == "×":
            ratio = statistics.median(mine / its for mine, its in zip(osal, other))
            yield what, bound, f"{ratio:.2f} ×", "yes" if ratio <= limit else "**no**"
        else:
            more = statistics.median(mine - its for mine, its in zip(osal, other))
            yield what, bound, ("+ " if kind == "+" else "") + number(more), "yes" if more <= limit else "**no**"


def write_markdown(path, machine, runs, medians, repetitions):
    lines = ["# Benchmarks", "",
             f"Written by `scripts/bench.sh`: the median of {repetitions} runs. The figure of a run is the best of six"
             " passes, but the rows of the queue other than removal have one; that of a pass is the median of its"
             " iterations. Less is better everywhere. The code is in `bench/`, the spread of the runs in"
             " `benchmarks.json`.", "", "![The picture](benchmarks.svg)", "", "| | |", "| --- | --- |"]
    lines += [f"| {key} | {value} |" for key, value in machine.items() if value]
    lines += ["", "Good to know:", "", *NOTES, "", "Where others are ahead, and why:", "", *AHEAD, "",
              "## What was to be reached", "", "| what | at most | measured | holds |", "| --- | --- | --- | --- |"]
    lines += [f"| {' | '.join(verdict)} |" for verdict in verdicts(runs)]
    for family, title in FAMILIES.items():
        rows = [(row, unit) for row, _, unit in ROWS if row.startswith(family + "/") and row in medians]
        subjects = sorted({subject for row, _ in rows for subject in medians[row]},
                          key=lambda subject: (subject != "osal", subject in BOUNDS, subject))
        header = ["", "unit", *(BOUNDS.get(subject) or NAMES.get(subject, subject) for subject in subjects)]
        lines += ["", f"## {title}", "", f"| {' | '.join(header)} |", f"| --- | --- |{' ---: |' * len(subjects)}"]
        for row, unit in rows:
            for counter, counter_unit in COUNTERS.items():
                values = [medians[row].get(subject, {}).get(counter) for subject in subjects]
                if any(value is not None for value in values):
                    cells = ["" if value is None else number(value) for value in values]
                    lines.append(f"| {row.split('/')[1].split(' ')[0].replace('_', ' ')} | {counter_unit}; {unit} | "
                                 f"{' | '.join(cells)} |")
    path.write_text("\n".join(lines) + "\n")


OSAL, SLOWER, FASTER, TEXT, FAINT = "#0a62c4", "#93a1b0", "#e08a2c", "#1f2933", "#5b6875"


def draw_row(axes, values, title, unit):
    order = sorted(values, key=values.get)
    for y, subject in enumerate(order):
        ratio = values[subject] / values["osal"]
        if subject == "osal":
            axes.plot(1, y, "D", color=OSAL, markersize=6, zorder=3)
            axes.annotate(f"{number(values[subject])} ns" if values[subject] < 10_000 else
                          f"{number(values[subject] / 1000)} µs", (1, y), (7, 0), textcoords="offset points", va="center",
                          color=OSAL, weight="bold", bbox={"facecolor": "white", "edgecolor": "none", "pad": 0.5})
            continue
        is_bound = subject in BOUNDS
        colour = SLOWER if ratio >= 1 else FASTER
        left, right = axes.get_xlim()
        end = min(max(ratio, left * 1.25), right / 2.5)
        axes.barh(y, end - 1, left=1, height=0.62, facecolor="white" if is_bound else colour, edgecolor=colour,
                  linewidth=1.2, hatch="/////" if is_bound else None, zorder=2)
        digits = f"{ratio:.1f}" if ratio < 10 else f"{ratio:.0f}"
        digits = f"{ratio:.2f}" if ratio < 0.995 else digits
        axes.annotate(digits + " ×", (max(end, 1), y), (4, 0), textcoords="offset points", va="center", color=FAINT)
    axes.axvline(1, color=OSAL, linewidth=1, zorder=1)
    axes.set_yticks(range(len(order)))
    axes.set_yticklabels([BOUNDS.get(subject) or NAMES.get(subject, subject) for subject in order])
    for label, subject in zip(axes.get_yticklabels(), order):
        if subject == "osal":
            label.set(color=OSAL, weight="bold")
    axes.set_ylim(len(order) - 0.4, -0.6)
    axes.set_title(title, loc="left", weight="bold", color=TEXT, fontsize=10, pad=15)
    axes.annotate(unit, (0, 1), (0, 4), xycoords="axes fraction", textcoords="offset points", color=FAINT)
    axes.tick_params(length=0, labelcolor=TEXT)
    axes.tick_params(axis="x", labelcolor=FAINT)
    for side in ("top", "left", "right", "bottom"):
        axes.spines[side].set_visible(False)
    axes.grid(axis="x", color="#e4e8ec", linewidth=0.8, zorder=0)


def write_picture(path, machine, medians):
    panels = []
    for row, title, unit in ROWS:
        counter = "median_ns" if "lateness" in row else "ns"
        values = {subject: counters[counter] for subject, counters in medians.get(row, {}).items()
                  if counters.get(counter, 0) > 0}
        if title and "osal" in values:
            panels.append((values, f"{FAMILIES[row.split('/')[0]]}: {title[0].lower()}{title[1:]}"
                           if row.startswith(("queue", "container")) else title, unit))
    columns = 3
    lines = [panels[i:i + columns] for i in range(0, len(panels), columns)]
    heights = [max(len(values) for values, *_ in line) + 3.2 for line in lines]
    plt.rcParams.update({"font.family": "DejaVu Sans", "font.size": 8.5, "svg.fonttype": "none",
                         "svg.hashsalt": "osal", "hatch.linewidth": 0.7})
    figure, grid = plt.subplots(len(lines), columns, figsize=(12, 0.172 * sum(heights) + 1.3), squeeze=False,
                                gridspec_kw={"height_ratios": heights}, layout="constrained")
    ratios = [value / values["osal"] for values, *_ in panels for value in values.values()]
    limits = max(min(ratios) / 1.3, 1 / 20), min(max(ratios) * 2.6, 100)
    ticks = [tick for tick in (1 / 16, 1 / 4, 1, 4, 16, 64) if limits[0] <= tick <= limits[1]]
    for axes, panel in zip(grid.flat, panels):
        axes.set_xscale("log")
        axes.set_xlim(*limits)
        axes.set_xticks(ticks, [f"{tick:g}" if tick >= 1 else f"1/{1 / tick:g}" for tick in ticks])
        axes.minorticks_off()
        draw_row(axes, *panel)
    for axes in grid.flat[len(panels):]:
        axes.axis("off")
    figure.suptitle("Time taken, where osal takes 1 (less is better; logarithmic)", x=0.01, ha="left",
                    fontsize=13, weight="bold", color=TEXT)
    figure.supxlabel("grey: slower than osal; orange: faster than osal; hatched: plain code or bare calls, as a bound\n"
                     f"{machine['processor']}; {machine['system']}; {machine['compiler']}; {machine['date']}",
                     x=0.01, ha="left", fontsize=8.5, color=FAINT)
    figure.savefig(path, metadata={"Date": None}, facecolor="white")


def main():
    if len(sys.argv) < 3:
        sys.exit("usage: bench_report.py DIRECTORY RESULTS.json...")
    out = Path(sys.argv[1])
    runs, about = read(sys.argv[2:])
    machine = describe(about)
    medians = {row: {subject: {counter: statistics.median(values) for counter, values in counters.items()}
                     for subject, counters in subjects.items()} for row, subjects in runs.items()}
    repetitions = max(len(values) for subjects in runs.values() for counters in subjects.values()
                      for values in counters.values())
    lines = [f'  "{row}": {{\n' + ",\n".join(
        f'    "{subject}": ' + json.dumps({counter: [float(f"{value:.5g}") for value in
                                                      (statistics.median(values), min(values), max(values))]
                                           for counter, values in sorted(counters.items())})
        for subject, counters in sorted(runs[row].items())) + "\n  }" for row, *_ in ROWS if row in runs]
    (out / "benchmarks.json").write_text(
        '{\n"machine": ' + json.dumps(machine, indent=2) + f',\n"runs": {repetitions},\n'
        '"values": "median, least, most",\n"rows": {\n' + ",\n".join(lines) + "\n}\n}\n")
    json.loads((out / "benchmarks.json").read_text())
    write_markdown(out / "benchmarks.md", machine, runs, medians, repetitions)
    write_picture(out / "benchmarks.svg", machine, medians)


if __name__ == "__main__":
    main()
