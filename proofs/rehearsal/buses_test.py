"""Tests of what is read from the kernel's trace and from the log of the virtual instrument."""
import unittest

from buses import Log, Trace, TraceError, without_polls


def line(event, text):
    return f"        tarnwick-386     [000] .....    15.987355: {event}: {text}\n"


def transfer(length, sent="", received=""):
    start = line("spi_transfer_start", f"spi0.0 b24d5191 len={length} tx=[{sent}] rx=[]")
    return start + line("spi_transfer_stop", f"spi0.0 b24d5191 len={length} tx=[{sent}] rx=[{received}]")


def message(length, transfers, done=None):
    return (line("spi_message_start", "spi0.0 cc132fea") + line("spi_set_cs", "spi0.0 activate, cs_high")
            + transfers + line("spi_set_cs", "spi0.0 deactivate, cs_high")
            + line("spi_message_done", f"spi0.0 cc132fea len={done or length}/{length}"))


WRITE_ENABLE = message(1, transfer(1, "06"))


class TraceTest(unittest.TestCase):
    def test_commands_are_those_of_the_log(self):
        trace = Trace(WRITE_ENABLE
                      + message(260, transfer(260, "02-01-23-00-aa-55"))
                      + message(2, transfer(1, "05") + transfer(1, received="02"))
                      + message(4100, transfer(4, "03-00-00-00") + transfer(4096, received="fe-ff"))
                      + message(4, transfer(1, "9f") + transfer(3, received="bf-25-41"))
                      + message(4, transfer(4, "d8-01-00-00")))
        log = Log("spi /dev/spidev1.0 speed 19000000 bits 8\n"
                  "spi /dev/spidev1.0 WREN\n"
                  "spi /dev/spidev1.0 PP 0x012300 +256\n"
                  "spi /dev/spidev1.0 RDSR = 00\n"
                  "spi /dev/spidev1.0 READ 0x000000 +4096\n"
                  "spi /dev/spidev1.0 RDID = bf 25 41\n"
                  "spi /dev/spidev1.0 SE 0x010000\n")
        self.assertEqual(trace.commands(), log.commands)
        self.assertEqual(trace.selects[1].address(), 0x012300)
        self.assertEqual(trace.selects[2].received, b"\x02")

    def test_message_that_was_not_transferred_whole_is_refused(self):
        with self.assertRaisesRegex(TraceError, "only 3 of 4 bytes"):
            Trace(message(4, transfer(4, "d8-01-00-00"), done=3))

    def test_chip_select_that_rises_within_a_message_is_refused(self):
        rise = line("spi_set_cs", "spi0.0 deactivate, cs_high")
        with self.assertRaisesRegex(TraceError, "without chip select"):
            Trace(message(2, transfer(1, "05") + rise + transfer(1, received="00")))

    def test_chip_select_that_stays_low_is_refused(self):
        text = WRITE_ENABLE.replace("deactivate", "activate")
        with self.assertRaisesRegex(TraceError, "stays low"):
            Trace(text)

    def test_message_without_an_end_is_refused(self):
        with self.assertRaisesRegex(TraceError, "does not end"):
            Trace("".join(WRITE_ENABLE.splitlines(keepends=True)[:-1]))

    def test_line_that_is_not_understood_is_refused(self):
        with self.assertRaisesRegex(TraceError, "not understood"):
            Trace("CPU:0 [LOST 12 EVENTS]")

    def test_expander_messages_are_those_of_their_bus(self):
        trace = Trace(line("i2c_write", "i2c-1 #0 a=070 f=0000 l=1 [01]")
                      + line("i2c_write", "i2c-3 #0 a=021 f=0000 l=1 [02]")
                      + line("i2c_read", "i2c-3 #1 a=021 f=0001 l=2")
                      + line("i2c_reply", "i2c-3 #1 a=021 f=0001 l=2 [a0-3e]")
                      + line("i2c_result", "i2c-3 n=2 ret=2"))
        log = Log("i2c /dev/i2c-11 0x21 w 02 r a0 3e\n")
        self.assertEqual(trace.expander(3), ["21 w 02", "21 r a0 3e"])
        self.assertEqual(trace.expander(3), log.expander)

    def test_failed_i2c_transfer_is_refused(self):
        with self.assertRaisesRegex(TraceError, "failed"):
            Trace(line("i2c_result", "i2c-3 n=2 ret=-6"))


class LogTest(unittest.TestCase):
    def test_what_does_not_reach_the_bus_is_left_out(self):
        log = Log("spi /dev/spidev1.0 READ 0x000000 +300 = EMSGSIZE\n"
                  "spi /dev/spidev1.0 PP 0x000000 +256 = kill\n")
        self.assertEqual(log.commands, [])

    def test_what_is_written_to_control_files_is_kept(self):
        log = Log('write /sys/platform_m1/qspi_prg/value "1"\n'
                  'write /sys/platform_m1/qspi_prg/value "0"\n'
                  'write dumpflash.bin +512\n')
        self.assertEqual(log.files, {"/sys/platform_m1/qspi_prg/value": "0"})

    def test_readings_of_the_status_in_a_row_count_once(self):
        self.assertEqual(without_polls(["WREN", "RDSR", "RDSR", "WREN", "RDSR"]), ["WREN", "RDSR", "WREN", "RDSR"])


unittest.main()
