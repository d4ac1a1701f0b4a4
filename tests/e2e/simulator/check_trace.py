#!/usr/bin/env python3
"""check_trace.py SCHEMA TRACE LOG STATE: fails unless TRACE is the trace of an update.

It must be allowed by the schema, and tell what the log and the state of the same run tell, neither
more nor less. The run must be one of a program with one thread, on one module with a chip by Micron
and `--timing typical`, in which no event is lost or fails. What does not hold is printed, a line
each.
"""

import json
import re
import sys
from collections import defaultdict
from decimal import Decimal

import jsonschema

MICROSECONDS = Decimal(1_000_000)  # of a second
CHIP_TIMES = {  # microseconds
    "page program": 120,
    "erase 4 KiB": 50_000,
    "erase 64 KiB": 150_000,
    "erase chip": 38_000_000,
    "register write": 1_300,
}
WORK = {
    "PP": "page program",
    "SSE": "erase 4 KiB",
    "SE": "erase 64 KiB",
    "CE": "erase chip",
    "WRSR": "register write",
}
FOLDERS = {  # of the control file that a line follows
    "qspi_prg": "qspi_prg",
    "zynq_hw_reset_n": "zynq_hw_reset_n",
    "selector on SPIFIFO": "module_selector",
}
SLEEP_UNITS = {"s": MICROSECONDS, "ms": Decimal(1000), "us": Decimal(1), "ns": Decimal("0.001")}
BUSY = 0x01  # the bit of the status
NANOSECOND = Decimal("0.001")

problems = []


def expect(holds, text):
    """Notes the text unless it holds."""
    if not holds:
        problems.append(text)


def expect_same(what, trace, log):
    """Compares what the trace and the log tell, and notes the first difference."""
    for number, (left, right) in enumerate(zip(trace, log)):
        if left != right:
            problems.append(f"{what} {number}: {left!r} in the trace, {right!r} in the log")
            return
    expect(len(trace) == len(log), f"{what}: {len(trace)} in the trace, {len(log)} in the log")


def unquote(text):
    """The bytes that a text of the log in double quotes stands for, one character each."""
    letters = {"n": "\n", "t": "\t", "r": "\r", '"': '"', "\\": "\\"}
    return re.sub(
        r'\\(x[0-9a-f]{2}|[ntr"\\])',
        lambda match: letters.get(match[1]) or chr(int(match[1][1:], 16)),
        text[1:-1],
    )


def end(event):
    """When the event is over."""
    return event["ts"] + event.get("dur", 0)


class Trace:
    """The events of a trace by their tracks."""

    def __init__(self, events):
        self.events = events
        self.processes = {}
        self.threads = {}
        self.tracks = defaultdict(list)  # by the names of process and thread
        self.lines = defaultdict(list)  # by the names of process and counter
        for event in events:
            self.sort(event)

    def sort(self, event):
        """Puts the event on its track. Names must have been given before they are needed."""
        pid = event["pid"]
        if event["ph"] == "M":
            if "name" in event["args"]:
                self.name(event)
            return
        process = self.processes.get(pid)
        expect(process is not None, f"no name for the process of {event}")
        if event["ph"] == "C":
            self.lines[(process, event["name"])].append(event)
            return
        thread = self.threads.get((pid, event["tid"]))
        expect(thread is not None, f"no name for the track of {event}")
        self.tracks[(process, thread)].append(event)

    def name(self, event):
        """Notes the name of a process or thread."""
        is_thread = "tid" in event
        names = self.threads if is_thread else self.processes
        key = (event["pid"], event["tid"]) if is_thread else event["pid"]
        expect(key not in names, f"two names for {key}")
        names[key] = event["args"]["name"]

    def of(self, category):
        """The events of a category, in their order in the file."""
        return [event for event in self.events if event.get("cat") == category]


