"""The benchmarks. Each function makes rows of the table; the order here is that of the table."""
import os
import re
import shutil
import statistics

from runs import (FLASHROM, MIB, OLD, PAGE_BYTES, SLOTS, Failed, Measured, call, instructions,
                  median, strace)

BENCHMARKS = []
LONG_RUNS = 3    # of each side; seconds each
SHORT_RUNS = 40  # milliseconds each


def benchmark(group, short=False):
    """short: what it measures is the same on every machine."""
    def add(function):
        BENCHMARKS.append((group, short, function))
        return function
    return add


def row(name, ours, unit, against, against_is, goal=None, guard=None, **parts):
    """One line of the table.

    goal   (what, value, most): met when the value is at most so much
    guard  `ours` must not grow by more than this share; None: it depends on the machine
    parts  {title: {name: figure}}, what the figures are made of
    """
    made = {"name": name, "ours": ours, "unit": unit, "against": against, "against_is": against_is,
            "ratio": ours / against, "parts": {title.replace("_", " "): figures
                                               for title, figures in parts.items()}}
    if goal is not None:
        what, value, most = goal
        made["goal"] = {"what": what, "value": value, "most": most, "met": value <= most}
    if guard is not None:
        made["guard"] = guard
    return made


def limited(name, ours, unit, limit, guard=None, **parts):
    """A row whose limit is its goal."""
    return row(name, ours, unit, limit, "limit", ("ratio", ours / limit, 1), guard, **parts)


# --- Instrument time ------------------------------------------------------------------------------

def time_row(name, summary):
    parts = summary.split()
    rest = parts["the rest"] / parts["T"]
    return row(name, summary.total_ns / 1e9, "s", summary.limit_ns / 1e9, "T",
               ("the rest / T", rest, 0.01), 0, seconds=parts)


@benchmark("time", short=True)
def time_of_each_type(bench):
    return [time_row(f"{module}, 1 MiB", bench.update(module, MIB))
            for module in ("wend", "dax", "pyx1", "pyx2")]


@benchmark("time")
def time_by_size(bench):
    return [time_row(f"wend, {size} MiB", bench.update("wend", size * MIB)) for size in (4, 16)]


@benchmark("time")
def time_by_clock(bench):
    return [time_row(f"wend, 4 MiB at {mhz} MHz", bench.update("wend", 4 * MIB, mhz=mhz))
            for mhz in (15, 25)]


@benchmark("time")
def time_of_a_slow_chip(bench):
    return [time_row("wend, 1 MiB, longest times", bench.update("wend", MIB, timing="longest"))]


# --- One page -------------------------------------------------------------------------------------

