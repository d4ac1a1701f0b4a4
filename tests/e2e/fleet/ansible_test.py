#!/usr/bin/env python3
"""ansible_test.py [--count N] BIN ANSIBLE

Rolls images out to N (5) virtual instruments with the playbook of the folder ANSIBLE and the
programs of the folder BIN: compares first, then lets a wave with too many failures stop the
roll-out, brings it to its end, and makes it once more. After each run the report is compared line
by line, the flashes byte by byte. Before that the variables of the role are compared with their
documents.
"""

import argparse
import contextlib
import functools
import hashlib
import http.server
import itertools
import json
import os
import pathlib
import re
import subprocess
import tempfile
import threading
import time

import yaml

from instruments import PAGE_BYTES, Instrument, Programs, expect, main

SLOTS = {"wend": 1, "dax": 2, "pyx1": 4, "pyx2": 5}
# The instruments are of these kinds in turn; "other" is one of OTHER_FAILURES in turn.
KINDS = ["worn", "current", "old", "cut", "lost", "old-pyx2", "other", "gzip", "other", "two"]
NOT_READ = ["unreachable", "refused", "locked", "no-report", "gone"]
OTHER_FAILURES = ["power-cycle", *NOT_READ]
WORN_PAGE = 0x4000

TAKEN = "The flash holds the image, and it was taken into use."
FOUND = "The flash holds the image, and it is in use. Nothing was written."
AT_POWER_ON = "The flash holds the image. The module uses it from its next power-on."
AT_POWER_ON_UNWRITTEN = (
    "The flash holds the image. It was not written. The module uses it from its next power-on."
)
NOT_IN_USE = (
    "The flash holds the image, but it is not in use: the FPGA's DONE does not rise within 10 s "
    "after its reset. Switch the module off and on."
)


def differs(flash, contents):
    """How the first difference is described."""
    address = next(i for i, byte in enumerate(contents) if flash[i] != byte)
    pages = sum(
        flash[i : i + len(contents[i : i + PAGE_BYTES])] != contents[i : i + PAGE_BYTES]
        for i in range(0, len(contents), PAGE_BYTES)
    )
    return (
        f"the flash differs from address 0x{address:06x} on (0x{flash[address]:02x} instead of "
        f"0x{contents[address]:02x}), in {pages} page{'s' * (pages > 1)} of {PAGE_BYTES} bytes"
    )


