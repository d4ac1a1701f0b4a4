"""trace_picture.py TRACE: draws a trace of orvane-sim, an update of one wend, as SVG on standard output.

Three parts, each one a piece of the part above it: the whole run, the run up to the reset, and the
program of one page. The first part has all tracks with an event in them, the others those that have
one in their piece.
"""

import json
import sys
from html import escape

WIDTH = 1000
LEFT = 138  # where time begins
RIGHT = WIDTH - 14
ROW = 24
BAR = 18
LETTER = 5.7  # the width of a letter, on average
NANOSECOND = 0.001
SMALL = 2  # slices that are narrower are drawn together
COLOURS = {
    "message cost": "#c9c9c9",
    "spi": "#8dbbe8",
    "i2c": "#8dd0c0",
    "flash": "#f3b872",
    "console": "#cfe6c6",
    "sleep": "#d8c9ec",
    "look": "#ecdca0",
}
LEGEND = [
    ("message cost", "cost of an SPI message"),
    ("spi", "bytes on the SPI bus"),
    ("flash", "the chip works"),
    ("sleep", "the program sleeps"),
    ("look", "it looks at its clock"),
    ("console", "console, up to the next text"),
]
COUNTED = {"spi": "messages", "look": "looks", "sleep": "sleeps", "console": "texts"}


class Track:
    """A row of the picture."""

    def __init__(self, name):
        self.name = name
        self.events = []

    def within(self, begin, end):
        """The events of a piece of the run; of a line all of them, if it changes there."""
        found = [
            event
            for event in self.events
            if event["ts"] < end
            and (event["ts"] >= begin or event["ts"] + event.get("dur", 0) > begin + NANOSECOND)
        ]
        if found and found[0]["ph"] == "C":
            changes = [e for e in found[1:] if begin < e["ts"]]
            return self.events if len(set(level(e) for e in changes)) > 1 else []
        return found


class Picture:
    """The text of the picture, and how far down it has got."""

    def __init__(self):
        self.parts = []
        self.y = 0

    def add(self, element, text=None, **attributes):
        """Adds an element. A number has one decimal, and `_` in a name stands for `-`."""
        words = [
            f'{name.replace("_", "-")}="{value if isinstance(value, str) else f"{value:.1f}"}"'
            for name, value in attributes.items()
        ]
        end = "/>" if text is None else f">{escape(text)}</{element}>"
        self.parts.append(f"<{element} {' '.join(words)}{end}")

    def text(self, x, y, text, **attributes):
        """A text whose first letter is at x, unless `text_anchor` says something else."""
        self.add("text", text, x=x, y=y, **attributes)

    def svg(self):
        """The whole picture."""
        head = (
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{self.y}" '
            f'viewBox="0 0 {WIDTH} {self.y}" font-family="sans-serif" font-size="11">\n'
            '<rect width="100%" height="100%" fill="white"/>\n'
        )
        return head + "\n".join(self.parts) + "\n</svg>\n"


def level(event):
    """The level that a line has from this event on."""
    return event["args"]["level"]


def tracks_of(events):
    """The tracks of a trace, in the order of their processes; lines last in each process."""
    processes, tracks = {}, {}
    for event in events:
        key = (event["pid"], event.get("tid", event["name"]))
        if event["name"] == "process_name":
            processes[event["pid"]] = event["args"]["name"]
        elif event["name"] == "thread_name":
            tracks[key] = Track(event["args"]["name"])
        elif event["ph"] != "M":
            tracks.setdefault(key, Track(event["name"])).events.append(event)
    order = sorted(tracks, key=lambda key: list(processes).index(key[0]))
    return {(processes[key[0]], tracks[key].name): tracks[key] for key in order}


def time_text(microseconds, step):
    """A time on an axis with this step."""
    for unit, size in (("s", 1e6), ("ms", 1e3), ("µs", 1)):
        if step >= size / 10:
            return f"{microseconds / size:g} {unit}"
    return f"{microseconds:g} µs"


def step_of(length):
    """A round step that parts a length into 5 to 12 pieces."""
    step = 1
    while length / step > 12:
        for factor in (2, 2.5, 2):
            step *= factor
            if length / step <= 12:
                break
    return step


def short_name(event):
    """What there may be room for."""
    if event.get("cat") == "control file":
        kind, path = event["name"].split(" ")
        name = path.removesuffix("/value").rpartition("/")[2]
        return f'{name} = {event["args"]["bytes"]}' if kind == "write" else f"read {name}"
    if event.get("cat") == "spi":
        return " ".join(filter(None, (event["name"], event.get("args", {}).get("operands"))))
    if event.get("cat") == "flash":
        return f'{event["name"]} {event["args"].get("address", "")}'.strip()
    return event["name"]


