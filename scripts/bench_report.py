#!/usr/bin/env python3
# Makes figures.md, benchmarks.svg and growth.svg from benchmarks.json, as bench/report.txt says:
#
#     bench_report.py DIRECTORY [RESULTS.json...]     with results of Google Benchmark, makes benchmarks.json first

import html
import itertools
import json
import math
import platform
import re
import statistics
import sys
from pathlib import Path

COUNTERS = {"ns": "ns", "queue_ns": "ns, of that queuing", "run_ns": "ns, of that running", "median_ns": "ns, median",
            "p99_ns": "ns, 99 %", "bytes": "bytes", "idle_bytes": "bytes left when idle again, in all"}
STYLE = """text{font:12px system-ui,sans-serif;fill:#1f2933}.b{font-weight:bold}.f{fill:#5b6875}.o{fill:#0a62c4}
.e{text-anchor:end}.m{text-anchor:middle}path{fill:none;stroke:#dfe4e9}.s{fill:#93a1b0}.q{fill:#d9792b}.h{opacity:.45}
.l0{stroke:#0a62c4;stroke-width:2.5}.l1{stroke:#c2560c;stroke-width:1.5}.l2{stroke:#1d8348;stroke-width:1.5;
stroke-dasharray:6 3}.l3{stroke:#8e44ad;stroke-width:1.5;stroke-dasharray:2 2}.l4{stroke:#5b6875;stroke-width:1.5}
.l5{stroke:#b8860b;stroke-width:1.5;stroke-dasharray:6 3}.l6{stroke:#c2185b;stroke-width:1.5;stroke-dasharray:2 2}
.l7{stroke:#0e7c86;stroke-width:1.5;stroke-dasharray:9 3 2 3}rect.p{fill:#fff}
@media(prefers-color-scheme:dark){rect.p{fill:#14191f}text{fill:#e4e8ec}.f{fill:#a3b0bc}.o{fill:#6cb2ff}
path{stroke:#39434d}.s{fill:#6d7c8b}.l0{stroke:#6cb2ff}.l1{stroke:#ff9a57}.l2{stroke:#5fd38d}.l3{stroke:#cf9bea}
.l4{stroke:#a3b0bc}.l5{stroke:#e8c15a}.l6{stroke:#ff8ab5}.l7{stroke:#5ccfd8}}"""
WIDTH = 480


def lines_of(kind):
    for line in Path(__file__).parent.parent.joinpath("bench/report.txt").read_text().splitlines():
        cells = [cell.strip() for cell in line.split("|")]
        if cells[0] == kind:
            parts = [part.split(",") if i % 2 else [part] for i, part in enumerate(re.split(r"[{}]", cells[1]))]
            for row in itertools.product(*parts):
                yield ["".join(row), *cells[2:], *[""] * 3]


def number(value):
    digits = 0 if value == 0 or abs(value) >= 100 else 1 if abs(value) >= 10 else 2
    return f"{value:,.{digits}f}"


# The figures of all runs, each the least of its passes, by row, subject and counter; and the circumstances.
def read(paths):
    rows = {}
    paths = sorted(map(Path, paths), key=lambda one: one.stat().st_mtime_ns)
    context = json.loads(paths[0].read_text())["context"]
    for path in paths:
        result = json.loads(path.read_text())
        for bench in result["benchmarks"]:
            if bench.get("error_occurred"):
                print(f"{bench['name']}: {bench['error_message']}", file=sys.stderr)
                if bench["error_message"].startswith("left out"):
                    continue
                sys.exit(1)
            family, row, subject, *rest = bench["name"].split("/")
            name = " ".join([f"{family}/{row}", *(part for part in rest if re.match(r"(?!iterations)\w+:\d+$", part))])
            of_row = rows.setdefault(name, {"unit": bench["label"], "subjects": {}})["subjects"].setdefault(subject, {})
            for counter in COUNTERS.keys() & bench.keys():
                runs, run = of_row.setdefault(counter, {}), path.name.split("-")[0]
                runs[run] = min(runs.get(run, math.inf), float(f"{bench[counter]:.5g}"))
    kinds = {key[len("subject "):]: value.split()[0] for key, value in context.items() if key.startswith("subject ")}
    for row in rows.values():
        row["subjects"] = {subject: {counter: list(runs.values()) for counter, runs in sorted(counters.items())}
                           for subject, counters in sorted(row["subjects"].items())}
    return {"machine": describe(context), "kinds": kinds, "rows": rows}