class Fleet:
    """The instruments in the order of the inventory, and what is expected of them."""

    def __init__(self, programs, folder, count):
        self.programs = programs
        self.images = folder / "images"
        self.images.mkdir()
        self.old = {}
        self.new = {}
        for seed, target in enumerate(SLOTS):
            self.old[target] = self.images / f"{target}-old.bin"
            self.new[target] = self.images / f"{target}.bin"
            programs.make_image(self.old[target], target, "2023-05-06 07:08:09", "72K", seed)
            programs.make_image(self.new[target], target, "2024-05-06 07:08:09", "80K", seed + 9)
        packed = self.images / "dax-packed.bin"
        programs.make_image(packed, "dax", "2024-05-06 07:08:09", "80K", 10, "--gzip")
        self.packed = packed
        self.no_way = folder / "no-way"  # in place of ssh
        script = "#!/bin/sh\necho there is no way >&2\nexit 255\n"
        self.no_way.write_text(script, encoding="utf-8")
        self.no_way.chmod(0o755)
        self.folder = folder
        self.instruments = {}
        self.kinds = {}
        other_failures = itertools.cycle(OTHER_FAILURES)
        for number, kind in zip(range(count), itertools.cycle(KINDS)):
            kind = next(other_failures) if kind == "other" else kind
            self.add(f"orvane-{number + 1:02d}", kind)

    def add(self, name, kind):
        """An instrument of a kind."""
        self.kinds[name] = kind
        faults = []
        keys = ""
        targets = ["wend"]
        if kind == "worn":
            keys = f",worn-page={WORN_PAGE}"
        elif kind == "lost":
            targets, faults = ["dax"], ["spi:PP#3:lost"]
        elif kind == "old-pyx2":
            targets = ["pyx2"]
        elif kind in ("cut", "unreachable", "power-cycle", "refused"):
            targets = ["pyx1"]
            keys = {"unreachable": ",flash-chip=absent", "power-cycle": ",done=low"}.get(kind, "")
            if kind == "refused":
                faults = ["dbus:GetModuleLocations:data:1 2"]
        elif kind == "gzip":
            targets = ["dax"]
        elif kind in ("two", "current"):
            targets = ["pyx2"] if kind == "current" else ["dax", "pyx1"]
        instrument = Instrument(self.programs, self.folder / "instruments" / name, faults)
        for target in targets:
            image = self.packed if kind == "gzip" else self.new[target]
            is_current = kind == "current" or (kind == "two" and target == "dax")
            flash = (self.new if is_current else self.old)[target].read_bytes()
            instrument.add(target, SLOTS[target], image, flash, keys)
        if kind == "cut":
            instrument.cut_short("spi:PP#20")
        self.instruments[name] = instrument

    def contents(self, module):
        """The image of a module, decompressed."""
        return self.new[module.target].read_bytes()

    def write_inventory(self, path, mirror):
        """JSON is YAML. Copying is the default; some fetch from the mirror, or have the images."""
        hosts = {}
        for name, instrument in self.instruments.items():
            modules = []
            for module in instrument.modules:
                sha256 = hashlib.sha256(module.image.read_bytes()).hexdigest()
                modules.append(
                    {"target": module.target, "slot": module.slot, "image": module.image.name}
                    | {"sha256": sha256}
                )
            words = [*instrument.on_it(), self.programs.tarnwickctl]
            hosts[name] = {
                "tarnwick_update_modules": modules,
                "tarnwick_update_command": words,
                "tarnwick_update_state": str(instrument.state),
                "tarnwick_update_folder": str(instrument.folder / "images"),
                "tarnwick_update_source": str(self.images),
                "tarnwick_update_wait": 0,
            }
            kind = self.kinds[name]
            if kind == "no-report":
                hosts[name]["tarnwick_update_command"] = ["/no/tarnwickctl"]
            elif kind == "gone":
                hosts[name]["ansible_connection"] = "ssh"
                hosts[name]["ansible_pipelining"] = False
                hosts[name]["ansible_ssh_executable"] = str(self.no_way)
            elif kind == "old":
                hosts[name]["tarnwick_update_delivery"] = "present"
                hosts[name]["tarnwick_update_folder"] = str(self.images)
            elif kind in ("current", "gzip"):
                hosts[name]["tarnwick_update_delivery"] = "mirror"
                hosts[name]["tarnwick_update_source"] = mirror
        variables = {
            "ansible_connection": "local",
            "ansible_python_interpreter": "/usr/bin/python3",
        }
        inventory = {"instruments": {"hosts": hosts, "vars": variables}}
        path.write_text(json.dumps(inventory, indent=1), encoding="utf-8")

    def failure(self, name, module):
        """How each update of a module that cannot be updated fails; empty for the others."""
        worn = self.flash_after(name, module)
        return {
            "worn": lambda: "failed not-proven: Not proven after 3 attempts: "
            f"{differs(worn, self.contents(module))}; the same page as after the attempt before. "
            "Update again.",
            "power-cycle": lambda: f"failed power-cycle: {NOT_IN_USE}",
            "unreachable": lambda: "failed unreachable: The module cannot be read for certain: no "
            "flash chip answers (identification 00 00 00). The flash was not changed.",
            "refused": lambda: "failed refused: Refused: slot 4 is not in the inventory. Check "
            "MODULE, and that it is switched on.",
            "locked": lambda: "failed locked: Locked by another process. Try again later, or wait "
            "with --wait.",
            "no-report": lambda: "failed no-report: sh: 1: /no/tarnwickctl: not found (exit "
            "code 127)",
            "gone": lambda: "failed not-tried: Failed to connect to the host via ssh: there is no "
            "way",
        }.get(self.kinds[name], lambda: "")()

    def is_current(self, module):
        """Whether the flash held the image before."""
        contents = self.contents(module)
        return module.before[: len(contents)] == contents

    def after_check(self, name, module):
        """Result and reason of a comparison."""
        if self.kinds[name] in NOT_READ:
            return self.failure(name, module)
        if self.is_current(module):
            return "ok equal: The flash holds the image."
        return f"changed differs: T{differs(module.before, self.contents(module))[1:]}."

    def after_update(self, name, module):
        """Result and reason of the first update."""
        if self.is_current(module):
            return self.after_second_update(name, module)
        taken = AT_POWER_ON if module.target == "dax" else TAKEN
        return self.failure(name, module) or f"changed proven: {taken}"

    def after_second_update(self, name, module):
        """Result and reason of each further update."""
        found = AT_POWER_ON_UNWRITTEN if module.target == "dax" else FOUND
        return self.failure(name, module) or f"ok proven: {found}"

    def lines(self, what, names):
        """The report that is expected."""
        return "".join(
            f"{name} {module.slot} {module.target} {what(name, module)}\n"
            for name in sorted(names)
            for module in self.instruments[name].modules
        )

    def flash_after(self, name, module):
        """What a flash holds after updates."""
        # Nothing is erased where the flash holds the image already.
        if self.is_current(module) or self.kinds[name] in NOT_READ:
            return module.before
        updated = module.as_updated(self.contents(module))
        if self.kinds[name] == "worn":
            return updated[:WORN_PAGE] + b"\xff" * PAGE_BYTES + updated[WORN_PAGE + PAGE_BYTES :]
        return updated

    def expect_flashes(self, what, updated):
        """The flashes of the updated instruments hold the image, the others what they held."""
        for name, instrument in self.instruments.items():
            for module in instrument.modules:
                contents = self.flash_after(name, module) if name in updated else module.before
                sums = [hashlib.sha256(bytes).hexdigest() for bytes in (contents, module.now())]
                expect(f"{what}: SHA-256 of the flash of {name}, slot {module.slot}", *sums)

    def files(self):
        """Identity and time of each flash file: a flash that does not change is not written."""
        return {
            module.flash: (module.flash.stat().st_ino, module.flash.stat().st_mtime_ns)
            for instrument in self.instruments.values()
            for module in instrument.modules
        }


