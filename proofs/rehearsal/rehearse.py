"""Updates modules in the guest and on the virtual instrument, and compares the two.

rehearse.py PACKAGES PROGRAMS SIMULATOR FOLDER [SCENARIO...]
  PACKAGES   a tar file of unpacked packages, with the kernel
  PROGRAMS   a folder with tarnwick and tarnwickctl for the guest
  SIMULATOR  a folder with orvane-sim, orvane-image, tarnwick and tarnwickctl
  FOLDER     an empty one, for everything that the runs make
"""
import dataclasses
import pathlib
import shutil
import subprocess
import sys
import time

import buses
import machine

IDENTIFICATION = rb"\xbf\x25\x41".decode()  # of the guest's flash
OLD_BYTES, NEW_BYTES = 70_000, 100_000  # two sectors, and a last page that is not full


@dataclasses.dataclass
class Module:
    target: str
    slot: int
    bus: int = 0     # of the guest, on which the stand-in for the expander is
    mask: int = 0    # the lines of the expander that the program drives
    keys: str = ""   # for the virtual instrument: a DONE that is as steady as the stand-in's


WEND = Module("wend", 1)
DAX = Module("dax", 1, bus=3, mask=0xEDDF, keys=",done=high")
PYX1 = Module("pyx1", 4, bus=0, mask=0xEDDF, keys=",done=high")
PYX2 = Module("pyx2", 5, bus=2, mask=0x0A17, keys=",done=high")


@dataclasses.dataclass
class Step:
    name: str
    module: Module
    code: int
    image: str
    program: str = "tarnwick"
    how: str = "step"     # the shell function of the guest
    prefix: str = ""      # before the program's name in the guest
    before: str = ""      # shell commands of the guest
    after: str = ""
    keys: str = ""        # for the virtual instrument
    options: tuple = ()

    def words(self):
        if self.program == "tarnwick":
            return ["tarnwick", self.module.target, "-sf", str(self.module.slot), self.image]
        return ["tarnwickctl", "update", self.module.target, str(self.module.slot), self.image, "--state", "state"]

    def shell(self):
        return "\n".join(filter(None, [self.before, f"{self.how} {self.name} {self.prefix} {' '.join(self.words())}",
                                       self.after])) + "\n"


@dataclasses.dataclass
class Scenario:
    name: str
    flash: str            # the image in it at the start
    steps: list
    final: str            # the image in it at the end; empty: what the virtual instrument has
    bufsiz: int = 4096


NODE = "/dev/spidev1.0"
SCENARIOS = [
    Scenario("zynq", "zynq-2023", final="zynq-2025", steps=[
        Step("missing-node", WEND, 1, "zynq-2024", before=f"mv {NODE} /dev/away", after=f"mv /dev/away {NODE}",
             keys=",spidev=missing"),
        Step("no-permission", WEND, 1, "zynq-2024", prefix="as_nobody",
             before="chmod 777 .; chmod 666 /sys/platform_m1/*/value",
             options=("--fault", "open:/dev/spidev1.0:EACCES")),
        Step("wend", WEND, 0, "zynq-2024"),
        Step("wend-again", WEND, 11, "zynq-2024"),
        Step("pyx2", PYX2, 0, "zynq-2025"),
        Step("pyx2-again", PYX2, 11, "zynq-2025"),
    ]),
    Scenario("bitstream", "bits-2023", final="bits-2025", steps=[
        Step("dax", DAX, 0, "bits-2024"),
        Step("dax-again", DAX, 11, "bits-2024"),
        Step("pyx1", PYX1, 0, "bits-2025"),
        Step("pyx1-again", PYX1, 11, "bits-2025"),
    ]),
    Scenario("bufsiz-256", "zynq-2023", final="", bufsiz=256, steps=[
        Step("wend", WEND, 6, "zynq-2024"),
        Step("dax", DAX, 6, "bits-2024"),
    ]),
    Scenario("bufsiz-300", "zynq-2023", final="", bufsiz=300, steps=[
        Step("wend", WEND, 1, "zynq-2024"),
        Step("pyx1", PYX1, 6, "bits-2024"),
    ]),
    Scenario("bufsiz-8192", "zynq-2023", final="bits-2024", bufsiz=8192, steps=[
        Step("wend", WEND, 0, "zynq-2024"),
        Step("pyx1", PYX1, 0, "bits-2024"),
    ]),
    Scenario("killed", "zynq-2023", final="", steps=[
        Step("wend-killed", WEND, 137, "zynq-2024", how="step_killed_in_write"),
        Step("wend-repaired", WEND, 0, "zynq-2024", program="tarnwickctl"),
        Step("dax-killed", DAX, 137, "bits-2024", how="step_killed_in_write"),
        # Its time stamp is written: README, "11 may be wrong after an update that was cut short".
        Step("dax-again", DAX, 11, "bits-2024"),
    ]),
]
DUMPS = ("dumpflash.bin", "FlashDevice.bin", "FlashDevice_verif.bin")
FILES_AT_FIRST = {"/sys/platform_m1/qspi_prg/value": "0", "/sys/platform_m1/zynq_hw_reset_n/value": "1",
                  "/sys/platform/module_selector/slotA": "SPILVDS", "/sys/platform/module_selector/slotB": "SPILVDS"}
