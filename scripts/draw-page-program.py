"""draw-page-program.py FILE.vcd NODE > PICTURE.svg

Draws the first page program on the SPI bus of a node, "spidev1_0": write enable, the page, and the
status reads until the chip is ready. For scripts/page-program-picture.
"""
import collections
import sys

WIDTH = 1000
LEFT = 62  # of the lines
RIGHT = 985
LINES = ("CS", "CLK", "MOSI", "MISO")
LINE_HEIGHT = 22  # between the two levels
LINE_STEP = 46
COLOURS = {"CS": "#8a3b00", "CLK": "#555555", "MOSI": "#00529b", "MISO": "#1b7032"}
BIT_WIDTH = 17
GAP = 38  # between the parts of a zoomed row
NEAR = 1  # times are whole nanoseconds, bits are not

WREN, PAGE_PROGRAM, READ_STATUS = 0x06, 0x02, 0x05
BUSY = 0x01

Change = collections.namedtuple("Change", "at line level")


class Select:
    """What passes while chip select is low."""

    def __init__(self, begin, levels):
        self.begin = begin
        self.end = None
        self.before = dict(levels)  # the levels at the begin
        self.changes = []
        self.bits = []  # (time, MOSI, MISO) as the clock rises

    def byte(self, number, line):
        bits = self.bits[8 * number:8 * number + 8]
        return int("".join(str(bit[1 if line == "MOSI" else 2]) for bit in bits), 2)

    def command(self):
        return self.byte(0, "MOSI")

    def count(self):
        return len(self.bits) // 8


def read_selects(path, node):
    """All selects of the node, in their order."""
    names = {}
    levels = {}
    now = 0
    selects = []
    current = None
    with open(path, encoding="ascii") as file:
        for text in file:
            words = text.split()
            if not words:
                continue
            if words[0] == "$var" and words[4].rsplit("_", 1)[0] == node:
                names[words[3]] = words[4].rsplit("_", 1)[1]
            elif text[0] == "#":
                now = int(text[1:])
            elif text[0] in "01" and text[1:].strip() in names:
                line, level = names[text[1:].strip()], int(text[0])
                if line == "CS" and level == 0:
                    current = Select(now, levels)
                    selects.append(current)
                if current:
                    current.changes.append(Change(now, line, level))
                levels[line] = level
                if line == "CLK" and level == 1:
                    current.bits.append((now, levels["MOSI"], levels["MISO"]))
                if line == "CS" and level == 1 and current:
                    current.end = now
                    current = None
    return selects


def page_program(selects):
    """Write enable, the page, and the status reads up to the first that shows no work."""
    at = next(i for i, select in enumerate(selects) if select.command() == PAGE_PROGRAM)
    assert selects[at - 1].command() == WREN
    chosen = selects[at - 1:at + 1]
    for select in selects[at + 1:]:
        assert select.command() == READ_STATUS
        chosen.append(select)
        if not select.byte(1, "MISO") & BUSY:
            return chosen
    raise ValueError("the chip is never ready")


def label(select):
    """As the log shows the command."""
    if select.command() == WREN:
        return "WREN"
    if select.command() == READ_STATUS:
        return f"RDSR = {select.byte(1, 'MISO'):02x}"
    address = "".join(f"{select.byte(i, 'MOSI'):02x}" for i in (1, 2, 3))
    return f"PP 0x{address} +{select.count() - 4}"


def meaning(select, number):
    """What a byte of the select is."""
    if number == 0:
        return "command"
    if select.command() == READ_STATUS:
        return "status"
    return "address" if number <= 3 else "data"


class Picture:
    def __init__(self):
        self.parts = []

    def add(self, text):
        self.parts.append(text)

    def text(self, x, y, words, anchor="middle", colour="#222222", size=13, bold=False):
        weight = ' font-weight="bold"' if bold else ""
        self.add(f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}" '
                 f'fill="{colour}"{weight}>{words}</text>')

    def path(self, points, colour, width=1.4):
        steps = "".join(f"{'M' if i == 0 else 'L'}{x:.1f} {y:.1f}"
                        for i, (x, y) in enumerate(points))
        self.add(f'<path d="{steps}" fill="none" stroke="{colour}" stroke-width="{width}"/>')

    def box(self, x, y, width, height, colour):
        self.add(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" '
                 f'fill="{colour}"/>')

    def write(self, height):
        print(f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
              f'viewBox="0 0 {WIDTH} {height}" font-family="sans-serif">')
        print("<title>A page program on SPI: CS, CLK, MOSI and MISO</title>")
        print(f'<rect width="{WIDTH}" height="{height}" fill="white"/>')
        print("\n".join(self.parts))
        print("</svg>")


def level_y(top, line, level):
    return top + LINES.index(line) * LINE_STEP + (0 if level else LINE_HEIGHT)


def line_names(picture, top):
    for line in LINES:
        picture.text(LEFT - 10, level_y(top, line, 0) - 6, line, "end", COLOURS[line], 13, True)


def microseconds(nanoseconds):
    return f"{nanoseconds / 1000:.1f} µs"