class Ansible:
    """Runs the playbook."""

    def __init__(self, playbooks, folder):
        self.playbook = str(playbooks / "update.yml")
        self.printed = ""
        self.folder = folder
        self.report = folder / "report"
        self.inventory = folder / "inventory.json"
        (folder / "ansible.cfg").touch()  # instead of the user's
        kept = ("PATH", "TMPDIR", "LSAN_OPTIONS", "LD_LIBRARY_PATH")
        self.environment = {name: os.environ[name] for name in kept if name in os.environ} | {
            "ANSIBLE_CONFIG": str(folder / "ansible.cfg"),
            "ANSIBLE_FORKS": str(2 * os.cpu_count()),
            "ANSIBLE_HOME": str(folder / "ansible"),
            "ANSIBLE_LOCAL_TEMP": str(folder / "ansible"),
            "ANSIBLE_NOCOLOR": "1",
            "ANSIBLE_PIPELINING": "1",
            "ANSIBLE_REMOTE_TMP": str(folder / "ansible"),
            "HOME": str(folder),
            "LC_ALL": "C.UTF-8",
            "no_proxy": "127.0.0.1",
        }

    def run(self, exit_code, waves, share, *options):
        """Rolls out, and returns what was printed."""
        variables = {
            "tarnwick_become": False,
            "tarnwick_report": str(self.report),
            "tarnwick_waves": waves,
            "tarnwick_max_fail_percentage": share,
        }
        begin = time.monotonic()
        ended = subprocess.run(
            ["ansible-playbook", "-v", "-i", self.inventory, self.playbook]
            + ["-e", json.dumps(variables), *options],
            env=self.environment,
            cwd=self.folder,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            check=False,
        )
        seconds = time.monotonic() - begin
        self.printed = ended.stdout
        expect("exit code of ansible-playbook", exit_code, ended.returncode)
        return ended.stdout, seconds

    def check_syntax(self, inventory):
        """Has the playbook and the example of an inventory read."""
        words = ["ansible-playbook", "--syntax-check", "-i", inventory.resolve(), self.playbook]
        printed = subprocess.check_output(
            words, env=self.environment, cwd=self.folder, stderr=subprocess.STDOUT, encoding="utf-8"
        )
        expect("syntax check", f"\nplaybook: {self.playbook}\n", printed)

    def reported(self):
        """The report."""
        files = sorted(self.report.glob("*.report"))
        return "".join(file.read_text(encoding="utf-8") for file in files)


def recap(printed):
    """Of each host how many tasks have changed something, and how many have failed."""
    row = r"^(\S+) +: ok=\d+ +changed=(\d+) +unreachable=0 +failed=(\d+) "
    return {
        name: (int(changed), int(failed))
        for name, changed, failed in re.findall(row, printed, re.MULTILINE)
        if name != "localhost"
    }