class Panel:
    """A piece of the run with its axis."""

    def __init__(self, picture, title, begin, end, names_all=False):
        self.names_all = names_all  # whether each SPI command has its name
        self.picture = picture
        self.begin = begin
        self.end = end
        picture.text(14, picture.y + 14, title, font_weight="bold", font_size="12")
        picture.y += 24
        self.top = picture.y

    def x(self, time):
        """Where a time is, within the panel."""
        part = (min(max(time, self.begin), self.end) - self.begin) / (self.end - self.begin)
        return LEFT + part * (RIGHT - LEFT)

    def draw(self, tracks, every_track, piece):
        """Draws all rows and the axis.

        piece: the begin and the end of what is drawn below, or nothing
        """
        rows = [
            (name, track, track.within(self.begin, self.end))
            for name, track in tracks.items()
        ]
        rows = [row for row in rows if row[1].events and (every_track or row[2])]
        bottom = self.top + sum(self.height(row[2]) for row in rows)
        if piece:
            left, right = self.x(piece[0]), max(self.x(piece[1]), self.x(piece[0]) + 1.5)
            self.picture.add("rect", x=left, y=self.top - 2, width=right - left,
                             height=bottom - self.top + 2, fill="#fff3c9")
            points = [(left, bottom), (right, bottom), (RIGHT, bottom + 64), (LEFT, bottom + 64)]
            self.picture.add("polygon", points=" ".join(f"{x:.1f},{y}" for x, y in points),
                             fill="#fff8e2")
        self.draw_axis(bottom)
        process = None
        for name, track, events in rows:
            if name[0] != process:
                process = name[0]
                self.picture.add("line", x1=14.0, y1=self.picture.y, x2=float(RIGHT),
                                 y2=self.picture.y, stroke="#999")
            self.draw_label(name, rows)
            if track.events[0]["ph"] == "C":
                self.draw_line(track.events)
            else:
                self.draw_slices([e for e in events if e["ph"] == "X"])
                self.draw_instants([e for e in events if e["ph"] == "i"])
            self.picture.y += self.height(events)
        self.picture.y = bottom + 40

    def height(self, events):
        """Of a row: there is room for names below bars that are too narrow for them."""
        return ROW + 9 if self.names_all and events[:1] and events[0]["cat"] == "spi" else ROW

    def draw_label(self, name, rows):
        """The name of a track, and that of its process beside its first track."""
        process, track = name
        is_first = next(row[0] for row in rows if row[0][0] == process) == name
        y = self.picture.y + 16
        if is_first:
            self.picture.text(14, y, process, font_weight="bold", font_size="10", fill="#555")
        self.picture.text(LEFT - 6, y, track, text_anchor="end")

    def draw_axis(self, bottom):
        """The times, and a thin line through all rows at each."""
        step = step_of(self.end - self.begin)
        number = 0
        while number * step <= self.end - self.begin:
            x = self.x(self.begin + number * step)
            self.picture.add("line", x1=x, y1=self.top, x2=x, y2=bottom + 4, stroke="#ddd")
            self.picture.text(x, bottom + 15, time_text(number * step, step), text_anchor="middle",
                              fill="#444", font_size="10")
            number += 1

    def draw_slices(self, slices):
        """Bars; narrow ones that touch each other become one."""
        run = []
        for event in slices:
            left, right = self.x(event["ts"]), self.x(event["ts"] + event["dur"])
            narrow = right - left < SMALL
            if run and (not narrow or left - self.x(run[-1]["ts"] + run[-1]["dur"]) > 1):
                self.draw_run(run)
                run = []
            if narrow and not self.names_all:
                run.append(event)
            else:
                self.draw_bar(left, right, event["name"], event["cat"], short_name(event))
        if run:
            self.draw_run(run)

    def draw_run(self, run):
        """Many narrow slices as one bar, in the colour of what takes most of the time."""
        left = self.x(run[0]["ts"])
        right = max(self.x(run[-1]["ts"] + run[-1]["dur"]), left + 1)
        lengths = {}
        for event in run:
            lengths[event["name"]] = lengths.get(event["name"], 0) + event["dur"]
        category = run[0]["cat"]
        count = sum(event["name"] != "message cost" for event in run)
        text = f"{count} {COUNTED.get(category, run[0]['name'] + 's')}"
        text = text if count > 1 else short_name(run[0])
        self.draw_bar(left, right, max(lengths, key=lengths.get), category, text)

    def draw_bar(self, left, right, name, category, text):
        """A bar, with its text if there is room."""
        colour = COLOURS.get(name, COLOURS[category])
        top = self.picture.y + (ROW - BAR) / 2
        stroke = {"stroke": "#666", "stroke_width": "0.4"} if right - left > SMALL else {}
        self.picture.add("rect", x=left, y=top, width=max(right - left, 1.0), height=float(BAR),
                         fill=colour, **stroke)
        for size in (11, 9):
            if len(text) * LETTER * size / 11 < right - left - 2:
                self.picture.text((left + right) / 2, top + 13, text, text_anchor="middle",
                                  font_size=str(size))
                return
        if self.names_all and category == "spi" and name != "message cost":
            self.picture.text((left + right) / 2, top + BAR + 9, name, text_anchor="middle",
                              font_size="9")

    def draw_instants(self, instants):
        """Marks; those that are close to each other have one text."""
        groups = []
        for event in instants:
            x = self.x(event["ts"])
            if groups and x - groups[-1][0] < 4:
                groups[-1][1].append(event)
            else:
                groups.append((x, [event]))
        for number, (x, events) in enumerate(groups):
            after = groups[number + 1][0] if number + 1 < len(groups) else RIGHT
            before = groups[number - 1][0] if number > 0 else LEFT
            top = self.picture.y + (ROW - BAR) / 2
            self.picture.add("rect", x=x - 0.75, y=top, width=1.5, height=float(BAR), fill="#333")
            names = list(dict.fromkeys(map(short_name, events)))
            texts = [", ".join(names), f"{len(events)} events", str(len(events))]
            if len(names) == 1 and len(events) > 1:
                texts[0] = f"{names[0]}, {len(events)} times"
            for text in texts:
                length = len(text) * LETTER + 6
                if length < after - x:
                    self.picture.text(x + 4, top + 13, text)
                    break
                if length < x - before and number + 1 == len(groups):
                    self.picture.text(x - 4, top + 13, text, text_anchor="end")
                    break

    def draw_line(self, events):
        """The level of a line, as steps."""
        high, low = self.picture.y + 5, self.picture.y + ROW - 5
        path = []
        for event, after in zip(events, [*events[1:], {"ts": self.end}]):
            y = high if level(event) else low
            left, right = self.x(event["ts"]), self.x(after["ts"])
            path += [f"{left:.1f},{y}", f"{right:.1f},{y}"]
            if right - left > 60:
                self.picture.text(left + 6, low - 1 if level(event) else high + 7,
                                  "high" if level(event) else "low", fill="#888", font_size="9")
        self.picture.add("polyline", points=" ".join(path), fill="none", stroke="#1f6f78",
                         stroke_width="1.5")


