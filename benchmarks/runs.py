"""Runs of programs: on the virtual instrument, below measuring programs, and what they took."""
import json
import os
import re
import shlex
import statistics
import subprocess
import tempfile

PAGE_BYTES = 256
MIB = 1 << 20
OLD, NEW = "2023-05-06 07:08:09", "2024-05-06 07:08:09"
SLOTS = {"wend": 1, "dax": 2, "pyx1": 4, "pyx2": 5}
FLASHROM = "/usr/sbin/flashrom"
CAUSES = ("message_cost", "wire", "chip_busy", "late_poll", "sleep", "look", "wait")


class Failed(Exception):
    """A program did not do what is measured."""


def call(words, expected=(0,), **options):
    """Runs a program to its end; Failed unless its exit code is one of these."""
    done = subprocess.run(words, capture_output=True, text=True, errors="replace", check=False,
                          **options)
    if done.returncode not in expected:
        raise Failed(f"{shlex.join(words)}: exit code {done.returncode}\n"
                     f"{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done


def compiler(build):
    """The compiler of a build folder: "g++ 12.2.0"."""
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as file:
        path = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", file.read(), re.MULTILINE)[1]
    told = call([path, "--version"]).stdout
    name = "g++" if "Free Software Foundation" in told else os.path.basename(path)
    return f"{name} {call([path, '-dumpfullversion', '-dumpversion']).stdout.strip()}"


class Measured:
    """What benchmarks/Measure.cpp has written about a command."""

    def __init__(self, path):
        with open(path, encoding="ascii") as file:
            first, wall, user, system, peak = map(int, file.read().split())
        self.first_ms, self.wall_ms = first / 1e6, wall / 1e6
        self.user_ms, self.kernel_ms = user / 1e3, system / 1e3
        self.peak_bytes = peak * 1024

    @property
    def cpu_ms(self):
        return self.user_ms + self.kernel_ms


def median(runs, attribute):
    return statistics.median(getattr(run, attribute) for run in runs)


class Bench:
    """The programs that are measured, and a folder for their files."""

    def __init__(self, build, instrument):
        """Two build folders: of what is measured, and of the virtual instrument."""
        build, instrument = os.path.abspath(build), os.path.abspath(instrument)
        self.compiler = compiler(build)
        self.tarnwick = os.path.join(build, "bin", "tarnwick")
        self.tarnwickctl = os.path.join(build, "bin", "tarnwickctl")
        self.sim = os.path.join(instrument, "bin", "orvane-sim")
        self.image_maker = os.path.join(instrument, "bin", "orvane-image")
        self.helpers = os.path.join(build, "benchmarks")
        self.folder = tempfile.TemporaryDirectory(prefix="bench.")
        self.sim_options = call([self.sim, "--help"]).stdout

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def helper(self, name):
        return os.path.join(self.helpers, name)

    # --- Files ----------------------------------------------------------------------------------

    def image(self, module, size, date=NEW):
        """The path of an image; the same one for the same arguments."""
        kind, option = (("zynq", "--date") if module in ("wend", "pyx2") else
                        ("bitstream", "--stamp"))
        path = self.path(f"{kind}-{size}-{date[:4]}.bin")
        if not os.path.exists(path):
            seed = "1" if date == OLD else "2"
            call([self.image_maker, kind, option, date, "--size", str(size), "--seed", seed,
                  "--out", path])
        return path

    def flash(self, *contents):
        """The path of a flash that begins with these files, one over the other, blank behind them."""
        path = self.path("flash.bin")
        chip = bytearray(b"\xff" * (16 * MIB))
        for name in contents:
            with open(name, "rb") as file:
                part = file.read()
            chip[:len(part)] = part
        with open(path, "wb") as file:
            file.write(chip)
        return path

    def noise(self, size):
        """A file of bytes without a time stamp. The system's random bytes would not be the same."""
        path = self.path(f"noise-{size}")
        with open(path, "wb") as file:
            file.write(bytes(at * at >> 7 & 0xFF for at in range(4096)) * (size // 4096))
        return path

    # --- Runs on the instrument -----------------------------------------------------------------

    def on_instrument(self, command, module="wend", options=(), expected=(0,), measure=None,
                      environment=None):
        """Runs a command with one module, whose flash is flash(). measure: a file for Measure.cpp"""
        words = [self.sim, "--fast", *options,
                 "--module", f"{module}@{SLOTS[module]},flash={self.path('flash.bin')}", "--",
                 *command]
        if measure is not None:
            words = [self.helper("measure"), self.path(measure), *words]
        return call(words, expected, cwd=self.folder.name,
                    env={**os.environ, **(environment or {})})

    def timed(self, command, timing="typical", message_cost=20, **options):
        """As on_instrument(), and returns the summary of the run."""
        done = self.on_instrument(command, options=(
            "--timing", timing, "--message-cost", str(message_cost), "--summary=json"), **options)
        return Summary(json.loads(done.stderr.splitlines()[-1]))

    def update(self, module, size, mhz=19, **options):
        """An update of a flash that holds an older image of the same size."""
        image = self.image(module, size)
        self.flash(self.image(module, size, OLD))
        summary = self.timed([self.tarnwick, module, "-sf", str(SLOTS[module]), image],
                             module=module, environment={"SPI_CLOCK_SPEED": str(mhz)}, **options)
        self.check_flash(image)
        return summary

    def check_flash(self, image):
        with open(image, "rb") as new, open(self.path("flash.bin"), "rb") as flash:
            contents = new.read()
            if flash.read(len(contents)) != contents:
                raise Failed(f"the flash does not hold {image}")


class Summary:
    """What orvane-sim --summary=json has written."""

    def __init__(self, fields):
        self.fields = fields
        self.total_ns = fields["total_ns"]
        self.limit_ns = fields["limit_ns"]
        self.causes = fields["causes"]
        self.pages = fields["pages"]

    def messages(self, *names):
        """How many SPI messages: of these commands, or of all."""
        return sum(one["messages"] for one in self.fields["commands"]
                   if not names or one["name"] in names)

    def by_command(self):
        return {one["name"]: one["messages"] for one in self.fields["commands"]}

    def step_seconds(self):
        return {step["name"]: step["total_ns"] / 1e9 for step in self.fields["steps"]
                if step["total_ns"]}

    def cause_seconds(self):
        return {cause: self.causes[cause] / 1e9 for cause in CAUSES if self.causes[cause]}

    def split(self):
        """Of the total, in seconds: the limit T, what has a cause that T has not, and the rest."""
        named = {"T": self.limit_ns, "message costs": self.causes["message_cost"],
                 "late polls": self.causes["late_poll"], "sleeps": self.causes["sleep"]}
        named["the rest"] = self.total_ns - sum(named.values())
        return {name: value / 1e9 for name, value in named.items()}


# --- Below other programs -------------------------------------------------------------------------

def instructions(bench, image, polls):
    """What callgrind counts in MT25QL128::ProgramDevice: by object file and function."""
    out = bench.path("callgrind.out")
    call(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}",
          "--toggle-collect=MT25QL128::ProgramDevice*", bench.helper("flash-pages"), image,
          str(polls)])
    with open(out, encoding="utf-8") as file:
        return self_costs(file)


def self_costs(lines):
    """Reads a file of callgrind: {(object, function): instructions, those of its callees left out}."""
    names, costs, key, is_callee = {}, {}, {}, False
    for line in lines:
        name = re.match(r"(ob|fn)=\((\d+)\)(?: (.*))?$", line)
        if name:
            kind, number, text = name.groups()
            if text is not None:
                names[kind, number] = text
            key[kind] = kind, number
            continue
        callee = re.match(r"(cob|cfn)=\((\d+)\) (.*)$", line)
        if callee:  # a name may be told here first
            names[callee[1][1:], callee[2]] = callee[3]
        elif line.startswith("calls="):
            is_callee = True
        elif re.match(r"[+\-*\d]", line):
            if not is_callee:
                place = names[key["ob"]], names[key["fn"]]
                costs[place] = costs.get(place, 0) + int(line.split()[1])
            is_callee = False
    return costs


def strace(bench, words):
    """{name: count} of all system calls of a command and its processes."""
    out = bench.path("strace.out")
    call(["strace", "-f", "-c", "-o", out, *words], cwd=bench.folder.name)
    with open(out, encoding="ascii") as file:
        rows = [line.split() for line in file]
    return {row[-1]: int(row[3]) for row in rows if len(row) > 4 and row[3].isdigit()
            and row[-1] != "total"}
