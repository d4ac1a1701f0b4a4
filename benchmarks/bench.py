#!/usr/bin/env python3
"""The measuring part of scripts/bench, which says what the words mean."""
import argparse
import json
import os
import platform
import sys

import page
import rows
from runs import Bench, Failed

HERE = os.path.dirname(os.path.abspath(__file__))
FIGURES = os.path.join(HERE, "figures.json")
FIGURES_SHOWN = "benchmarks/figures.json"
PAGE = os.path.join(os.path.dirname(HERE), "docs", "performance.md")


def measure(bench, short, only):
    """Runs the benchmarks; returns their rows, each with its group and its function."""
    made = []
    for group, is_short, function in rows.BENCHMARKS:
        if (is_short or not short) and only in f"{group} {function.__name__}":
            print(f"{function.__name__} ...", file=sys.stderr)
            made += [{"group": group, "benchmark": function.__name__, **row}
                     for row in function(bench)]
    return made


def merged(made, known):
    """All rows: of the benchmarks that have run now, and of those that have run before."""
    ran = {row["benchmark"] for row in made}
    both = made + [row for row in known if row["benchmark"] not in ran]
    return [row for _, _, function in rows.BENCHMARKS for row in both
            if row["benchmark"] == function.__name__]


def machine(compiler):
    """The machine in words, and how much it has to do besides."""
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as file:
        models = [line.split(":")[1].strip() for line in file if line.startswith("model name")]
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / 2**30
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    processors = f"{len(models)} processors ({models[0]})" if models else "processors"
    return (f"{processors}, {memory:.0f} GiB of memory, {system}, "
            f"Linux {'.'.join(platform.release().split('.')[:2])}, {compiler}; "
            f"{os.getloadavg()[0]:.1f} other processes were running")


def grown(made, known):
    """Texts about rows that must not grow and have grown, or are not as they were measured."""
    before = {row["name"]: row for row in known if "guard" in row}
    texts = []
    for row in made:
        old = before.pop(row["name"], None)
        if "guard" not in row:
            continue
        if old is None:
            texts.append(f"{row['name']}: not in {FIGURES_SHOWN}")
        elif row["ours"] > old["ours"] * (1 + row["guard"]) + 1e-9:
            texts.append(f"{row['name']}: {page.figure(row['ours'])} {row['unit']}, "
                         f"was {page.figure(old['ours'])}")
    return texts


def missed(made):
    """Texts about goals that are not met."""
    return [f"{row['name']}: {row['goal']['what']} is {page.figure(row['goal']['value'])}, "
            f"more than {page.figure(row['goal']['most'])}"
            for row in made if not row.get("goal", {"met": True})["met"]]


def known_figures():
    with open(FIGURES, encoding="utf-8") as file:
        return json.load(file)


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def measure_and_judge(words):
    bench = Bench(words.build, words.instrument or words.build)
    figures = {"machine": machine(bench.compiler)}
    made = figures["rows"] = measure(bench, words.short, words.only)
    print(json.dumps(figures, indent=1) if words.json else page.table(made), flush=True)
    if words.write:
        figures["rows"] = merged(made, known_figures()["rows"])
        write(FIGURES, json.dumps(figures, indent=1) + "\n")
        write(PAGE, page.render(figures))
        return 0
    findings = grown(made, known_figures()["rows"])
    if words.short:
        findings += missed(made)
    for finding in findings:
        print(f"bench: {finding}", file=sys.stderr)
    return 1 if findings else 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build")
    parser.add_argument("--instrument")
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--render", action="store_true")
    parser.add_argument("--check", action="store_true")
    words = parser.parse_args()
    if words.render:
        write(PAGE, page.render(known_figures()))
        return 0
    if words.check:
        return page.check(PAGE, page.render(known_figures()))
    return measure_and_judge(words)


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failed as failure:
        print(f"bench: {failure}", file=sys.stderr)
        sys.exit(1)
