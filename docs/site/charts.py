"""Pictures of the tables in docs/performance.md and docs/reliability.md, drawn for the width of a telephone."""
import html
import re

WIDTH = 360


def tables(tokens):
    """The tables among the tokens, each as rows of cells in Markdown."""
    rows, found = None, []
    for at, token in enumerate(tokens):
        if token.type == "table_open":
            rows = []
        elif token.type == "tr_open":
            rows.append([])
        elif token.type in ("th_open", "td_open"):
            rows[-1].append(tokens[at + 1].content)
        elif token.type == "table_close":
            found.append(rows)
    return found


def numbers(text):
    return [float(number.replace(",", "")) for number in re.findall(r"\d[\d,]*(?:\.\d+)?", text)]


def label(x, y, text, kind="", anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">{html.escape(text)}</text>\n'


def bar(x, y, width, height, kind):
    return f'<rect x="{x:.1f}" y="{y:.1f}" width="{max(width, 1):.1f}" height="{height}" class="{kind}"/>\n'


def picture(title, height, inside):
    title = html.escape(title)
    return f'<figure class="chart"><svg viewBox="0 0 {WIDTH} {height:.0f}" role="img" aria-label="{title}">\n{inside}' \
        f"</svg><figcaption>{title}</figcaption></figure>\n"


def bars(title, rows, header, own):
    """A group of bars for each row: its first cell says what was done, the others are the values of the header."""
    greatest = max(number for row in rows for cell in row[1:] for number in numbers(cell))
    parts, y = [], 0
    for row in rows:
        y += 16
        parts.append(label(0, y, row[0].rpartition(",")[0], "strong"))
        y += 6
        for name, cell in zip(header[1:], row[1:]):
            length = 140 * numbers(cell)[0] / greatest
            kind = "own" if name == own else "other"
            parts += [label(146, y + 12, name, "", "end"), bar(152, y + 1, length, 14, kind),
                      label(156 + length, y + 12, cell)]
            y += 18
        y += 6
    return picture(title, y, "".join(parts))


def peers(table):
    header, *rows = table
    cpu = [row for row in rows if row[0].endswith("CPU")]
    rate = [row for row in rows if row[0].endswith("a second")]
    return '<div class="charts">' + bars("CPU time of a transfer of 1 KiB: less is better", cpu, header, "pool") + \
        bars("Transfers of 1 KiB in a second: more is better", rate, header, "pool") + "</div>\n"


def programs(table):
    """Seconds of each program: the table's columns are told by its header, its rows by their first cell."""
    header, *rows = table
    turned = [[what + ","] + [row[header.index(column)] for row in rows]
              for what, column in (("wall clock", "wall s"), ("CPU", "CPU s"))]
    title = f"{header[0]}: seconds, less is better"
    return '<div class="charts">' + bars(title, turned, [""] + [row[0] for row in rows], "libnorla") + "</div>\n"


def ratios(table):
    """The rows whose ratio is one number or range and whose limit is near to 1: what the library costs."""
    chosen = []
    for row in table[1:]:
        what, ratio, limit = row[0], numbers(row[3]), numbers(row[4])
        if "," not in row[3] and 1 <= len(ratio) <= 2 and limit and limit[0] <= 1.1 and min(ratio) > 0.8:
            chosen.append((what, min(ratio), max(ratio), limit[0]))
    low, high = 0.85, 1.15
    place = 270 / (high - low)

    def at(number):
        return 5 + (min(max(number, low), high) - low) * place

    parts = [label(at(1), 12, "as bare libcurl", "", "middle")]
    y = 20
    for what, least, most, limit in chosen:
        said = f"{least:.2f}" if least == most else f"{least:.2f} to {most:.2f}"
        parts += [label(0, y + 11, what, "small"), bar(at(least), y + 15, at(most) - at(least) + 3, 8, "own"),
                  bar(at(limit), y + 13, 2, 12, "limit"),
                  label(WIDTH, y + 23, said, "small", "end")]
        y += 32
    line = f'<line x1="{at(1):.1f}" y1="16" x2="{at(1):.1f}" y2="{y}" class="one"/>\n'
    title = "Cost beside bare libcurl, which is 1: least and greatest median, and (red) the limit that fails a run"
    return '<div class="charts">' + picture(title, y + 4, line + "".join(parts)) + "</div>\n"


def outcomes(table):
    """How often a program was done, told an error, left a part or was wrong, over all faults."""
    header, *rows = table
    parts, y = [], 0
    for column, name in enumerate(header[1:], 1):
        counts = {"done": 0, "error": 0, "left": 0, "wrong": 0, "hang": 0}
        for row in rows:
            for count, word in re.findall(r"(\d+) (\w+)", row[column]):
                counts[word] += int(count)
        whole = sum(counts.values())
        words = ", ".join(f"{count} {word}" for word, count in counts.items() if count)
        parts.append(label(0, y + 14, f"{name}: {words}", "strong" if column == 1 else ""))
        x = 0
        for word, count in counts.items():
            if count:
                parts.append(bar(x, y + 20, WIDTH * count / whole - 1, 16, word))
                x += WIDTH * count / whole
        y += 48
    title = "How the runs of all faults ended: green is a whole file, grey an error that was told, " \
        "light red a part that was left under the name, red a success that was none"
    return '<div class="charts">' + picture(title, y, "".join(parts)) + "</div>\n"


# Page, what the first cell of the table's header and its second row begin with, picture.
CHARTS = [
    ("docs/performance.md", "What", ratios),
    ("docs/performance.md", "", peers),
    ("docs/performance.md", "1024 MiB from a file, in parts of 8 MiB, 4 at once", programs),
    ("docs/performance.md", "1024 MiB into a file, one connection, MD5 compared", programs),
    ("docs/performance.md", "1024 MiB, one connection", programs),
    ("docs/performance.md", "1000 files of 100 KiB, 16 at once", programs),
    ("docs/reliability.md", "Fault", outcomes),
]


def before_tables(name, tokens, problems):
    """Picture and number of the table that it stands before, for the charts of a page."""
    found = tables(tokens)
    for page, corner, draw in CHARTS:
        if page == name:
            places = [at for at, rows in enumerate(found) if rows[0][0] == corner]
            if places:
                yield places[0], draw(found[places[0]])
            else:
                problems.append(f"{name} has no table whose first cell is '{corner}', of which there is a picture")
