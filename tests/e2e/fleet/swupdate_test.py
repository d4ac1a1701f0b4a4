#!/usr/bin/env python3
"""swupdate_test.py BIN SWUPDATE: installs updates with the script of the folder SWUPDATE."""

import contextlib
import hashlib
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile

from instruments import FOUND, LOCKED, NOT_IN_USE, UPDATED
from instruments import Programs, edited, expect, main, make_cases, make_certificate

def make_update(path, script, data, image, certificate_folder):
    """Writes an update with an image and the script, signed."""
    parts = path.with_suffix(".parts")
    parts.mkdir()
    (parts / "tarnwick-update").write_text(script, encoding="utf-8")
    (parts / "pyx1.bin").write_bytes(image)

    def sha256(name):
        return hashlib.sha256((parts / name).read_bytes()).hexdigest()

    description = f"""software = {{
  version = "1.0";
  hardware-compatibility = [ "1.0" ];
  files: (
    {{ filename = "pyx1.bin"; path = "{data[-1]}"; sha256 = "{sha256("pyx1.bin")}";
      properties = {{ create-destination = "true"; }}; }}
  );
  scripts: (
    {{ filename = "tarnwick-update"; type = "shellscript"; data = "{" ".join(data)}";
      sha256 = "{sha256("tarnwick-update")}"; }}
  );
}}
"""
    (parts / "sw-description").write_text(description, encoding="utf-8")
    subprocess.run(
        ["openssl", "cms", "-sign", "-in", "sw-description", "-out", "sw-description.sig"]
        + ["-signer", certificate_folder / "certificate.pem", "-binary", "-nosmimecap"]
        + ["-inkey", certificate_folder / "key.pem", "-outform", "DER"],
        cwd=parts,
        check=True,
    )
    names = ["sw-description", "sw-description.sig", "tarnwick-update", "pyx1.bin"]
    archive = subprocess.check_output(
        ["cpio", "--quiet", "-o", "-H", "crc"], cwd=parts, input="\n".join(names).encode()
    )
    path.write_bytes(archive)


def serve(update, folder, own, environment):
    """Has a service install the update. Returns its log up to the end of the installation."""
    words = ["swupdate", "-l", "5", "-H", "orvane:1.0", "-k", folder / "certificate.pem"]
    with subprocess.Popen(
        words,
        env=environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        encoding="utf-8",
    ) as service:
        log = ""
        try:
            address = str(own / "sockinstctrl")
            for line in service.stdout:
                log += line
                if address in line:
                    break
            with socket.socket(socket.AF_UNIX) as probe:
                while service.poll() is None and probe.connect_ex(address) != 0:
                    pass  # it is made in the next moment
            subprocess.run(
                ["swupdate-client", update],
                env=environment,
                stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
                check=False,
            )
            for line in service.stdout:
                log += line
                if "Waiting for requests" in line:
                    break
        finally:
            service.terminate()
        return log


def test():
    """Installs an update on each instrument."""
    programs = Programs(sys.argv[1])
    script = pathlib.Path(sys.argv[2]) / "tarnwick-update"
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="swupdate.")))
        own = folder / "own"  # swupdate removes what it finds there
        own.mkdir()
        make_certificate(folder)
        cases, image = make_cases(programs, folder)

        def install(what, name, is_installed, lines, data=None, **values):
            """Expects the lines of the script with their levels, and SWUpdate's word.

            The service is asked, and its log tells. The exit code of `swupdate -i` and of the
            client can be that of a failure after an installation that has succeeded.
            """
            instrument = cases[name]
            update = folder / f"{what}.swu"
            words = data or ["pyx1", "4", str(instrument.folder / "images" / "pyx1.bin")]
            make_update(update, edited(script, **values), words, image, folder)
            path = f"{instrument.folder}:{os.environ['PATH']}"
            log = serve(update, folder, own, os.environ | {"PATH": path, "TMPDIR": str(own)})
            pattern = r"^\[(ERROR|TRACE)\].* : tarnwick-update: (.*)$"
            found = re.findall(pattern, log, re.MULTILINE)
            with contextlib.ExitStack() as on_failure:
                on_failure.callback(print, log)
                expect(f"{what}: lines of the script", lines, found)
                successes = log.count("] : SWUPDATE successful !")
                expect(f"{what}: what swupdate says", int(is_installed), successes)
                left = [str(path) for path in folder.glob("*/images/*")]
                expect(f"{what}: images that were left", [], left)
                on_failure.pop_all()
            print(f"{what}: as expected", flush=True)

        def line(level, text):
            return [(level, f"pyx1 in slot 4: {text}")]

        install("update", "old", True, line("TRACE", UPDATED))
        cases["old"].expect_flash("update", image)
        install("once more", "old", True, line("TRACE", FOUND))
        cases["old"].expect_flash("once more", image)

        with cases["locked"].lock():
            install("locked", "locked", False, line("ERROR", LOCKED), wait_seconds=0)
        cases["locked"].expect_flash("locked", None)

        install("power cycle", "power-cycle", False, line("ERROR", NOT_IN_USE))
        cases["power-cycle"].expect_flash("power cycle", image)
        lines = line("TRACE", NOT_IN_USE)
        install("follows", "power-cycle", True, lines, power_cycle_follows="yes")

        words = ["pyx1", str(cases["locked"].folder / "images" / "pyx1.bin")]
        complaint = [("ERROR", "the data of this script are TARGET SLOT IMAGE")]
        install("wrong data", "locked", False, complaint, data=words)
        cases["locked"].expect_flash("wrong data", None)


main(test)