@contextlib.contextmanager
def mirror(folder):
    """A web server with the images."""

    class Handler(http.server.SimpleHTTPRequestHandler):
        """Says nothing."""

        def log_message(self, format, *args):  # pylint: disable=redefined-builtin
            pass

    handler = functools.partial(Handler, directory=str(folder))
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        try:
            yield f"http://127.0.0.1:{server.server_port}"
        finally:
            server.shutdown()
            thread.join()


def roll_out(fleet, ansible):
    """The four runs."""
    names = list(fleet.instruments)
    first_wave = names[: max(2, len(names) // 5)]
    waves = [len(first_wave), len(names)]
    failing = {name for name in names if fleet.kinds[name] in ("worn", *OTHER_FAILURES)}

    def expect_run(what, exit_code, seconds, reported, expected, updated):
        expect(f"{what}: report", expected, reported)
        fleet.expect_flashes(what, updated)
        results = [line.split(" ")[3] for line in reported.splitlines()]
        counts = ", ".join(f"{results.count(word)} {word}" for word in ("changed", "ok", "failed"))
        print(f"{what}: {seconds:.1f} s; modules: {counts}; exit code {exit_code}", flush=True)

    # --- compared, and nothing is changed
    before = fleet.files()
    exit_code = 2 if any(kind in NOT_READ for kind in fleet.kinds.values()) else 0
    _, seconds = ansible.run(exit_code, waves, 100, "--check")
    expected = fleet.lines(fleet.after_check, names)
    expect_run("compared", exit_code, seconds, ansible.reported(), expected, [])
    expect("flash files after the comparison", before, fleet.files())

    # --- a wave of which more fails than may
    printed, seconds = ansible.run(2, waves, 5)
    expected = fleet.lines(fleet.after_update, first_wave)
    expect_run("stopped", 2, seconds, ansible.reported(), expected, first_wave)
    expect("instruments that were begun", sorted(first_wave), sorted(recap(printed)))
    for name in names[len(first_wave) :]:
        for module in fleet.instruments[name].modules:
            expect(f"flash file of {name}", before[module.flash], fleet.files()[module.flash])

    # --- the same with as many failures as are allowed
    printed, seconds = ansible.run(2, waves, 50)
    expected = "".join(
        fleet.lines(fleet.after_second_update if name in first_wave else fleet.after_update, [name])
        for name in names
    )
    expect_run("rolled out", 2, seconds, ansible.reported(), expected, names)
    expect("report in the output", True, all(line in printed for line in expected.splitlines()))

    # --- once more
    good = {m.flash for n in names if n not in failing for m in fleet.instruments[n].modules}
    before = {flash: file for flash, file in fleet.files().items() if flash in good}
    printed, seconds = ansible.run(2, waves, 50)
    expected = fleet.lines(fleet.after_second_update, names)
    expect_run("once more", 2, seconds, ansible.reported(), expected, names)
    after = {flash: file for flash, file in fleet.files().items() if flash in good}
    expect("flash files after one more roll-out", before, after)
    expected = {name: (0, int(name in failing)) for name in names}
    expect("tasks that changed something, and that failed", expected, recap(printed))


def check_documents(ansible, playbooks):
    """Every variable has its description, its default and its line in the README."""
    role = playbooks / "roles" / "tarnwick_update"

    def load(name):
        return yaml.safe_load((role / name).read_text(encoding="utf-8"))

    options = load("meta/argument_specs.yml")["argument_specs"]["main"]["options"]
    described = {n: option["default"] for n, option in options.items() if "default" in option}
    expect("defaults of the role", load("defaults/main.yml"), described)
    text = (role / "README.md").read_text(encoding="utf-8")
    rows = re.findall(r"^\| `(tarnwick_\w+)` \|", text, re.MULTILINE)
    expect("variables in the README", list(options), rows)
    ansible.check_syntax(playbooks / "inventory.yml")


def test():
    """Makes the instruments and rolls out."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--count", type=int, default=5)
    parser.add_argument("bin")
    parser.add_argument("ansible")
    words = parser.parse_args()
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="fleet.")))
        fleet = Fleet(Programs(words.bin), folder, words.count)
        ansible = Ansible(pathlib.Path(words.ansible).resolve(), folder)
        check_documents(ansible, pathlib.Path(words.ansible))
        fleet.write_inventory(ansible.inventory, stack.enter_context(mirror(fleet.images)))
        for name, instrument in fleet.instruments.items():
            if fleet.kinds[name] == "locked":
                stack.enter_context(instrument.lock())
        try:
            roll_out(fleet, ansible)
        except Exception:
            print(ansible.printed)
            raise


main(test)