def describe(context):
    cpu = Path("/proc/cpuinfo").read_text()
    name = re.search(r"model name\s*: (.*)", cpu)
    versions = {value.partition(" ")[2] for key, value in context.items() if key.startswith("subject ")} - {""}
    return {
        "date": context["date"][:10],
        "processor": f"{name[1] if name else platform.machine()}, {context['num_cpus']} cores at "
                     f"{context['mhz_per_cpu']} MHz{' (virtual machine)' if 'hypervisor' in cpu else ''}",
        "caches": ", ".join(f"L{one['level']} {one['type'].lower()} {one['size'] // 1024} KiB" for one in context["caches"]),
        "system": f"{platform.freedesktop_os_release()['PRETTY_NAME']}, Linux {platform.release()}, "
                  f"{' '.join(platform.libc_ver())}",
        "load before": ", ".join(f"{load:.1f}" for load in context["load_avg"]),
        "compiler": context["compiler"],
        "compared with": ", ".join(sorted(versions, key=str.lower)),
    }


def values(data, row, subject, counter):
    return data["rows"].get(row, {}).get("subjects", {}).get(subject, {}).get(counter)


# Compared run by run, since what else the machine does weighs on all figures of a run alike.
def verdicts(data):
    for row, counter, limit, subjects, other_row, *_ in lines_of("target"):
        for subject in subjects.split("; "):
            mine = values(data, row, "osal", counter)
            its = values(data, other_row or row, subject, counter) if subject else [0] * len(mine or [])
            most = float(re.sub("[x+ ]", "", limit))
            bound = f"{most:g} × {subject}" if "x" in limit else f"{subject} + {most:g}" if subject else f"{most:,g}"
            head = f"{row}, {COUNTERS[counter]}", bound + (f" in {other_row}" if other_row else "")
            if mine is None or its is None:
                yield *head, "not measured", ""
                continue
            got = statistics.median(m / i if "x" in limit else m - i for m, i in zip(mine, its))
            yield *head, number(got) + (" ×" if "x" in limit else ""), "yes" if got <= most else "**no**"


def write_figures(path, data):
    runs = min(len(runs) for row in data["rows"].values() for one in row["subjects"].values() for runs in one.values())
    lines = ["# Figures of the benchmarks", "", f"Written by `scripts/bench.sh`. Runs behind each figure: {runs}"
             f"{'; provisional, since a full measurement has five' * (runs < 5)}. [Explanations](benchmarks.md)", "",
             "| | |", "| --- | --- |", *(f"| {key} | {value} |" for key, value in data["machine"].items()), "",
             "## Targets", "", "| what | at most | measured | holds |", "| --- | --- | --- | --- |",
             *(f"| {' | '.join(verdict)} |" for verdict in verdicts(data))]
    shown = [row for row, *_ in lines_of("row") if row in data["rows"]]
    for family in dict.fromkeys(row.split("/")[0] for row in shown):
        rows = [row for row in shown if row.startswith(family + "/")]
        subjects = sorted({subject for row in rows for subject in data["rows"][row]["subjects"]},
                          key=lambda one: (one != "osal", data["kinds"].get(one) == "bound", one.lower()))
        lines += ["", f"## {family.capitalize()}", "", f"| row | figure | {' | '.join(subjects)} |",
                  f"| --- | --- |{' ---: |' * len(subjects)}"]
        for row, (counter, unit) in itertools.product(rows, COUNTERS.items()):
            cells = [values(data, row, subject, counter) for subject in subjects]
            if any(cells):
                what = unit if "in all" in unit else f"{unit}; {data['rows'][row]['unit']}"
                lines.append(f"| {row.split('/')[1]} | {what} | "
                             f"{' | '.join(number(statistics.median(cell)) if cell else '' for cell in cells)} |")
    path.write_text("\n".join(lines) + "\n")


def text(x, y, content, classes):
    return f'<text x="{x:.0f}" y="{y:.0f}" class="{classes}">{html.escape(content)}</text>'


def save(path, title, height, parts):
    path.write_text(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height:.0f}" width="{WIDTH}" '
                    f'height="{height:.0f}" role="img"><title>{html.escape(title)}</title><style>{STYLE}</style>'
                    f'<rect class="p" width="100%" height="100%"/>' + "\n".join(parts) + "</svg>\n")