def pieces_of(tracks):
    """The pieces of the run that the three parts show."""
    end = max(e["ts"] + e.get("dur", 0) for track in tracks.values() for e in track.events)
    resets = [
        e["ts"]
        for e in tracks["command", "control files"].events
        if e["name"].startswith("write ") and "zynq_hw_reset_n" in e["name"]
    ]
    bus = tracks["wend@1", "spidev1.0"].events
    starts = [
        number - 3  # the message before it, each with its cost
        for number, event in enumerate(bus)
        if event["name"] == "PP"
    ]
    return (0, end), (0, resets[0] * 1.02), (bus[starts[1]]["ts"], bus[starts[2]]["ts"] + 30)


def main():
    """Draws the trace that the command line names."""
    with open(sys.argv[1], encoding="utf-8") as file:
        tracks = tracks_of(json.load(file)["traceEvents"])
    whole, work, page = pieces_of(tracks)
    picture = Picture()
    pages = sum(event["name"] == "PP" for event in tracks["wend@1", "spidev1.0"].events)
    title = f"An update of a wend with an image of {pages / 4:g} KiB: {whole[1] / 1e6:.3f} s"
    picture.text(14, 24, title, font_size="15", font_weight="bold")
    x = 14
    for name, text in LEGEND:
        picture.add("rect", x=float(x), y=36.0, width=12.0, height=12.0, fill=COLOURS[name],
                    stroke="#666", stroke_width="0.4")
        picture.text(x + 17, 46, text)
        x += 34 + len(text) * LETTER
    picture.y = 62
    Panel(picture, "The whole run", *whole).draw(tracks, True, work)
    Panel(picture, "Up to the reset", *work).draw(tracks, False, page)
    title = f"One page: from {page[0] / 1e3:.3f} ms on"
    Panel(picture, title, *page, names_all=True).draw(tracks, False, None)
    empty = ", ".join(f"{track} ({process})" for (process, track) in tracks
                      if not tracks[process, track].events)
    picture.text(14, picture.y - 4, f"Tracks without an event: {empty}.", fill="#444")
    picture.y += 8
    sys.stdout.write(picture.svg())


main()