for slot in (4, 5):
    FILES_AT_FIRST[f"/sys/bus/pci/devices/0000:{slot:02}:00.0/remove"] = "0"
    FILES_AT_FIRST[f"/sys/bus/pci/devices/0000:{slot:02}:00.0/enable"] = "1"
    FILES_AT_FIRST[f"/sys/class/pci_bus/0000:{slot:02}/rescan"] = "0"


def make_images(simulator, folder):
    """A Zynq boot image and a bitstream of each of three years."""
    folder.mkdir()
    for seed, year in enumerate((2023, 2024, 2025)):
        size = OLD_BYTES if year == 2023 else NEW_BYTES
        for kind, name, option in (("zynq", "zynq", "--date"), ("bitstream", "bits", "--stamp")):
            subprocess.run([simulator / "orvane-image", kind, option, f"{year}-05-06 07:08:09", "--size", str(size),
                            "--seed", str(seed + 1), "--out", folder / f"{name}-{year}"], check=True)
    return {file.name: file.read_bytes() for file in sorted(folder.iterdir())}


class Comparison:
    """One step, made by both."""

    def __init__(self, step, images, guest, virtual):
        self.step, self.images = step, images
        self.guest, self.virtual = guest, virtual
        self.problems = []
        self.trace = buses.Trace((guest / "trace").read_text())

    def equal(self, what, guest, virtual):
        if guest != virtual:
            self.problems.append(f"{what}: the guest has {guest!r:.300}, the virtual instrument {virtual!r:.300}")

    def judge(self, log, files):
        """@param files  what the virtual instrument's files below /sys hold, by what was written so far"""
        step = self.step
        code = int((self.guest / "status").read_text())
        self.equal("exit code", code, int((self.virtual / "status").read_text()))
        if code != step.code:
            self.problems.append(f"exit code {code}, expected {step.code}")
        if (self.guest / "lost").read_text().split() != ["0", "0"]:
            self.problems.append("the kernel lost a part of the trace")
        for stream in ("stdout", "stderr"):
            self.equal(stream, (self.guest / stream).read_text(), (self.virtual / stream).read_text())
        for dump in DUMPS:
            self.equal(dump, *(file.read_bytes() if file.exists() else None
                               for file in (self.guest / dump, self.virtual / dump)))
        now = dict(line.split(" ", 1) for line in (self.guest / "files").read_text().splitlines())
        now.pop("/sys/platform_m1/zynq_done/value")
        self.equal("files below /sys", sorted(now.items() - files.items()), sorted(files.items() - now.items()))
        self.judge_commands(log)
        self.judge_data()
        if step.module.mask:
            self.judge_expander(log)

    def judge_commands(self, log):
        ours, theirs = (buses.without_polls(commands) for commands in (self.trace.commands(), log.commands))
        if self.step.how == "step_killed_in_write":
            # SIGKILL arrives somewhere between two pages, on the virtual instrument at the second of them.
            if len(theirs) - len(ours) > 2:
                self.problems.append(f"{len(ours)} SPI commands, {len(theirs)} on the virtual instrument")
            theirs = theirs[:len(ours)]
        for at, (guest, virtual) in enumerate(zip(ours, theirs)):
            if guest != virtual:
                self.problems.append(f"SPI command {at}: {guest}, on the virtual instrument {virtual}")
                return
        self.equal("number of SPI commands", len(ours), len(theirs))

    def judge_data(self):
        """The bytes of each page, as far as the trace has them, against the image. `bufsiz` cuts the image into
        pieces, but none of them at another place than a page's end; where it does, no page fits."""
        image = self.images[self.step.image]
        for select in self.trace.selects:
            if select.sent[0] == 0x02:
                data = select.sent[buses.HEADER_BYTES:]
                at = select.address()
                if self.step.program == "tarnwick" and data != image[at:at + len(data)]:
                    self.problems.append(f"the page at 0x{at:06x} is not that of the image")
                    return
            elif select.sent[0] == 0x05 and select.received[-1] & 1:
                self.problems.append("the flash was busy")
                return

    def judge_expander(self, log):
        """Registers, directions and lengths as on the virtual instrument; of what is written, the lines that the
        program drives. The others are written as the stand-in has read them."""
        ours, theirs = self.trace.expander(self.step.module.bus), log.expander
        self.equal("number of I2C messages", len(ours), len(theirs))
        for at, (guest, virtual) in enumerate(zip(ours, theirs)):
            if self.masked(guest) != self.masked(virtual):
                self.problems.append(f"I2C message {at}: {guest}, on the virtual instrument {virtual}")
                return

    def masked(self, message):
        address, direction, *data = message.split()
        if direction == "r":
            return address, direction, len(data)
        register, *pair = (int(byte, 16) for byte in data)
        return address, register, [byte & self.step.module.mask >> 8 * at & 0xFF for at, byte in enumerate(pair)]