class Log:
    """The lines of a log by what they tell."""

    def __init__(self, lines):
        self.spi, self.i2c, self.files, self.calls, self.sleeps = [], [], [], [], []
        self.console, self.others = [], []
        for line in lines[:-1]:  # the last one is the end of the command
            self.sort(line)

    def sort(self, line):
        """Puts the line where it belongs."""
        kind, _, text = line.partition(" ")
        if kind == "spi":
            command = text.partition(" ")[2]
            if not re.fullmatch(r"speed \d+ bits \d+", command):
                self.spi.append(command.partition(" = ")[::2])
        elif kind == "i2c":
            self.i2c.append(text.partition(" ")[2])
        elif kind in ("read", "write") and text.startswith("/sys/"):
            path, _, value = text.partition(" ")
            self.files.append((f"{kind} {path}", unquote(value)))
        elif kind == "dbus":
            self.calls.append(text.partition(" = ")[0])
        elif kind == "sleep":
            number, unit = text.split()
            self.sleeps.append(int(number) * SLEEP_UNITS[unit])
        elif kind in ("stdout", "stderr"):
            self.console.append((kind, unquote(text)))
        else:
            self.others.append(line)


def check_order(trace):
    """On each track nothing begins before what came before it has ended."""
    for name, events in [*trace.tracks.items(), *trace.lines.items()]:
        last = Decimal(0)
        for event in events:
            expect(event["ts"] >= last, f"{name}: {event} begins before {last}")
            last = end(event)


def check_against_log(trace, log):
    """Every event of the log is in the trace, and nothing else."""
    commands = [event for event in trace.of("spi") if event["name"] != "message cost"]
    names = [f"{event['name']} {event['args'].get('operands', '')}".strip() for event in commands]
    expect_same("SPI command", names, [command for command, _ in log.spi])
    for event, (command, answer) in zip(commands, log.spi):
        expect(event["args"]["miso"].endswith(answer), f"{event} without {command} = {answer}")
    # Of several messages of a transfer only the first one has its address in the log.
    transfers = [" ".join(event["args"]["messages"]) for event in trace.of("i2c")]
    transfers = [re.sub(r" 0x[0-9a-f]+", "", transfer) for transfer in transfers]
    expect_same("I2C transfer", transfers, log.i2c)
    accesses = [(event["name"], event["args"]["bytes"]) for event in trace.of("control file")]
    expect_same("control file", accesses, log.files)
    expect_same("D-Bus call", [event["name"] for event in trace.of("D-Bus")], log.calls)
    expect_same("sleep", [event["dur"] for event in trace.of("sleep")], log.sleeps)
    expect_same("other event", [event["name"] for event in trace.of("other")], log.others)
    console = trace.of("console")
    texts = [(event["args"]["stream"], event["args"]["text"]) for event in console[:-1]]
    expect_same("text", texts, log.console)
    for event in console[:-1]:
        lines = event["args"]["text"].strip("\r\n").splitlines() or ["(empty line)"]
        expect(event["name"] == lines[0], f"the name of {event}")
    for event in trace.events:
        expect("outcome" not in event.get("args", {}), f"{event} has not failed")


def check_chip(trace, module):
    """The chip works after each command that makes it work, as long as its data sheet says."""
    commands = trace.tracks[(module, f"spidev{module.partition('@')[2]}.0")]
    starts = [event for event in commands if event["name"] in WORK]
    works = trace.tracks[(module, "flash")]
    expect(len(works) > 0, "the chip never works")
    expect_same("work", [work["name"] for work in works], [WORK[event["name"]] for event in starts])
    for work, start in zip(works, starts):
        expect(work["ts"] == end(start), f"{work} does not begin at the end of {start}")
        expect(
            work["dur"] == CHIP_TIMES[work["name"]],
            f"{work} is not as long as the data sheet says",
        )
        address = start["args"].get("operands", "").split(" ")[0]
        if start["name"] != "WRSR":
            expect(work["args"]["address"] == address, f"{work} is not at {address}")
    check_status(works, [event for event in commands if event["name"] == "RDSR"])


