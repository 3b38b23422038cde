"""index.html: all captures on one page, which needs no server and nothing from outside."""

import html
import os
import shlex
import time
import urllib.parse

import folders
import judge
import rows as all_rows
from text import indicators_text, shown, size_text, time_text

HEADS = (("Result", ""), ("Capture", ""), ("Alerts", "n"), ("Found", ""), ("When", ""), ("Length", "n"),
         ("Mbit/s", "n"), ("Size", "n"))
SORTABLE = {"Result", "Capture", "Alerts", "Length", "Mbit/s", "Size"}
COLOURS = {"clean": "good", "bad": "bad", "unchecked": "warn"}
HEAD = """<!doctype html>
<html lang=en><head><meta charset=utf-8><meta name=viewport content="width=device-width,initial-scale=1">
<title>{title}</title><style>{style}</style></head>
<body><main><p class=kicker>korva-archive · {date}</p><h1>{title}</h1>
"""
FORM = """<form hidden><label>Show <select id=show>{choices}</select></label>
<label>Find <input id=find type=search></label><output id=count></output></form>
"""


def part(name):
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), name), encoding="utf-8") as file:
        return file.read()


def escaped(text):
    return html.escape(shown(text))


def state_of(row):
    return "clean" if all_rows.is_clean(row) else "bad" if all_rows.is_checked(row) else "unchecked"


def counts_of(rows):
    states = [state_of(row) for row in rows]
    return {state: states.count(state) for state in ("bad", "unchecked", "clean")}


def verdict(rows, totals):
    """Green only when all captures were checked and are clean."""
    counts = counts_of(rows)
    worst = next((state for state, n in counts.items() if n), "unchecked")
    shares = "".join(f'<i class={COLOURS[state]} style="flex:{n}"></i>' for state, n in counts.items() if n)
    yield f'<section class="verdict {COLOURS[worst]}"><strong>{escaped(totals.summary())}</strong>'
    found = [f"<span>{kind} {n} <small>in {sum(kind in row['kinds'] for row in rows)}</small></span>"
             for kind, n in all_rows.kinds_of(rows).items()]
    yield f"<p>{', '.join(found) or 'Nothing was found.'}</p>"
    yield f"<div class=share aria-hidden=true>{shares}</div></section>\n"


def choices(rows):
    counts = counts_of(rows)
    sums = {"bad": ("what is not clean", counts["bad"] + counts["unchecked"]),
            "unchecked": ("what was not checked", counts["unchecked"]), "all": ("all captures", len(rows))}
    chosen = "bad" if sums["bad"][1] else "all"
    return "".join(f"<option value={value}{' selected' if value == chosen else ''}>{text} ({n})"
                   for value, (text, n) in sums.items())


def lane(row):
    """Strokes where there were findings, from the begin of the capture to its end."""
    if not row["lane"]:
        return ""
    places = sorted({place for places in row["lane"].values() for place in places})
    first, last = places[0] * 100 // judge.LANE, (places[-1] + 1) * 100 // judge.LANE
    name = f"findings between {first} and {last} % of the capture, in {len(places)} of {judge.LANE} parts"
    paths = "".join(f'<path class={"bad" if severity == "fail" else "warn"} d="'
                    + "".join(f"M{place + .5} 0v10" for place in row["lane"][severity]) + '"/>'
                    for severity in ("note", "warn", "fail") if severity in row["lane"])
    return f'<svg viewBox="0 0 {judge.LANE} 10" preserveAspectRatio=none role=img aria-label="{name}">{paths}</svg>'


def link_of(output, row):
    """To the capture's page; without one, to what korva said."""
    for name in ("korva.html", "korva.report"):
        try:
            if folders.status_of(f"{output}/files{row['file']}/{name}").st_size:
                return urllib.parse.quote(f"files{row['file']}/{name}", errors="surrogateescape")
        except OSError:
            continue
    return None


def number(name, value, text):
    shown_value = "" if value is None else text(value)
    return f'<td class=n data-name="{name}" data-key="{value or 0}">{shown_value}'


def what(row):
    """Kinds stay on their line."""
    kinds = ", ".join(f"<span>{kind} {n}</span>" for kind, n in row["kinds"].items())
    return "; ".join(filter(None, [kinds, indicators_text(row), escaped(row["detail"])]))


def row_lines(output, rank, row):
    state = state_of(row)
    folder, _, name = row["file"].rpartition("/")
    link = link_of(output, row)
    name = f'<a href="{html.escape(link)}">{escaped(name)}</a>' if link else escaped(name)
    yield f'<tr data-is={state} data-path="{escaped(row["file"])}">'
    yield f"<td class=\"r {COLOURS[state]}\" data-key={rank}>{row['result']}"
    yield f"<th scope=row>{name} <small>{escaped(folder)}</small>"
    yield number("alerts", row["alerts"], lambda n: str(n) if n else "")
    yield f"<td class=w>{what(row)}<td class=lane>{lane(row)}"
    yield number("length", row["duration"], time_text)
    yield number("Mbit/s", row["bitrate"], lambda rate: f"{rate / 1e6:.2f}")
    yield number("size", row["size"], size_text) + "\n"


def head_cell(name, style):
    sort = ' aria-sort=ascending' if name == "Result" else ""
    text = f"<button type=button disabled>{name}</button>" if name in SORTABLE else name
    return f'<th scope=col class="{style}"{sort}>{text}'


def page_parts(options, rows, totals):
    title = escaped(os.path.basename(options.output))
    date = time.strftime("%Y-%m-%d %H:%M %Z", time.localtime(time.time() - totals.seconds))
    yield HEAD.format(title=title, date=date, style=part("page.css"))
    yield from verdict(rows, totals)
    yield "<h2>Captures</h2>\n" + FORM.format(choices=choices(rows))
    yield f"<table><thead><tr>{''.join(head_cell(*head) for head in HEADS)}</thead><tbody>\n"
    for rank, row in enumerate(rows):
        yield from row_lines(options.output, rank, row)
    options_text = escaped(shlex.join(options.korva_options)) or "no options"
    yield ("</tbody></table><footer>The lanes go from the begin of each capture to its end. All rows with more numbers: "
           "<a href=table.csv>table.csv</a>; all findings: <a href=findings.jsonl>findings.jsonl</a>. "
           f"korva was run with {options_text}.</footer></main>")
    yield f"<script>{part('page.js')}</script></body></html>\n"


def write_page(options, rows, totals):
    parts = page_parts(options, rows, totals)
    folders.write_whole(f"{options.output}/index.html", (part.encode() for part in parts))