def messages_of_a_page(bench, message_cost):
    """{command: messages} for each page, by two images that are erased by one command."""
    small, large = (bench.update("wend", size, message_cost=message_cost)
                    for size in (MIB // 32, MIB // 16))
    pages = large.pages - small.pages
    return {name: (large.messages(name) - small.messages(name)) / pages
            for name in ("WREN", "PP", "RDSR")}


@benchmark("page", short=True)
def messages_per_page(bench):
    ready, polled = (messages_of_a_page(bench, cost) for cost in (150, 20))
    return [limited("messages per page, ready at the first poll", sum(ready.values()), "messages", 3,
                    0, messages=ready),
            row("messages per page, 20 us a message", sum(polled.values()), "messages", 3,
                "those without polls", None, 0, messages=polled)]


@benchmark("page", short=True)
def system_calls_per_page(bench):
    pages = 128
    counts = [strace(bench, [bench.helper("flash-pages"), bench.noise(PAGE_BYTES * pages * times),
                             "1"]) for times in (1, 2)]
    each = {name: (count - counts[0].get(name, 0)) / pages for name, count in counts[1].items()
            if count != counts[0].get(name, 0)}
    chip = each.get("ioctl", 0)
    others = sum(each.values()) - chip
    return [limited("system calls per page, for the chip", chip, "calls", 3, 0),
            row("system calls per page, all", chip + others, "calls", 3, "limit", None, 0.05,
                calls=each)]


def instructions_by_place(bench, pages, polls):
    """For each page: of the driver itself, and of the libraries that it calls."""
    first, second = (instructions(bench, bench.noise(PAGE_BYTES * pages * times), polls)
                     for times in (1, 2))
    own = libraries = 0
    for (file, function), cost in second.items():
        if re.match(r"(__wrap_|seam::|ioctl$)", function):
            continue  # in place of the kernel
        more = (cost - first.get((file, function), 0)) / pages
        if os.path.basename(file) == "flash-pages":
            own += more
        else:
            libraries += more
    return own, libraries


@benchmark("page", short=True)
def instructions_per_page(bench):
    if not bench.compiler.startswith("g++ 12."):
        return [skipped("user instructions per page", f"counted for g++ 12, not {bench.compiler}")]
    (own, libraries), (own_2, libraries_2) = (instructions_by_place(bench, 128, polls)
                                              for polls in (1, 2))
    total, more = own + libraries, own_2 + libraries_2 - own - libraries
    return [limited("user instructions per page", total, "instructions", 1500,
                    instructions={"the driver": own, "C and C++ library, zlib": libraries}),
            # Those of the libraries depend on the processor.
            row("user instructions per page, the driver itself", own, "instructions", total,
                "all of a page", None, 0.02),
            row("user instructions per further poll", more, "instructions", total, "all of a page",
                instructions={"the driver": own_2 - own,
                              "C and C++ library, zlib": libraries_2 - libraries}),
            row("user instructions per further poll, the driver itself", own_2 - own, "instructions",
                more, "all of a poll", None, 0.02)]


def skipped(name, why):
    return {"name": name, "skipped": why}


# --- Deciding -------------------------------------------------------------------------------------

@benchmark("decision")
def search_for_a_stamp(bench):
    lines = call([bench.helper("stamp-search"), bench.noise(16 * MIB), str(SHORT_RUNS)]).stdout
    times = [tuple(int(word) for word in line.split()) for line in lines.splitlines()]
    search, read = (min(side) / 1e6 for side in zip(*times))  # what disturbs it only adds to it
    return [row("search of 16 MiB without a stamp", search, "ms", read, "read(2) in 64 KiB",
                ("ratio", search / read, 3))]


@benchmark("decision")
def up_to_date_in_instrument_time(bench):
    image = bench.image("wend", 4 * MIB)
    bench.flash(image)
    ours = bench.timed([bench.tarnwick, "wend", "-sf", "1", image], expected=(11,))
    reading = bench.timed(flashrom("-r", "read.bin"))
    return [row("wend is up to date, instrument time", ours.total_ns / 1e9, "s",
                reading.total_ns / 1e9, "flashrom reads the chip",
                seconds=ours.cause_seconds(), seconds_of_flashrom=reading.cause_seconds())]


@benchmark("decision")
def up_to_date_in_wall_time(bench):
    """Both run on one instrument, by turns, each in a process of its own."""
    image = bench.image("wend", 4 * MIB)
    bench.flash(image)
    measure = bench.helper("measure")
    loop = (f'i=0; while [ $i -lt {SHORT_RUNS} ]; do '
            '"$0" decide.$i "$1" wend -sf 1 "$2" >/dev/null; [ $? -eq 11 ] || exit 1; '
            '"$0" help.$i "$1" >/dev/null || exit 1; i=$((i+1)); done')
    bench.on_instrument(["sh", "-c", loop, measure, bench.tarnwick, image])
    decide, show = ([Measured(bench.path(f"{name}.{i}")) for i in range(SHORT_RUNS)]
                    for name in ("decide", "help"))
    return [row("wend is up to date, wall time", median(decide, "wall_ms"), "ms",
                median(show, "wall_ms"), "the help of the same program")]


# --- The peer -------------------------------------------------------------------------------------

def flashrom(*words):
    """A command that gives the flash of a wend to the controller and runs flashrom at 19 MHz."""
    program = (FLASHROM, "-p", "linux_spi:dev=/dev/spidev1.0,spispeed=19000", "-c", "N25Q128..3E",
               *words)
    return ["sh", "-c", 'echo 1 >/sys/platform_m1/qspi_prg/value && exec "$@"', "sh", *program]


def flashrom_writes(bench, *words):
    """flashrom writes the region that the image takes; the rest of its file is what the flash holds.

    With --noverify-all it reads and verifies the region alone.
    """
    shutil.copy(bench.flash(bench.image("wend", 4 * MIB)), bench.path("whole.bin"))
    with open(bench.path("layout"), "w", encoding="ascii") as file:
        file.write("00000000:003fffff image\n")
    return flashrom("-l", "layout", "-i", "image", "-w", "whole.bin", "--noverify-all", *words)


class Side:
    """One of two sides that write the same image of 4 MiB over the same flash."""

    def __init__(self, bench, name, command):
        self.bench, self.name, self.command = bench, name, command
        self.runs, self.peaks, self.summary = [], [], None

    def run(self):
        """Once. All runs of a side take the same instrument time; else it is Failed."""
        bench = self.bench
        bench.flash(bench.image("wend", 4 * MIB, OLD))
        shutil.rmtree(bench.path("state"), ignore_errors=True)
        summary = bench.timed([bench.helper("measure"), "inside", *self.command], measure="outside")
        bench.check_flash(bench.image("wend", 4 * MIB))
        if self.summary is not None and summary.fields != self.summary.fields:
            raise Failed(f"{self.name}: two runs have taken different times")
        self.summary = summary
        self.runs.append(Measured(bench.path("outside")))
        self.peaks.append(Measured(bench.path("inside")).peak_bytes)

    @property
    def seconds(self):
        return self.summary.total_ns / 1e9


def take_turns(ours, theirs):
    for _ in range(LONG_RUNS):
        ours.run()
        theirs.run()


def compare(what, ours, theirs):
    """Rows of two sides that have run."""
    causes = {f"seconds of {side.name}": side.summary.cause_seconds() for side in (ours, theirs)}
    steps = {f"seconds of {ours.name} by step": ours.summary.step_seconds()}
    messages = {f"messages of {side.name}": side.summary.by_command() for side in (ours, theirs)}
    return [row(f"{what}, instrument time", ours.seconds, "s", theirs.seconds, theirs.name,
                **causes, **steps),
            row(f"{what}, messages", ours.summary.messages(), "messages", theirs.summary.messages(),
                theirs.name, **messages),
            row(f"{what}, wall time", median(ours.runs, "wall_ms") / 1e3, "s",
                median(theirs.runs, "wall_ms") / 1e3, theirs.name),
            row(f"{what}, peak memory", statistics.median(ours.peaks) / MIB, "MiB",
                statistics.median(theirs.peaks) / MIB, theirs.name)]


def phases_of_flashrom(bench, whole):
    """{step: (seconds, messages)}. Over the image itself flashrom only reads; over a blank region it
    does not erase."""
    command = flashrom_writes(bench, "--noverify")
    bench.flash(bench.image("wend", 4 * MIB))
    reading = bench.timed(command)
    bench.flash()
    unerased = bench.timed(command)
    bench.check_flash(bench.image("wend", 4 * MIB))

    def between(first, last):
        return (last.total_ns - first.total_ns) / 1e9, last.messages() - first.messages()
    return {"reading": (reading.total_ns / 1e9, reading.messages()),
            "programming": between(reading, unerased), "erasing": between(unerased, whole)}


@benchmark("peer")
def write_against_flashrom(bench):
    """tarnwick reads back the head alone, so flashrom does not verify."""
    image = bench.image("wend", 4 * MIB)
    ours = Side(bench, "tarnwick", [bench.tarnwick, "wend", "-sf", "1", image])
    theirs = Side(bench, "flashrom --noverify", flashrom_writes(bench, "--noverify"))
    take_turns(ours, theirs)
    whole, messages, *others = compare("4 MiB written", ours, theirs)
    phases = phases_of_flashrom(bench, theirs.summary)
    whole["parts"][f"seconds of {theirs.name} by step"] = {
        step: seconds for step, (seconds, _) in phases.items()}
    in_pages = ours.summary.pages * sum(messages_of_a_page(bench, 20).values())
    messages["parts"][f"messages of {ours.name} by step"] = {
        "programming": in_pages, "erasing and the rest": ours.summary.messages() - in_pages}
    messages["parts"][f"messages of {theirs.name} by step"] = {
        step: count for step, (_, count) in phases.items()}
    steps = ours.summary.step_seconds()
    programming, erasing = (
        row(f"4 MiB written, {step}", steps[step], "s", phases[step][0], theirs.name, goal)
        for step, goal in (
            ("programming", ("ratio", steps["programming"] / phases["programming"][0], 1)),
            ("erasing", None)))
    return [whole, erasing, programming, messages, *others]


@benchmark("peer")
def proven_write_against_flashrom(bench):
    image = bench.image("wend", 4 * MIB)
    ours = Side(bench, "tarnwickctl update",
                [bench.tarnwickctl, "update", "wend", "1", image, "--state", bench.path("state"),
                 "--program", bench.tarnwick])
    theirs = Side(bench, "flashrom, verified", flashrom_writes(bench))
    take_turns(ours, theirs)
    return compare("4 MiB written and verified", ours, theirs)


# --- The process ----------------------------------------------------------------------------------

@benchmark("process")
def peak_memory(bench):
    image = bench.image("wend", 4 * MIB)
    bench.flash(bench.image("wend", 4 * MIB, OLD))
    bench.on_instrument([bench.helper("measure"), "inside", bench.tarnwick, "wend", "-sf", "1", image],
                        options=("--timing", "typical"))
    peak = Measured(bench.path("inside")).peak_bytes / MIB
    return [limited("peak memory of tarnwick, 4 MiB written", peak, "MiB", 8)]


@benchmark("process")
def size_of_the_binary(bench):
    stripped = bench.path("stripped")
    call(["strip", "-o", stripped, bench.tarnwick])
    return [limited("stripped binary of tarnwick", os.path.getsize(stripped) / 1024, "KiB", 250)]


@benchmark("process")
def first_line(bench):
    """The help, outside the virtual instrument: nothing is preloaded."""
    ours, theirs = [], []
    for _ in range(SHORT_RUNS):
        for runs, words in ((ours, [bench.tarnwick]), (theirs, ["/bin/true"])):
            call([bench.helper("measure"), bench.path("start"), *words])
            runs.append(Measured(bench.path("start")))
    return [row("time to the first line", median(ours, "first_ms"), "ms", median(theirs, "wall_ms"),
                "/bin/true")]


# --- The virtual instrument -----------------------------------------------------------------------

MESSAGES_AIM = 100_000
START_AIM_MS = 20
MEMORY_AIM_MB = 20


def simulator_update(bench, options, size=4 * MIB):
    """One update: what it took."""
    image = bench.image("wend", size)
    bench.flash(bench.image("wend", size, OLD))
    bench.on_instrument([bench.tarnwick, "wend", "-sf", "1", image], options=options,
                        measure="outside")
    bench.check_flash(image)
    return Measured(bench.path("outside"))


def count_messages(bench, size):
    """How many SPI messages an update of a wend has with --timing polls."""
    bench.flash(bench.image("wend", size, OLD))
    bench.on_instrument([bench.tarnwick, "wend", "-sf", "1", bench.image("wend", size)],
                        options=("--log", bench.path("events")))
    with open(bench.path("events"), encoding="utf-8") as file:
        return sum(line.startswith("spi ") and " speed " not in line for line in file)


@benchmark("simulator")
def simulator_system_calls(bench):
    """For each message, of the program and of orvane-sim: the difference of two updates."""
    counts, messages = [], []
    for size in (MIB // 4, MIB // 2):
        messages.append(count_messages(bench, size))
        bench.flash(bench.image("wend", size, OLD))
        counts.append(strace(bench, [bench.sim, "--fast", "--module",
                                     f"wend@1,flash={bench.path('flash.bin')}", "--",
                                     bench.tarnwick, "wend", "-sf", "1", bench.image("wend", size)]))
    more = messages[1] - messages[0]
    each = {name: (count - counts[0].get(name, 0)) / more for name, count in counts[1].items()}
    return [row("system calls per message", sum(each.values()), "calls", 4,
                "sending and receiving at both ends",
                calls={name: count for name, count in each.items() if count > 0.1})]


def round_trips(bench, count, size):
    """A second, of two processes that do nothing else."""
    return count / int(call([bench.helper("round-trips"), str(count), str(size)]).stdout) * 1e9


@benchmark("simulator")
def simulator_messages(bench):
    messages = count_messages(bench, 4 * MIB)
    quiet, logged, bare = [], [], []
    for _ in range(LONG_RUNS):
        quiet.append(simulator_update(bench, ()))
        logged.append(simulator_update(bench, ("--log", bench.path("events"))))
        bare.append(round_trips(bench, 100_000, 64))
    rate, log_rate = (messages / median(runs, "wall_ms") * 1e3 for runs in (quiet, logged))
    bare_rate = statistics.median(bare)
    share = {"kernel": median(quiet, "kernel_ms") / median(quiet, "cpu_ms"),
             "user": median(quiet, "user_ms") / median(quiet, "cpu_ms")}
    return [row("messages, no log", rate, "1/s", MESSAGES_AIM, "aim",
                ("aim / ours", MESSAGES_AIM / rate, 1), share_of_processor_time=share),
            row("messages, no log, and bare round trips", rate, "1/s", bare_rate, "bare round trips"),
            row("messages, with --log", log_rate, "1/s", rate, "no log")]


@benchmark("simulator")
def simulator_trace(bench):
    if "--trace" not in bench.sim_options:
        return []
    plain, traced = [], []
    timing = ("--timing", "typical")
    for _ in range(LONG_RUNS):
        plain.append(simulator_update(bench, timing, MIB))
        traced.append(simulator_update(bench, (*timing, "--trace", bench.path("trace.json")), MIB))
    return [row("an update with 1 MiB and --timing typical, with --trace", median(traced, "wall_ms") / 1e3, "s",
                median(plain, "wall_ms") / 1e3, "no trace")]


FILE_CALLS = ("newfstatat", "openat", "close", "unlink", "rmdir", "mkdir", "getdents64", "symlink",
              "readlink", "access", "rename", "write", "read", "fstat", "chmod", "lseek", "statx")


def calls_of_a_start(bench):
    counts = strace(bench, [bench.sim, "--fast", "--", "/bin/true"])
    files = sum(count for name, count in counts.items() if name in FILE_CALLS)
    return {"files": files, "others": sum(counts.values()) - files}


@benchmark("simulator")
def simulator_start(bench):
    """With four blank modules, the default, and nothing to do."""
    runs, in_memory, bare = [], [], []
    command = [bench.helper("measure"), bench.path("start"), bench.sim, "--fast", "--", "/bin/true"]
    for _ in range(SHORT_RUNS):
        call(command)
        runs.append(Measured(bench.path("start")))
        call(command, env={**os.environ, "TMPDIR": "/dev/shm"})
        in_memory.append(Measured(bench.path("start")))
        call([bench.helper("measure"), bench.path("start"), "/bin/true"])
        bare.append(Measured(bench.path("start")))
    cpu, memory = median(runs, "cpu_ms"), median(runs, "peak_bytes") / 1e6
    return [limited("start and end, processor time", cpu, "ms", START_AIM_MS,
                    share_of_processor_time={"kernel": median(runs, "kernel_ms") / cpu,
                                             "user": median(runs, "user_ms") / cpu},
                    system_calls=calls_of_a_start(bench)),
            limited("start and end with TMPDIR=/dev/shm, processor time", median(in_memory, "cpu_ms"),
                    "ms", START_AIM_MS),
            row("start and end, wall time", median(runs, "wall_ms"), "ms", median(bare, "wall_ms"),
                "/bin/true"),
            limited("peak memory, four blank modules", memory, "MB", MEMORY_AIM_MB)]


@benchmark("simulator")
def simulator_memory(bench):
    """With a flash file of 16 MiB for each module; the image in it takes 1 MiB."""
    modules = []
    for module, slot in SLOTS.items():
        path = bench.path(f"{module}.flash")
        shutil.copy(bench.flash(bench.image(module, MIB)), path)
        modules += ["--module", f"{module}@{slot},flash={path}"]

    def peak(count):
        call([bench.helper("measure"), bench.path("start"), bench.sim, "--fast",
              *modules[:2 * count], "--", "/bin/true"])
        return Measured(bench.path("start")).peak_bytes / 1e6
    return [limited(f"peak memory, {what}", peak(count), "MB", MEMORY_AIM_MB)
            for count, what in ((1, "one module with a flash file"),
                                (4, "four modules with flash files"))]
