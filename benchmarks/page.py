"""How figures are shown: as a table on the console, and in docs/performance.md."""
import difflib
import os
import re
import sys

TEMPLATE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "performance.md.in")
HEAD = ("what", "ours", "against", "", "ratio", "goal")


def figure(value):
    """Four digits, more only before the point."""
    if isinstance(value, str):
        return value
    if abs(value) >= 1000:
        return f"{value:,.0f}"
    return f"{value:.4g}" if value == 0 or abs(value) >= 0.001 else f"{value:.2g}"


def ratio(value):
    return f"{value:.3f}" if value >= 0.01 else figure(value)


def goal_text(row):
    """The goal of a row, and whether it is met; empty without one."""
    if "goal" not in row:
        return ""
    goal = row["goal"]
    met = "met" if goal["met"] else "not met"
    own = "" if goal["what"] == "ratio" else f"{goal['what']} = {figure(goal['value'])}; "
    return f"{own}≤ {figure(goal['most'])}: {met}"


def cells(row):
    if "skipped" in row:
        return (row["name"], "skipped", row["skipped"], "", "", "")
    return (row["name"], f"{figure(row['ours'])} {row['unit']}",
            f"{figure(row['against'])} {row['unit']}", row["against_is"], ratio(row["ratio"]),
            goal_text(row))


def table(rows):
    """All rows, in columns."""
    lines = [HEAD, *map(cells, rows)]
    widths = [max(len(line[at]) for line in lines) for at in range(len(HEAD))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in lines)


def markdown(head, lines):
    return "\n".join(["| " + " | ".join(head) + " |", "|" + "---|" * len(head),
                      *("| " + " | ".join(line) + " |" for line in lines)])


def group_table(rows):
    return markdown(HEAD, map(cells, rows))


def part_table(title, parts):
    """Parts of rows, a row of the table each, with a column for each name in any of them."""
    names = list(dict.fromkeys(name for _, figures in parts for name in figures))
    return markdown((title, *(name.replace("_", " ") for name in names)),
                    [(what, *(figure(figures[name]) if name in figures else "" for name in names))
                     for what, figures in parts])


def render(figures):
    """The page: the template with its marks replaced.

    @MACHINE@           the machine in words
    @TABLE group@       the rows of a group
    @SPLIT group@       of each row of a group its first parts, in one table
    @PARTS name@        all parts of a row
    @name|field@        a figure: ours, against, ratio; or title/name of a part
    """
    by_name = {row["name"]: row for row in figures["rows"]}

    def of_group(group):
        return [row for row in figures["rows"] if row["group"] == group]

    def split(group):
        rows = [row for row in of_group(group) if row.get("parts")]
        title = next(iter(rows[0]["parts"]))
        return part_table(title, [(row["name"], row["parts"][title]) for row in rows])

    def parts(name):
        return "\n\n".join(part_table(title, [(name, one)])
                           for title, one in by_name[name]["parts"].items())

    def one(name, field):
        row = by_name[name]
        if "/" in field:
            title, part = field.split("/")
            return figure(row["parts"][title][part])
        return figure(row[field])

    with open(TEMPLATE, encoding="utf-8") as file:
        text = file.read()
    text = text.replace("@MACHINE@", figures["machine"])
    text = re.sub(r"@TABLE (.+?)@", lambda match: group_table(of_group(match[1])), text)
    text = re.sub(r"@SPLIT (.+?)@", lambda match: split(match[1]), text)
    text = re.sub(r"@PARTS (.+?)@", lambda match: parts(match[1]), text)
    return re.sub(r"@([^@|]+)\|([^@]+)@", lambda match: one(match[1], match[2]), text)


def check(path, text):
    """Compares a page; prints the differences. Returns the exit code."""
    with open(path, encoding="utf-8") as file:
        lines = list(difflib.unified_diff(file.read().splitlines(), text.splitlines(), path,
                                          "rendered", lineterm=""))
    print("\n".join(lines), end="\n" if lines else "", file=sys.stderr)
    return 1 if lines else 0
