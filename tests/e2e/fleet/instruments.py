"""Virtual instruments for the tests of packaging/, each with its own orvane-sim and flashes."""

import contextlib
import difflib
import fcntl
import pathlib
import re
import shlex
import subprocess
import sys

FLASH_BYTES = 16 * 1024 * 1024
SECTOR_BYTES = 64 * 1024
PAGE_BYTES = 256

# How the scripts of tools that install images tell the end of an update.
UPDATED = "The flash holds the image, and it was taken into use. (exit code 0)"
FOUND = "The flash holds the image, and it is in use. Nothing was written. (exit code 0)"
LOCKED = "Locked by another process. Try again later, or wait with --wait. (exit code 4)"
NOT_IN_USE = (
    "The flash holds the image, but it is not in use: the FPGA's DONE does not rise within 10 s "
    "after its reset. Switch the module off and on. (exit code 3)"
)


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

    def expect_flash(self, what, contents):
        """Looks, byte for byte, whether these are in the flash of its first module; None: what was there."""
        module = self.modules[0]
        wanted = module.before if contents is None else module.as_updated(contents)
        expect(f"{what}: flash", True, wanted == module.now())

    def on_it(self, more_faults=()):
        """The words that run a command on the instrument."""
        words = [self.programs.sim, "--fast", "--allow-unhit"]
        for module in self.modules:
            words += ["--module", module.option()]
        for fault in [*self.faults, *more_faults]:
            words += ["--fault", fault]
        return [*words, "--"]

    def write_tarnwickctl(self):
        """A file `tarnwickctl` in the folder of the instrument that runs it there."""
        words = [*self.on_it(), self.programs.tarnwickctl]
        path = self.folder / "tarnwickctl"
        # The bus is that of the instrument, whatever the environment names.
        script = f"unset DBUS_SYSTEM_BUS_ADDRESS\nexec {shlex.join(words)} "
        path.write_text(f'#!/bin/sh\n{script}"$@" --state {self.state}\n', encoding="utf-8")
        path.chmod(0o755)

    @contextlib.contextmanager
    def lock(self):
        """Holds the lock, as another process that works on the instrument does."""
        with open(self.state / "lock", "w", encoding="utf-8") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            yield

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


def make_cases(programs, folder):
    """The instruments on which a tool that installs images is tried, by name, and the image."""
    image = folder / "pyx1.bin"
    programs.make_image(image, "pyx1", "2024-05-06 07:08:09", "80K", 2)
    old = folder / "old.bin"
    programs.make_image(old, "pyx1", "2023-05-06 07:08:09", "72K", 1)
    cases = {}
    for name, keys in {"old": "", "locked": "", "power-cycle": ",done=low"}.items():
        cases[name] = Instrument(programs, folder / name)
        cases[name].add("pyx1", 4, image, old.read_bytes(), keys)
        cases[name].write_tarnwickctl()
    return cases, image.read_bytes()


def edited(script, **values):
    """A script of packaging/ with other values in the lines that are there to be edited."""
    text = script.read_text(encoding="utf-8")
    for name, value in values.items():
        text, count = re.subn(rf"^{name}=.*$", f"{name}={value}", text, flags=re.MULTILINE)
        expect(f"lines of {script} with {name}", 1, count)
    return text


def make_certificate(folder):
    """A key and a certificate that signs itself, for updates."""
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj"]
        + ["/CN=a test", "-addext", "extendedKeyUsage=emailProtection"]
        + ["-keyout", folder / "key.pem", "-out", folder / "certificate.pem"],
        check=True,
        stderr=subprocess.DEVNULL,
    )


def main(test):
    """Runs a test and reports a difference."""
    try:
        test()
    except Difference as difference:
        print(difference)
        sys.exit(1)
