#!/usr/bin/env python3
"""Prints the side-by-side table of scripts/bench.sh.

Reads every Google Benchmark JSON file and every "name<TAB>milliseconds" file
of a results folder, keeps the best time of each "<row>@<side>" benchmark and
prints, per row of bench/peers/rows.tsv, our time beside each other side's.
"""
import json
import pathlib
import sys

UNITS = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


def load_results(folder):
    best = {}

    def keep(name, ms):
        if "@" in name and ms > 0:
            best[name] = min(ms, best.get(name, ms))

    for path in sorted(pathlib.Path(folder).iterdir()):
        if path.suffix == ".json":
            try:
                data = json.loads(path.read_text())
            except ValueError:
                print(f"bench: {path.name} is not valid JSON, skipped", file=sys.stderr)
                continue
            for b in data.get("benchmarks", []):
                if b.get("run_type") == "aggregate" or b.get("error_occurred"):
                    continue
                name = b.get("run_name", b["name"]).split("/")[0]
                keep(name, b["real_time"] * UNITS.get(b.get("time_unit", "ns"), 1e-6))
        elif path.suffix == ".tsv":
            for line in path.read_text().splitlines():
                parts = line.split("\t")
                if len(parts) == 2:
                    try:
                        keep(parts[0], float(parts[1]))
                    except ValueError:
                        pass
    return best


def load_rows(path):
    rows = []
    for line in pathlib.Path(path).read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        row_id, work, targets = (line.split("\t") + ["-", "-"])[:3]
        wanted = {}
        if targets != "-":
            for item in targets.split(","):
                side, _, ratio = item.partition(":")
                wanted[side] = None if ratio in ("", "-") else float(ratio)
        rows.append((row_id, work, wanted))
    return rows


def main():
    if len(sys.argv) != 3:
        print("usage: bench_table.py ROWS.tsv RESULTS_DIR", file=sys.stderr)
        return 2
    rows = load_rows(sys.argv[1])
    best = load_results(sys.argv[2])
    row_ids = {r[0] for r in rows}
    lines = []
    failed = 0
    for row_id, work, wanted in rows:
        ours = best.get(f"{row_id}@meshcore")
        sides = [n.split("@", 1)[1] for n in best if n.startswith(row_id + "@")]
        sides = [s for s in sides if s != "meshcore"]
        # Sides named in the targets first, in their order, then any others.
        order = list(wanted) + sorted(s for s in sides if s not in wanted)
        if not order:
            lines.append((work, ours, "-", None, None, ""))
            continue
        for side in order:
            other = best.get(f"{row_id}@{side}")
            label = side
            if other is None and side in row_ids:
                other, label = best.get(f"{side}@meshcore"), f"meshcore {side}"
            elif other is None:
                label = f"{side} (not run)"
            ratio = ours / other if ours and other else None
            target = wanted.get(side)
            verdict = ""
            if target is not None and ratio is not None:
                verdict = "ok" if ratio <= target else "MISSED"
                failed += verdict == "MISSED"
            elif target is not None:
                verdict = "not measured"
            lines.append((work, ours, label, other, ratio, verdict if target is None else f"<= {target:g} {verdict}"))
    fmt = lambda v: "-" if v is None else f"{v:.1f}"
    header = ("Work", "Meshcore ms", "Against", "Their ms", "Ratio", "Target")
    table = [header] + [(w, fmt(o), s, fmt(p), "-" if r is None else f"{r:.2f}", t) for w, o, s, p, r, t in lines]
    widths = [max(len(str(r[i])) for r in table) for i in range(len(header))]
    for i, r in enumerate(table):
        print(" | ".join(str(c).ljust(widths[j]) for j, c in enumerate(r)).rstrip())
        if i == 0:
            print("-|-".join("-" * w for w in widths))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
