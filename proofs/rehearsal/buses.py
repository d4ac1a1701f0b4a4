"""What happened on the buses: read from the kernel's trace, and from the log of the virtual instrument."""
import dataclasses
import re

# As the log of the virtual instrument names the commands of a flash: opcode, name, what follows.
COMMANDS = {0x01: ("WRSR", "values"), 0x02: ("PP", "data"), 0x03: ("READ", "read"), 0x05: ("RDSR", ""),
            0x06: ("WREN", ""), 0x15: ("RDCR", ""), 0x20: ("SSE", "address"), 0x9F: ("RDID", ""),
            0xD8: ("SE", "address")}
TRACED_BYTES = 64  # of each transfer
HEADER_BYTES = 4   # opcode and address


class TraceError(Exception):
    pass


@dataclasses.dataclass
class Select:
    """What one chip select carried."""
    sent: bytes = b""     # at most TRACED_BYTES of each transfer
    sent_bytes: int = 0
    received: bytes = b""  # likewise
    received_bytes: int = 0

    def command(self):
        if not self.sent or self.sent[0] not in COMMANDS:
            return self.sent.hex(" ")
        name, shape = COMMANDS[self.sent[0]]
        if shape == "values":
            return f"{name} {self.sent[1:].hex(' ')}"
        if shape == "":
            return name
        text = f"{name} 0x{self.sent[1:HEADER_BYTES].hex()}"
        return text + {"address": "", "data": f" +{self.sent_bytes - HEADER_BYTES}",
                       "read": f" +{self.received_bytes}"}[shape]

    def address(self):
        return int.from_bytes(self.sent[1:HEADER_BYTES], "big")


def of_brackets(text):
    return bytes.fromhex(text.replace("-", ""))


class Trace:
    """The kernel's trace of a step."""

    def __init__(self, text):
        self.selects = []   # of the flash, in their order
        self.i2c = []       # (bus, address, bytes written or None, bytes read or None)
        self.open = None    # the message that is under way
        self.low = False    # chip select
        for line in text.splitlines():
            match = re.match(r".* (spi|i2c)_(\w+): (.*)", line)
            if not match:
                raise TraceError(f"not understood: {line}")
            getattr(self, f"take_{match[1]}_{match[2]}")(match[3])
        if self.open is not None:
            raise TraceError("the last message does not end")

    def take_spi_message_start(self, _):
        if self.open is not None or self.low:
            raise TraceError("a message starts within another")
        self.open = Select()

    def take_spi_set_cs(self, text):
        self.low = "deactivate" not in text

    def take_spi_transfer_start(self, _):
        if not self.low:
            raise TraceError("a transfer without chip select")

    def take_spi_transfer_stop(self, text):
        length, sent, received = re.search(r"len=(\d+) tx=\[(.*?)\] rx=\[(.*?)\]", text).groups()
        if not self.low:
            raise TraceError("chip select rose within a message")
        if sent:
            self.open.sent += of_brackets(sent)
            self.open.sent_bytes += int(length)
        if received:
            self.open.received += of_brackets(received)
            self.open.received_bytes += int(length)

    def take_spi_message_done(self, text):
        if self.low:
            raise TraceError("chip select stays low after a message")
        done, whole = re.search(r"len=(\d+)/(\d+)", text).groups()
        if done != whole:
            raise TraceError(f"only {done} of {whole} bytes were transferred")
        self.selects.append(self.open)
        self.open = None

    def take_i2c_write(self, text):
        bus, address, written = re.match(r"i2c-(\d+) #\d+ a=(\w+) .*\[(.*)\]", text).groups()
        self.i2c.append((int(bus), int(address, 16), of_brackets(written), None))

    def take_i2c_read(self, _):
        pass

    def take_i2c_reply(self, text):
        bus, address, read = re.match(r"i2c-(\d+) #\d+ a=(\w+) .*\[(.*)\]", text).groups()
        self.i2c.append((int(bus), int(address, 16), None, of_brackets(read)))

    def take_i2c_result(self, text):
        if "ret=-" in text:
            raise TraceError(f"an I2C transfer failed: {text}")

    def commands(self):
        return [select.command() for select in self.selects]

    def expander(self, bus):
        """The messages on one bus: "21 w 02 a0 3e", "21 r c0 2d"."""
        return [f"{address:02x} w {written.hex(' ')}" if read is None else f"{address:02x} r {read.hex(' ')}"
                for number, address, written, read in self.i2c if number == bus]


class Log:
    """The log of the virtual instrument of a step."""

    def __init__(self, text):
        self.commands, self.expander, self.files = [], [], {}
        for line in text.splitlines():
            kind, _, rest = line.partition(" ")
            # What the driver refuses never reaches the bus, nor does what a fault rule ends.
            if kind == "spi" and " speed " not in rest and not rest.endswith((" = EMSGSIZE", " = kill")):
                self.commands.append(rest.split(" ", 1)[1].split(" = ")[0])
            elif kind == "i2c":
                _, address, messages = rest.split(" ", 2)
                for message in re.split(r" (?=[wr] )", messages):
                    self.expander.append(f"{int(address, 16):02x} {message}")
            elif kind == "write" and rest.startswith("/sys/"):
                path, _, text = rest.partition(" ")
                self.files[path] = text.strip('"')


def without_polls(commands):
    """How often the status is read depends on how long a chip is busy: each row of readings counts once."""
    return [command for at, command in enumerate(commands)
            if command != "RDSR" or at == 0 or commands[at - 1] != "RDSR"]
