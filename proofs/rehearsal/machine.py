"""The guest: its root file system, its device tree, and a run of it in QEMU."""
import gzip
import importlib.util
import io
import json
import marshal
import pathlib
import socket
import stat
import subprocess
import sys
import sysconfig
import tarfile
import time

HERE = pathlib.Path(__file__).parent
FLASH_BYTES = 2 << 20
MODULES = ("gpio-mxc", "i2c-imx", "i2c-dev", "i2c-mux-pca954x", "spi-imx")
EVENTS = ("spi/spi_set_cs", "spi/spi_message_start", "spi/spi_transfer_start", "spi/spi_transfer_stop",
          "spi/spi_message_done", "i2c/i2c_write", "i2c/i2c_read", "i2c/i2c_reply", "i2c/i2c_result")
SECONDS = 600  # for a run of the guest at most; it takes half a minute where nothing else runs

# What of the packages the guest does not need: documents, and all modules but the few above.
LEFT_OUT = ("./usr/share/", "./boot/", "./var/", "./usr/lib/modules/", "./lib/modules/",
            "./usr/lib/linux-image", "./usr/lib/valgrind/", "./usr/lib/systemd/", "./etc/")


class Archive:
    """A cpio archive, as the kernel unpacks it; everything in it belongs to root."""

    def __init__(self):
        self.bytes = io.BytesIO()
        self.number = 0
        self.names = set()

    def add(self, name, mode, contents=b""):
        if name in self.names:
            return
        self.names.add(name)
        for parent in pathlib.PurePosixPath(name).parents:
            if str(parent) != ".":
                self.add(str(parent), stat.S_IFDIR | 0o755)
        self.number += 1
        path = name.encode() + b"\0"
        fields = (self.number, mode, 0, 0, 1, 0, len(contents), 0, 0, 0, 0, len(path), 0)
        self.write(b"070701" + b"".join(b"%08X" % field for field in fields) + path)
        self.write(contents)

    def write(self, data):
        self.bytes.write(data + b"\0" * (-(len(data)) % 4))

    def file(self, name, contents, mode=0o644):
        self.add(name, stat.S_IFREG | mode, contents)

    def finish(self):
        self.add("TRAILER!!!", 0)
        return self.bytes.getvalue()


def compiled(path, source):
    """The compiled form of a Python module, which the interpreter takes without a look at the source."""
    code = compile(source, "/" + path, "exec", dont_inherit=True)
    unchecked = (1).to_bytes(4, "little")
    return importlib.util.MAGIC_NUMBER + unchecked + importlib.util.source_hash(source) + marshal.dumps(code)


def modules_of_the_services(folder):
    """The parts of the Python library that the services import. The guest takes a quarter of a minute to compile
    them, and cannot keep the result; so they are compiled here, where Python is of the same version.
    @param folder  with the unpacked packages' Python modules"""
    library = f"usr/lib/python{sys.version_info.major}.{sys.version_info.minor}/"
    if not (folder / library).exists():
        return set()
    listing = ("import sys; sys.path.append(sys.argv[1]); import encodings, time, jeepney.bus_messages, "
               "jeepney.io.blocking; print(*(getattr(m, '__file__', None) for m in sys.modules.values()), sep='\\n')")
    names = subprocess.run([sys.executable, "-I", "-B", "-c", listing, folder / "usr/lib/python3/dist-packages"],
                           check=True, capture_output=True, text=True).stdout.split()
    ours = sysconfig.get_path("stdlib") + "/"
    return {name.replace(ours, library).removeprefix(f"{folder}/") for name in names if name.endswith(".py")}


def add_packages(archive, tree, imported):
    """The files of a tar file of unpacked packages."""
    with tarfile.open(tree) as packages:
        for entry in packages:
            name = entry.name.removeprefix("./")
            if not name or (entry.name + "/").startswith(LEFT_OUT):
                continue
            if entry.isdir():
                archive.add(name, stat.S_IFDIR | entry.mode)
            elif entry.issym():
                archive.add(name, stat.S_IFLNK | 0o777, entry.linkname.encode())
            elif entry.isfile() or entry.islnk():
                contents = packages.extractfile(entry).read()
                archive.file(name, contents, entry.mode)
                if name in imported:
                    path = pathlib.PurePosixPath(name)
                    cache = path.parent / "__pycache__" / f"{path.stem}.{sys.implementation.cache_tag}.pyc"
                    archive.file(str(cache), compiled(name, contents))