def draw_overview(picture, top, selects):
    """All of it on one scale. Lines that change too often to be seen are a block."""
    start = selects[0].begin
    length = selects[-1].end - start

    def x(at):
        return LEFT + 14 + (at - start) * (RIGHT - LEFT - 30) / length

    line_names(picture, top)
    for line in LINES:
        idle = level_y(top, line, 1 if line == "CS" else 0)
        picture.path([(LEFT, idle), (RIGHT, idle)], COLOURS[line])
    for select in selects:
        begin = x(select.begin)
        width = max(x(select.end) - begin, 2)
        for line in LINES:
            high = level_y(top, line, 1)
            if line == "CS":
                picture.box(begin, high - 1, width, 2.4, "white")
                picture.path([(begin, high), (begin, high + LINE_HEIGHT),
                              (begin + width, high + LINE_HEIGHT), (begin + width, high)],
                             COLOURS[line])
            elif line == "CLK" or any(change.line == line for change in select.changes):
                picture.box(begin, high, width, LINE_HEIGHT, COLOURS[line])
        anchor = "middle"
        middle = begin + width / 2
        if select is selects[0]:
            anchor, middle = "start", begin - 6
        elif select is selects[-1]:
            anchor, middle = "end", RIGHT
        if select.command() == READ_STATUS:  # two lines, as the next one is near
            picture.text(middle, top - 28, "RDSR", anchor, bold=True)
            picture.text(middle, top - 12, f"= {select.byte(1, 'MISO'):02x}", anchor, bold=True)
        else:
            picture.text(middle, top - 12, label(select), anchor, bold=True)
    axis = level_y(top, "MISO", 0) + 18
    picture.path([(LEFT, axis), (RIGHT, axis)], "#999999", 1)
    step = 20_000
    for tick in range(0, length + 1, step):
        picture.path([(x(start + tick), axis), (x(start + tick), axis + 5)], "#999999", 1)
        picture.text(x(start + tick), axis + 19, f"{tick // 1000}", size=12, colour="#555555")
    picture.text(LEFT - 10, axis + 19, "µs", "end", "#555555", 12)
    return axis + 19


def draw_bytes(picture, top, left, select, first, last, start):
    """The bytes from `first` up to `last`, bit by bit. Returns where they end."""
    is_end = last == select.count()
    bit_time = (select.end - select.begin) / len(select.bits)
    # A byte begins half a bit before its first rising edge.
    origin = select.bits[8 * first][0] - bit_time / 2
    scale = BIT_WIDTH / bit_time

    def x(at):
        return left + (at - origin) * scale

    right = left + 8 * (last - first) * BIT_WIDTH
    lead = 9 if first == 0 else 0
    tail = 9 if is_end else 0
    for number in range(first, last + 1):
        edge = left + 8 * (number - first) * BIT_WIDTH
        picture.add(f'<path d="M{edge:.1f} {top - 6} L{edge:.1f} {level_y(top, "MISO", 0) + 4}" '
                    'stroke="#cccccc" stroke-width="1" stroke-dasharray="3 3"/>')
    for line in LINES:
        level = select.before[line]
        points = []
        for change in select.changes:
            if change.line != line:
                continue
            place = x(change.at)
            if place > right + (NEAR if is_end else -NEAR):
                break
            if place < left + (-NEAR if first == 0 else NEAR):  # before this part
                level = change.level
                continue
            if not points:
                points.append((left - lead, level_y(top, line, level)))
            points += [(place, level_y(top, line, level)),
                       (place, level_y(top, line, change.level))]
            level = change.level
        if not points:
            points.append((left - lead, level_y(top, line, level)))
        points.append((right + tail, level_y(top, line, level)))
        picture.path(points, COLOURS[line])
    for number in range(first, last):
        middle = left + (8 * (number - first) + 4) * BIT_WIDTH
        picture.text(middle, level_y(top, "CS", 0) + 16, meaning(select, number), size=12,
                     colour="#555555")
        for line in ("MOSI", "MISO"):
            picture.text(middle, level_y(top, line, 1) - 5, f"{select.byte(number, line):02x}",
                         colour=COLOURS[line])
    if first == 0:
        picture.text(left - lead, level_y(top, "MISO", 0) + 20,
                     microseconds(select.begin - start), "start", "#555555", 12)
    if is_end:
        picture.text(right + tail, level_y(top, "MISO", 0) + 20,
                     microseconds(select.end - start), "end", "#555555", 12)
    else:
        picture.text(right, level_y(top, "MISO", 0) + 20,
                     f"a bit takes {bit_time:.1f} ns", "end", "#555555", 12)
    return right


def draw_row(picture, top, parts, start):
    """Parts of selects on one scale, with gaps between them."""
    line_names(picture, top)
    left = LEFT + 12
    for select, first, last, words in parts:
        right = draw_bytes(picture, top, left, select, first, last, start)
        picture.text((left + right) / 2, top - 12, words, bold=True)
        left = right + GAP
    return level_y(top, "MISO", 0) + 20


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    selects = page_program(read_selects(sys.argv[1], sys.argv[2]))
    enable, page = selects[:2]
    start = enable.begin
    picture = Picture()
    bottom = draw_overview(picture, 56, selects)
    end = page.count()
    bottom = draw_row(picture, bottom + 56, [
        (enable, 0, 1, label(enable)),
        (page, 0, 5, label(page)),
    ], start)
    bottom = draw_row(picture, bottom + 56, [
        (page, end - 1, end, "PP, last byte"),
        (selects[2], 0, 2, label(selects[2])),
        (selects[-1], 0, 2, label(selects[-1])),
    ], start)
    picture.write(bottom + 16)


main()
