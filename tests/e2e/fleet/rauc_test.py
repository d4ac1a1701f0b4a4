#!/usr/bin/env python3
"""rauc_test.py BIN RAUC: installs bundles with the hook of the folder RAUC.

Needs root and a loop device, for which it is skipped (77) otherwise: RAUC mounts bundles.
"""

import contextlib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

from instruments import FOUND, LOCKED, NOT_IN_USE, UPDATED
from instruments import Programs, edited, expect, main, make_cases, make_certificate

BUS = """<busconfig>
  <type>custom</type>
  <listen>unix:path={folder}/bus</listen>
  <servicedir>{folder}</servicedir>
  <policy context="default">
    <allow own="*"/><allow send_destination="*"/><allow receive_sender="*"/>
  </policy>
</busconfig>
"""
SERVICE = """[D-BUS Service]
Name=de.pengutronix.rauc
Exec={rauc} service --conf={folder}/system.conf --override-boot-slot=_external_
User=root
"""
# The node is a plain file: only the hook uses it.
SYSTEM = """[system]
compatible=Orvane
bootloader=noop
mountprefix={folder}/mount
statusfile={folder}/status

[keyring]
path={folder}/certificate.pem

[slot.pyx1-4.0]
device={folder}/node
type=raw
"""
MANIFEST = """[update]
compatible=Orvane
version=1.0

[bundle]
format=plain

[hooks]
filename=tarnwick-update

[image.pyx1-4]
filename=pyx1.bin
hooks=install
"""


def why_skipped(folder):
    """What this test needs and does not have; empty when it has all."""
    if os.geteuid() != 0:
        return "not root"
    found = subprocess.run(["losetup", "--find"], capture_output=True, check=False)
    if found.returncode != 0:
        return "no loop device"
    place = folder / "place"
    place.mkdir()
    words = ["mount", "-t", "tmpfs", "none", place]
    if subprocess.run(words, capture_output=True, check=False).returncode != 0:
        return "no right to mount"
    subprocess.run(["umount", place], check=True)
    return ""


@contextlib.contextmanager
def service(folder, programs_folder):
    """A bus of its own that starts RAUC when it is called. Yields the client's environment."""
    (folder / "mount").mkdir(exist_ok=True)
    (folder / "node").touch()
    rauc = subprocess.check_output(["which", "rauc"], encoding="utf-8").strip()
    for name, text in {"bus.conf": BUS, "rauc.service": SERVICE, "system.conf": SYSTEM}.items():
        (folder / name).write_text(text.format(folder=folder, rauc=rauc), encoding="utf-8")
    environment = os.environ | {
        "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={folder}/bus",
        "PATH": f"{programs_folder}:{os.environ['PATH']}",
    }
    with open(folder / "service.log", "w", encoding="utf-8") as log:
        with subprocess.Popen(
            ["dbus-daemon", "--nofork", "--print-address", f"--config-file={folder}/bus.conf"],
            env=environment,
            stdout=subprocess.PIPE,
            stderr=log,
        ) as daemon:
            daemon.stdout.readline()  # it answers now
            try:
                yield environment
            finally:
                daemon.terminate()  # RAUC ends with its bus


def test():
    """Installs a bundle on each instrument."""
    programs = Programs(sys.argv[1])
    script = pathlib.Path(sys.argv[2]) / "tarnwick-update"
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="rauc.")))
        if reason := why_skipped(folder):
            print(f"skipped: {reason}")
            sys.exit(77)
        make_certificate(folder)
        cases, image = make_cases(programs, folder)

        def install(what, name, exit_code, text, **values):
            """Expects the line of the hook, what RAUC says of it, and the exit code."""
            bundle = folder / f"{what}.raucb"
            parts = bundle.with_suffix(".parts")
            parts.mkdir()
            (parts / "tarnwick-update").write_text(edited(script, **values), encoding="utf-8")
            (parts / "tarnwick-update").chmod(0o755)
            (parts / "pyx1.bin").write_bytes(image)
            (parts / "manifest.raucm").write_text(MANIFEST, encoding="utf-8")
            subprocess.run(
                ["rauc", "bundle", f"--cert={folder}/certificate.pem", f"--key={folder}/key.pem"]
                + [parts, bundle],
                check=True,
                capture_output=True,
            )
            with service(cases[name].folder, cases[name].folder) as environment:
                ended = subprocess.run(
                    ["rauc", "install", bundle],
                    env=environment,
                    stdin=subprocess.DEVNULL,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.STDOUT,
                    encoding="utf-8",
                    check=False,
                )
            log = (cases[name].folder / "service.log").read_text(encoding="utf-8")
            with contextlib.ExitStack() as on_failure:
                on_failure.callback(print, ended.stdout, log)
                lines = re.findall("^tarnwick-update: .*", log, re.MULTILINE)
                expect(f"{what}: hook", [f"tarnwick-update: pyx1 in slot 4: {text}"], lines)
                errors = re.findall("^LastError: .*", ended.stdout, re.MULTILINE)
                failure = (
                    "LastError: Installation error: Failed updating slot pyx1-4.0: failed to run "
                    f"slot hook: Child process exited with code {text[-2]}"
                )
                expect(f"{what}: error", [failure] if exit_code else [], errors)
                expect(f"{what}: exit code of rauc", exit_code, ended.returncode)
                on_failure.pop_all()
            print(f"{what}: as expected", flush=True)

        for case in cases.values():
            (case.folder / "certificate.pem").symlink_to(folder / "certificate.pem")
        install("update", "old", 0, UPDATED)
        cases["old"].expect_flash("update", image)
        install("once more", "old", 0, FOUND)
        cases["old"].expect_flash("once more", image)

        with cases["locked"].lock():
            install("locked", "locked", 1, LOCKED, wait_seconds=0)
        cases["locked"].expect_flash("locked", None)

        install("power cycle", "power-cycle", 1, NOT_IN_USE)
        cases["power-cycle"].expect_flash("power cycle", image)
        install("follows", "power-cycle", 0, NOT_IN_USE, power_cycle_follows="yes")


main(test)