def check_status(works, reads):
    """The chip says that it is busy while it works, and not otherwise."""
    works = iter(works)
    work = next(works, None)
    for read in reads:
        sample = read["ts"] + read["dur"] / 2  # as the status byte begins
        while work is not None and end(work) < sample - NANOSECOND:
            work = next(works, None)
        works_now = work is not None and work["ts"] < sample < end(work)
        if work is not None and abs(sample - end(work)) <= NANOSECOND:
            continue  # the middle of two bytes is rounded
        says = bool(int(read["args"]["miso"].split(" ")[1], 16) & BUSY)
        expect(says == works_now, f"{read} while {work}")


def check_lines(trace, module, words):
    """The lines end as the state says, and follow the control files."""
    levels = {name: events for (process, name), events in trace.lines.items() if process == module}
    told = {"DONE": words["done"] == "1"}
    if "qspi_prg" in words:
        told["qspi_prg"] = words["qspi_prg"] == "1"
        told["zynq_hw_reset_n"] = True
    else:
        told["PROGRAM_B"] = True
    if "pcie" in words:
        told["endpoint present"] = words["pcie"] in ("present", "enabled")
        told["endpoint enabled"] = words["pcie"] == "enabled"
        told["selector on SPIFIFO"] = words["selector"] == "SPIFIFO"
    expect(set(levels) == set(told), f"the lines {sorted(levels)} are not {sorted(told)}")
    last = trace.events[-1]["ts"]
    for name, level in told.items():
        events = levels.get(name, [])
        ends = [event["ts"] for event in events[:1] + events[-1:]]
        expect(ends == [0, last], f"{name} is not shown whole")
        steps = [event["args"]["level"] for event in events]
        expect(steps[-1:] == [int(level)], f"{name} does not end as the state says")
        changes = zip(steps[:-1], steps[1:-1])
        expect(all(step != after for step, after in changes), f"{name} changes to what it was")
    for name, folder in FOLDERS.items():
        writes = [
            (event["ts"], int(event["args"]["bytes"] in ("1", "SPIFIFO")))
            for event in trace.of("control file")
            if event["name"].startswith("write ") and f"/{folder}/" in event["name"]
        ]
        shown = [(event["ts"], event["args"]["level"]) for event in levels.get(name, [])[1:-1]]
        expect_same(name, shown, writes)


def check_time(trace, time):
    """The run ends when the state says, and all its time is accounted for."""
    last = trace.events[-1]
    is_end = last["name"] == "end of the run" and last["ts"] == time
    expect(is_end, f"{last} is not the end, {time}")
    timed = [event for event in trace.events if event["ph"] != "M"]
    expect(max(map(end, timed)) == time, "something is after the end")
    spent = sum(event["dur"] for event in timed if event["cat"] in ("spi", "i2c", "sleep", "look"))
    expect(spent == time, f"what takes time adds up to {spent}, not {time}")


def main():
    """Checks the files that the command line names."""
    schema_path, trace_path, log_path, state_path = sys.argv[1:]
    with open(schema_path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    with open(trace_path, encoding="utf-8") as file:
        document = json.load(file, parse_float=Decimal)
    for error in jsonschema.Draft202012Validator(schema).iter_errors(document):
        print(f"{error.json_path}: {error.message}")
        return 1
    expect(document["displayTimeUnit"] == "ns", "times are not shown in nanoseconds")
    with open(log_path, encoding="utf-8") as file:
        log = Log(file.read().splitlines())
    with open(state_path, encoding="utf-8") as file:
        module_line, time_line = file.read().splitlines()
    slot, *words = module_line.split()
    time = Decimal(re.fullmatch(r"instrument time=(\d+\.\d{9})", time_line)[1]) * MICROSECONDS

    trace = Trace(document["traceEvents"])
    names = list(trace.processes.values())
    expect([names[0], *names[2:]] == ["command", "chassis"], f"the processes {names}")
    expect(names[1].partition("@")[2] == slot, f"{names[1]} is not in slot {slot}")
    check_order(trace)
    check_against_log(trace, log)
    check_chip(trace, names[1])
    check_lines(trace, names[1], dict(word.split("=") for word in words))
    check_time(trace, time)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


sys.exit(main())