class Kernel:
    """The kernel, its modules and its device tree, from the tar file of unpacked packages."""

    def __init__(self, tree, folder):
        self.folder = folder
        wanted = ("boot/vmlinuz-", "lib/modules/", "usr/lib/linux-image-", "usr/lib/python3")
        with tarfile.open(tree) as packages:
            packages.extractall(folder, [entry for entry in packages
                                         if entry.name.removeprefix("./").startswith(wanted)])
        self.image = next((folder / "boot").glob("vmlinuz-*"))
        self.version = self.image.name.removeprefix("vmlinuz-")
        subprocess.run(["depmod", "-b", folder, self.version], check=True)

    def modules(self):
        """The files of MODULES and of what they depend on, in the order of loading."""
        files = []
        for module in MODULES:
            answer = subprocess.run(["modprobe", "-d", self.folder, "-S", self.version, "--show-depends", module],
                                    check=True, capture_output=True, text=True).stdout
            files += [pathlib.Path(line.split()[1]) for line in answer.splitlines() if line.startswith("insmod ")]
        return list(dict.fromkeys(files))

    def device_tree(self):
        """The board's, where the flash is a device of spidev, an I2C multiplexer is added, and no DMA engine
        is used, because QEMU has none."""
        original = next(self.folder.glob("usr/lib/linux-image-*/imx6q-sabrelite.dtb"))
        tree = self.folder / "board.dtb"
        tree.write_bytes(original.read_bytes())
        spba = "/soc/bus@2000000/spba-bus@2000000"
        spi = spba + "/spi@2008000"
        mux = "/soc/bus@2100000/i2c@21a4000/i2c-mux@70"
        for words in (["-d", tree, spi, "dmas", "dma-names"],
                      ["-d", tree, spba + "/serial@2020000", "dmas", "dma-names"],
                      ["-t", "s", tree, spi + "/flash@0", "compatible", "rohm,dh2228fv"],
                      ["-t", "i", tree, spi + "/flash@0", "spi-max-frequency", "50000000"],
                      ["-c", tree, mux],
                      ["-t", "s", tree, mux, "compatible", "nxp,pca9546"],
                      ["-t", "i", tree, mux, "reg", "112"]):
            subprocess.run(["fdtput", *words], check=True)
        return tree


def root_file_system(tree, kernel, programs, images):
    """All but the steps.
    @param images  the files for /images by name"""
    archive = Archive()
    for name in ("init", "services.py", "bus.conf", "steps.sh"):
        contents = (HERE / ("guest-" + name)).read_bytes()
        archive.file(name, contents, 0o755 if name == "init" else 0o644)
    files = kernel.modules()
    for file in files:
        archive.file("drivers/" + file.name, file.read_bytes())
    archive.file("modules", "".join(f"/drivers/{file.name}\n" for file in files).encode())
    archive.file("events", "\n".join(EVENTS).encode())
    for name, contents in images.items():
        archive.file("images/" + name, contents)
    for program in programs:
        archive.file("usr/bin/" + program.name, program.read_bytes(), 0o755)
    add_packages(archive, tree, modules_of_the_services(kernel.folder))
    return gzip.compress(archive.finish(), 1)


def steps_archive(steps):
    """The shell commands that the guest runs. The kernel unpacks one archive after the other."""
    archive = Archive()
    archive.file("steps", steps.encode())
    return gzip.compress(archive.finish())


class Qmp:
    """QEMU's monitor."""

    def __init__(self, connection):
        self.file = connection.makefile("rw")
        self.read()  # the greeting
        self.ask("qmp_capabilities")

    def read(self):
        return json.loads(self.file.readline())

    def ask(self, command, **arguments):
        self.file.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
        self.file.flush()
        while True:
            answer = self.read()
            if "error" in answer:
                raise RuntimeError(f"{command}: {answer['error']}")
            if "return" in answer:
                return answer["return"]


def run(kernel, tree, root, flash, folder, parameters):
    """Runs the guest until it says that it is over.
    @param flash  the file of the flash; it is changed
    @return the guest's /out, in `folder`"""
    initrd = folder / "root.cpio.gz"
    initrd.write_bytes(root)
    console, results = folder / "console", folder / "results"
    ours, theirs = socket.socketpair()
    command = ["qemu-system-arm", "-M", "sabrelite", "-m", "512", "-display", "none", "-no-reboot", "-nodefaults",
               "-kernel", kernel.image, "-dtb", tree, "-initrd", initrd,
               "-append", "console=ttymxc1,115200 quiet " + parameters,
               "-drive", f"if=mtd,format=raw,file={flash}",
               "-serial", f"file:{results}", "-serial", f"file:{console}",
               "-device", "dps310,bus=i2c-bus.0,address=0x20",
               "-device", "pca9546,bus=i2c-bus.1,address=0x70,id=mux",
               "-device", "dps310,bus=i2c.0,address=0x21",
               "-device", "tmp105,bus=i2c-bus.2,address=0x21,id=pyx2",
               "-chardev", f"socket,id=monitor,fd={theirs.fileno()}", "-mon", "chardev=monitor,mode=control"]
    with open(folder / "qemu", "wb") as messages:
        machine = subprocess.Popen(command, pass_fds=[theirs.fileno()], stderr=messages)
    theirs.close()
    try:
        monitor = Qmp(ours)
        monitor.ask("qom-set", path="/machine/peripheral/pyx2", property="temperature", value=1000)
        deadline = time.monotonic() + SECONDS
        while "The rehearsal is over." not in (console.read_text(errors="replace") if console.exists() else ""):
            if time.monotonic() > deadline or machine.poll() is not None:
                raise RuntimeError(f"the guest did not come to its end, see {console}")
            time.sleep(0.1)
        monitor.ask("quit")
        machine.wait()
    finally:
        machine.kill()
        machine.wait()
    out = folder / "out"
    with tarfile.open(results, "r:gz") as tar:
        tar.extractall(out)
    return out