class Rehearsal:
    def __init__(self, packages, programs, simulator, folder):
        self.simulator, self.folder = simulator, folder
        self.programs = [programs / name for name in ("tarnwick", "tarnwickctl")]
        self.images = make_images(simulator, folder / "images")
        self.kernel = machine.Kernel(packages, folder / "kernel")
        self.tree = self.kernel.device_tree()
        self.root = machine.root_file_system(packages, self.kernel, self.programs, self.images)

    def in_the_guest(self, scenario, folder):
        flash = self.images[scenario.flash]
        (folder / "flash").write_bytes(flash + b"\xff" * (machine.FLASH_BYTES - len(flash)))
        steps = "mkdir state\n" + "".join(step.shell() for step in scenario.steps)
        root = self.root + machine.steps_archive(steps)
        parameters = "" if scenario.bufsiz == 4096 else f"spidev.bufsiz={scenario.bufsiz}"
        return machine.run(self.kernel, self.tree, root, folder / "flash", folder, parameters)

    def on_the_virtual_instrument(self, step, folder, bufsiz, killed_at):
        """In the folder of the scenario's virtual instrument; its flash stays there from step to step.
        @param killed_at  the page program at which the program is killed; 0: never
        @return the folder with the outcome"""
        out = folder / step.name
        out.mkdir()
        for dump in DUMPS:
            (folder / dump).unlink(missing_ok=True)
        command = [self.simulator / "orvane-sim", "--fast", "--allow-unhit", "--log", out / "log",
                   "--bufsiz", str(bufsiz), "--fault", "spi:RDID:data:" + IDENTIFICATION,
                   "--module", f"{step.module.target}@{step.module.slot},flash=flash{step.module.keys}{step.keys}",
                   *step.options]
        if killed_at:
            command += ["--fault", f"spi:PP#{killed_at}:kill"]
        program, *words = step.words()
        with open(out / "stdout", "wb") as stdout, open(out / "stderr", "wb") as stderr:
            code = subprocess.run([*command, "--", self.simulator / program, *words], cwd=folder,
                                  stdin=subprocess.DEVNULL, stdout=stdout, stderr=stderr, check=False).returncode
        (out / "status").write_text(str(code))
        for dump in DUMPS:
            if (folder / dump).exists():
                shutil.copy(folder / dump, out)
        return out

    def make(self, scenario):
        """@return the problems, a line each"""
        folder = self.folder / scenario.name
        virtual = folder / "virtual"
        virtual.mkdir(parents=True)
        guest = self.in_the_guest(scenario, folder)
        shutil.copy(self.folder / "images" / scenario.flash, virtual / "flash")
        for name, contents in self.images.items():
            (virtual / name).write_bytes(contents)
        (virtual / "state").mkdir()
        files = dict(FILES_AT_FIRST)
        problems = []
        for step in scenario.steps:
            comparison = Comparison(step, self.images, guest / step.name, virtual / step.name)
            pages = sum(select.sent[0] == 0x02 for select in comparison.trace.selects)
            killed = step.how == "step_killed_in_write"
            if killed and not 0 < pages < NEW_BYTES // 256:
                comparison.problems.append(f"killed after {pages} pages, not in mid-write")
            self.on_the_virtual_instrument(step, virtual, scenario.bufsiz, pages + 1 if killed else 0)
            log = buses.Log((virtual / step.name / "log").read_text())
            files.update({path: text for path, text in log.files.items() if path in files})
            comparison.judge(log, files)
            counts = f"{len(comparison.trace.selects)} SPI messages, {len(comparison.trace.i2c)} I2C messages"
            print(f"  {'ok  ' if not comparison.problems else 'BAD '} {step.name}: exit code {step.code}, {counts}",
                  flush=True)
            problems += [f"{scenario.name}, {step.name}: {problem}" for problem in comparison.problems]
        problems += [f"{scenario.name}: {problem}" for problem in self.judge_flash(scenario, folder)]
        return problems

    def judge_flash(self, scenario, folder):
        guest, virtual = (folder / "flash").read_bytes(), (folder / "virtual/flash").read_bytes()
        if guest != virtual[:len(guest)]:
            yield "the flash of the guest is not that of the virtual instrument"
        if virtual[len(guest):].strip(b"\xff"):
            yield "the virtual instrument has written beyond the flash of the guest"
        image = self.images.get(scenario.final, b"")
        if not guest.startswith(image):
            yield f"the flash does not hold {scenario.final}"


def main():
    packages, programs, simulator, folder = (pathlib.Path(word).resolve() for word in sys.argv[1:5])
    chosen = sys.argv[5:] or [scenario.name for scenario in SCENARIOS]
    rehearsal = Rehearsal(packages, programs, simulator, folder)
    print(f"kernel {rehearsal.kernel.version}", flush=True)
    problems = []
    for scenario in SCENARIOS:
        if scenario.name in chosen:
            start = time.monotonic()
            print(f"{scenario.name}: bufsiz {scenario.bufsiz}, flash {scenario.flash}", flush=True)
            problems += rehearsal.make(scenario)
            print(f"  {time.monotonic() - start:.0f} s", flush=True)
    print("\n".join(problems) if problems else "The kernel and the virtual instrument agree.")
    sys.exit(bool(problems))


main()