def draw_rows(path, data):
    left, middle, step = 212, 298, 36  # a step is a factor of four
    y, parts = 36, [text(8, 20, "Time taken, where osal takes 1: less is better", "b"),
                    text(8, 36, "Logarithmic. Grey: slower than osal. Orange: faster. Pale: plain code, a bound.", "f")]
    for row, title, *_ in lines_of("row"):
        counter = "median_ns" if "lateness" in row else "ns"
        medians = {subject: statistics.median(one[counter]) for subject, one in
                   data["rows"].get(row, {"subjects": {}})["subjects"].items() if one[counter]}
        if not title or "osal" not in medians:
            continue
        y += 32
        parts += [text(8, y, title, "b"), text(WIDTH - 8, y, data["rows"][row]["unit"], "f e"),
                  f'<path d="M{middle} {y + 5}v{16 * len(medians) + 2}"/>']
        for subject in sorted(medians, key=medians.get):
            y += 16
            ratio = medians[subject] / medians["osal"]
            end = min(max(middle + step * math.log(max(ratio, 1e-6), 4), left + 10), 430)
            if subject == "osal":
                parts += [text(left - 6, y + 4, subject, "e o b"),
                          text(middle + 5, y + 4, f"{number(medians[subject])} ns", "o b")]
                continue
            shade = ("s" if ratio >= 1 else "q") + (" h" if data["kinds"].get(subject) == "bound" else "")
            parts += [text(left - 6, y + 4, subject, "e"), text(max(end, middle) + 5, y + 4, f"{number(ratio)} ×", "f"),
                      f'<rect class="{shade}" x="{min(middle, end):.0f}" y="{y - 6}" '
                      f'width="{max(abs(end - middle), 1):.0f}" height="11"/>']
    save(path, "Time per operation, compared with other libraries", y + 16, parts)


def draw_growth(path, data):
    left, right, parts, top = 62, 300, [], 6
    # One style for a subject in all panels.
    styles = list(dict.fromkeys(one for row in lines_of("growth") for one in row[3].split("; ")))
    for row, counter, title, subjects, *_ in lines_of("growth"):
        curves = {}
        for name in data["rows"]:
            match = re.fullmatch(re.escape(row).replace(r"\*", r"(\d+)"), name)
            for subject in subjects.split("; ") if match else ():
                if values(data, name, subject, counter):
                    curves.setdefault(subject, {})[int(match[1])] = max(
                        statistics.median(values(data, name, subject, counter)), 0.1)
        if "osal" not in curves:
            continue
        sizes = sorted({size for curve in curves.values() for size in curve})
        figures = [math.log10(value) for curve in curves.values() for value in curve.values()]
        low, high = math.floor(min(figures)), math.floor(max(figures)) + 1
        across = {size: left + math.log(size / sizes[0]) / math.log(sizes[-1] / sizes[0]) * 238 for size in sizes}
        down = lambda power: top + 158 - (power - low) / (high - low) * 130  # noqa: E731
        parts.append(text(8, top + 16, title, "b"))
        parts += [f'<path d="M{left} {down(power):.0f}H{right}"/>' +
                  text(left - 5, down(power) + 4, f"{10.0 ** power:,.16g}", "f e") for power in range(low, high + 1)]
        parts += [text(x, top + 174, f"{size // 1000:,} k" if size >= 1000 else str(size), "f m")
                  for size, x in across.items()]
        ends, label_y = [], 0
        for subject in curves:
            i = styles.index(subject)
            points = [(across[size], down(math.log10(value))) for size, value in sorted(curves[subject].items())]
            parts.append(f'<path class="l{i}" d="M{" L".join(f"{x:.0f} {y:.0f}" for x, y in points)}"/>')
            ends.append((points[-1][1], i, subject, number(curves[subject][max(curves[subject])])))
        for end_y, i, subject, figure in sorted(ends):
            label_y = max(end_y + 4, label_y + 14)
            parts += [f'<path class="l{i}" d="M{right + 4} {label_y - 4:.0f}h12"/>',
                      text(right + 19, label_y, f"{subject} {figure}", "o b" if i == 0 else "")]
        top += 192
    save(path, "How the time of operations grows, in ns", top + 24, [*parts, text(
        8, top + 12, "Both axes are logarithmic: ns, over messages pending or entries", "f")])


def main():
    if len(sys.argv) < 2 or not (sys.argv[2:] or Path(sys.argv[1], "benchmarks.json").exists()):
        sys.exit("usage: bench_report.py DIRECTORY [RESULTS.json...]; without results DIRECTORY has a benchmarks.json")
    out = Path(sys.argv[1])
    if sys.argv[2:]:  # a line for each row
        (out / "benchmarks.json").write_text(
            re.sub(r' ("[a-z]+/[^"]*": \{"unit")', r"\n\1", json.dumps(read(sys.argv[2:]))) + "\n")
    data = json.loads((out / "benchmarks.json").read_text())
    write_figures(out / "figures.md", data)
    draw_rows(out / "benchmarks.svg", data)
    draw_growth(out / "growth.svg", data)


main()
