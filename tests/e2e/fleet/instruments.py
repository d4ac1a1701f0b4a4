"""Virtual instruments for the tests of packaging/, each with its own orvane-sim and flashes."""

import difflib
import pathlib
import subprocess
import sys

FLASH_BYTES = 16 * 1024 * 1024
SECTOR_BYTES = 64 * 1024
PAGE_BYTES = 256


class Difference(Exception):
    """What is expected, and what is there instead."""


def expect(what, expected, actual):
    """Fails with the lines that differ."""
    if expected != actual:
        lines = difflib.unified_diff(
            str(expected).split("\n"), str(actual).split("\n"), "expected", "is", lineterm=""
        )
        raise Difference("\n".join([f"{what}:", *lines]))


class Programs:
    """The programs that were built."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder).resolve()
        self.sim = str(self.folder / "orvane-sim")
        self.tarnwickctl = str(self.folder / "tarnwickctl")

    def make_image(self, path, target, date, size, seed, *options):
        """Writes an image for modules of a type."""
        words = ["bitstream", "--stamp"] if target in ("dax", "pyx1") else ["zynq", "--date"]
        subprocess.run(
            [self.folder / "orvane-image", *words, date, "--size", size, "--seed", str(seed)]
            + ["--out", path, *options],
            check=True,
        )


class Module:
    """A module of an instrument: its flash, and the image that it is to hold."""

    def __init__(self, target, slot, image, flash, keys=""):
        self.target = target
        self.slot = slot
        self.image = image  # path
        self.flash = flash  # path
        self.keys = keys
        self.before = self.now()

    def option(self):
        """What plugs it in."""
        return f"{self.target}@{self.slot},flash={self.flash}{self.keys}"

    def now(self):
        """What the flash holds."""
        return self.flash.read_bytes()

    def as_updated(self, contents):
        """What the flash is to hold after an update: the sectors of the image are erased."""
        end = -(-len(contents) // SECTOR_BYTES) * SECTOR_BYTES
        return contents.ljust(end, b"\xff") + self.before[end:]


class Instrument:
    """An instrument with its folder; each command that is run on it switches it on first."""

    def __init__(self, programs, folder, faults=()):
        self.programs = programs
        self.folder = folder
        self.faults = list(faults)
        self.modules = []
        self.state = folder / "state"
        self.state.mkdir(parents=True)

    def add(self, target, slot, image, flash_contents, keys=""):
        """Plugs a module in whose flash holds these bytes, and 0xff behind them."""
        flash = self.folder / f"flash-{slot}"
        # Whole: a flash file that would not change is not written.
        flash.write_bytes(flash_contents.ljust(FLASH_BYTES, b"\xff"))
        self.modules.append(Module(target, slot, image, flash, keys))

    def on_it(self, more_faults=()):
        """The words that run a command on the instrument."""
        words = [self.programs.sim, "--fast", "--allow-unhit"]
        for module in self.modules:
            words += ["--module", module.option()]
        for fault in [*self.faults, *more_faults]:
            words += ["--fault", fault]
        return [*words, "--"]

    def cut_short(self, event):
        """Begins the update of the only module; power fails at the event."""
        module = self.modules[0]
        ended = subprocess.run(
            [*self.on_it([f"{event}:kill-all"]), self.programs.tarnwickctl, "update"]
            + [module.target, str(module.slot), module.image, "--state", self.state],
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            check=False,
        )
        expect("exit code of the update that is cut short", 137, ended.returncode)
        module.before = module.now()


def main(test):
    """Runs a test and reports a difference."""
    try:
        test()
    except Difference as difference:
        print(difference)
        sys.exit(1)
