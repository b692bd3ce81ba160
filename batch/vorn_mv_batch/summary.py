# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""summary.html: one page that needs nothing else, of what a run found out."""

import array
import base64
import html
import os
import re
import time
import urllib.parse

from . import VERSION
from .charts import control_chart, histogram, is_beyond, number
from .series import Series, judge
from .style import STYLE

# Members of reports that say how long something took.
TIMES = re.compile(r"\.(times?|seconds)(\.|\Z)")
FIRST_CHARTS = 6
MOST_CHARTS = 48
MOST_CARDS = 24
MOST_NAMES = 200
MOST_ROWS = 2000
LARGEST_PREVIEW = 400_000
LARGEST_PREVIEWS = 6_000_000
PICTURES = {".png": "image/png", ".jpg": "image/jpeg", ".jpeg": "image/jpeg", ".svg": "image/svg+xml"}


class Collector:
    """Takes the results one by one; keeps the figures as plain numbers, so that many jobs fit."""

    def __init__(self, plan):
        self.plan = plan
        self.names = []
        self.states = []
        self.figures = {}
        self.failures = []
        self.changed = []
        self.warnings = 0
        self.seconds = array.array("d")

    def add(self, name, state, line):
        """`state` is done, failed, changed or open; `line` that of results.jsonl, if there is one."""
        job = len(self.names)
        self.names.append(name)
        self.states.append(state)
        if line is None:
            return
        if state == "failed":
            self.failures.append((name, line["error"]["text"]))
            return
        if state == "changed":
            self.changed.append((name, line["changedSince"]))
        self.seconds.append(line["seconds"])
        self.warnings += len(line["warnings"])
        for key, value in line["figures"].items():
            jobs, values = self.figures.setdefault(key, (array.array("l"), array.array("d")))
            jobs.append(job)
            values.append(value)

    def count(self, state):
        return self.states.count(state)

    def series(self):
        """The plan's figures, and the others that vary, each as a list of Series."""
        chosen = []
        for figure in self.plan.figures:
            jobs, values = self.figures.get(figure.source, ([], []))
            chosen.append(Series(figure.name, figure.unit, figure.low, figure.high, list(jobs), list(values)))
        sources = {figure.source for figure in self.plan.figures}
        others = [Series(key, jobs=list(jobs), values=list(values))
                  for key, (jobs, values) in sorted(self.figures.items())
                  if key not in sources and len(values) > 1 and min(values) < max(values)]
        # How long something took says nothing about a part: last.
        others.sort(key=lambda series: bool(TIMES.search(series.name)))
        return chosen, others


def cause_of(text):
    """An error without what differs from job to job: names, paths and numbers."""
    text = re.sub(r'"[^"]*"|\'[^\']*\'', "…", text)
    text = re.sub(r"(?<![\w/])[\w.-]*/[^\s:,;)]*", "…", text)
    return re.sub(r"(?<![\w])[-+]?\d+(\.\d+)?([eE][-+]?\d+)?(?![\w])", "n", text)


def escaped(text):
    return html.escape(str(text), quote=True)


class Summary:
    def __init__(self, collector, store):
        self.collector = collector
        self.store = store
        chosen, others = collector.series()
        self.judged = [(series, judge(series.values)) for series in chosen if series.values]
        self.without = [series.name for series in chosen if not series.values]
        self.others = [(series, judge(series.values)) for series in others]
        # Without figures of the plan those of the reports are judged, but for times.
        self.counted = self.judged or [pair for pair in self.others if not TIMES.search(pair[0].name)]
        self.reasons = self.find_outliers()
        self.room = LARGEST_PREVIEWS

    def find_outliers(self):
        """{job: [(how far out, text)]}, the worst first."""
        found = {}
        for series, judgement in self.counted:
            outliers = set(judgement.outliers())
            for index, value in enumerate(series.values):
                score = abs(judgement.scores[index])
                beyond = is_beyond(series, value)
                if index in outliers or beyond:
                    text = f"{series.name} {number(value)}{' ' + series.unit if series.unit else ''}"
                    text += ": out of tolerance" if beyond else ": unlike its neighbours"
                    found.setdefault(series.jobs[index], []).append((beyond and index not in outliers, score, text))
        ranked = sorted(found.items(), key=lambda item: -max(score for _, score, _ in item[1]))
        return {job: [text for _, _, text in sorted(reasons, key=lambda r: -r[1])] for job, reasons in ranked}

    def page(self):
        collector = self.collector
        title = escaped(collector.plan.name)
        parts = ["<!DOCTYPE html>", '<html lang="en"><head><meta charset="utf-8">',
                 '<meta name="viewport" content="width=device-width, initial-scale=1">',
                 f"<title>{title}: summary</title><style>{STYLE}</style></head><body><main>",
                 f'<header><h1>{title}</h1><p>{len(collector.names)} jobs, '
                 f'{time.strftime("%Y-%m-%d %H:%M")}</p></header>']
        parts += [self.tiles(), self.findings(), self.failures(), self.cards(), self.charts(), self.jobs()]
        parts.append(f"<footer>vorn-mv-batch {VERSION}; a line for every job is in "
                     '<a href="results.jsonl">results.jsonl</a></footer></main></body></html>\n')
        return "\n".join(part for part in parts if part)

    def tiles(self):
        collector = self.collector
        tiles = [("done", collector.count("done"), "good"), ("failed", collector.count("failed"), "bad"),
                 ("stand out", len(self.reasons), "bad"), ("changed since", collector.count("changed"), "warn"),
                 ("not done yet", collector.count("open"), "warn"), ("warnings", collector.warnings, "warn")]
        shown = [(text, count, kind) for text, count, kind in tiles if count or text in ("done", "failed", "stand out")]
        if collector.seconds:
            middle = sorted(collector.seconds)[len(collector.seconds) // 2]
            shown.append(("seconds a job", f"{middle:.3g}", ""))
        return '<section class="tiles">' + "".join(
            f'<div class="tile {kind if count else ""}"><b>{count}</b><span>{text}</span></div>'
            for text, count, kind in shown) + "</section>"

    def findings(self):
        """What is seen at a glance: what drifts, what stands out."""
        lines = []
        for series, judgement in self.counted:
            if judgement.drift:
                fifth = max(3, len(series.values) // 5)
                first, last = sorted(series.values[:fifth])[fifth // 2], sorted(series.values[-fifth:])[fifth // 2]
                unit = f" {escaped(series.unit)}" if series.unit else ""
                lines.append(f'<li class="warn"><b>{escaped(series.name)}</b> drifts: from {number(first)} to '
                             f"{number(last)}{unit}, {judgement.drift:+.3g}{unit} over {len(series.values)} jobs</li>")
        for job in list(self.reasons)[:8]:
            lines.append(f'<li class="bad">{self.link(job)}: {escaped("; ".join(self.reasons[job][:3]))}</li>')
        if len(self.reasons) > 8:
            lines.append(f'<li class="bad">and {len(self.reasons) - 8} more that stand out</li>')
        for name, path in self.collector.changed[:20]:
            lines.append(f'<li class="warn">{escaped(name)}: {escaped(path)} has changed since its job was done</li>')
        for name in self.without:
            lines.append(f'<li class="warn">no report has the figure {escaped(name)}</li>')
        if not lines:
            lines.append("<li>nothing drifts or stands out</li>" if self.counted else "<li>no figures to judge</li>")
        return f'<section><h2>At a glance</h2><ul class="findings">{"".join(lines)}</ul></section>'

    def failures(self):
        groups = {}
        for name, text in self.collector.failures:
            groups.setdefault(cause_of(text), []).append((name, text))
        if not groups:
            return ""
        rows = []
        for group in sorted(groups.values(), key=len, reverse=True):
            links = ", ".join(self.failure_link(name) for name, _ in group[:MOST_NAMES])
            more = f", and {len(group) - MOST_NAMES} more" if len(group) > MOST_NAMES else ""
            rows.append(f"<tr><td class='count'>{len(group)}</td><td><code>{escaped(group[0][1])}</code>"
                        f"<div class='names'>{links}{more}</div></td></tr>")
        return (f'<section><h2>Failures by cause</h2><table aria-label="Failures by cause">{"".join(rows)}</table>'
                '</section>')

    def failure_link(self, name):
        if os.path.isdir(self.store.failure(name)):
            return f'<a href="{quoted("failed", name)}/">{escaped(name)}</a>'
        return escaped(name)

    def link(self, job):
        """A job's name, linked to its page, or its folder where the plan makes no page."""
        name = self.collector.names[job]
        page = self.collector.plan.page
        if page and os.path.isfile(os.path.join(self.store.job(name), page)):
            return f'<a href="{quoted("jobs", name, page)}">{escaped(name)}</a>'
        return f'<a href="{quoted("jobs", name)}/">{escaped(name)}</a>'

    def cards(self):
        if not self.reasons:
            return ""
        cards = []
        for job in list(self.reasons)[:MOST_CARDS]:
            lines = "".join(f"<li>{escaped(text)}</li>" for text in self.reasons[job][:4])
            cards.append(f'<div class="card">{self.preview(job)}<h3>{self.link(job)}</h3><ul>{lines}</ul></div>')
        typical = self.typical()
        if typical is not None and self.collector.plan.preview:
            cards.append(f'<div class="card plain">{self.preview(typical)}<h3>{self.link(typical)}</h3>'
                         "<ul><li>for comparison: an ordinary one</li></ul></div>")
        return f'<section><h2>What stands out</h2><div class="cards">{"".join(cards)}</div></section>'

    def typical(self):
        done = [job for job, state in enumerate(self.collector.states) if state == "done" and job not in self.reasons]
        return done[len(done) // 2] if done else None

    def preview(self, job):
        """The job's picture, in the page as long as there is room, and linked beyond."""
        path = self.collector.plan.preview
        if not path:
            return ""
        name = self.collector.names[job]
        file = os.path.join(self.store.job(name), path)
        kind = PICTURES.get(os.path.splitext(path)[1].lower())
        try:
            size = os.path.getsize(file)
            if kind is None:
                return ""
            address = quoted("jobs", name, path)
            if size <= min(LARGEST_PREVIEW, self.room):
                self.room -= size
                with open(file, "rb") as picture:
                    source = f"data:{kind};base64," + base64.b64encode(picture.read()).decode()
            else:
                source = address
        except OSError:
            return ""
        return f'<a href="{address}"><img src="{source}" alt="preview of {escaped(name)}" loading="lazy"></a>'

    def charts(self):
        charts = [self.chart(*pair) for pair in self.judged]
        others = [self.chart(*pair) for pair in self.others[:MOST_CHARTS]]
        if not charts:
            charts, others = others[:FIRST_CHARTS], others[FIRST_CHARTS:]
        if not charts:
            return ""
        key = ('<p class="key"><span class="k-centre">median</span><span class="k-limit">three sigma from job to job'
               '</span><span class="k-tolerance">tolerance</span><span class="k-out">stands out</span></p>')
        folded = ""
        if others:
            left = len(self.others) - MOST_CHARTS
            note = f"<p>{left} more are in results.jsonl alone.</p>" if left > 0 else ""
            folded = f'<details><summary>{len(others)} more figures</summary>{"".join(others)}{note}</details>'
        return f'<section><h2>Figures over the series</h2>{key}{"".join(charts)}{folded}</section>'

    def chart(self, series, judgement):
        values = series.values
        unit = f" {escaped(series.unit)}" if series.unit else ""
        facts = [f"median {number(judgement.centre)}{unit}", f"from {number(min(values))} to {number(max(values))}",
                 f"sigma {judgement.sigma:.3g}", f"{len(values)} jobs"]
        if judgement.drift:
            facts.insert(1, f'<b class="warn">drifts {judgement.drift:+.3g}{unit}</b>')
        return (f'<figure><figcaption><b>{escaped(series.name)}</b> <span>{", ".join(facts)}</span></figcaption>'
                f'<div class="pair">{control_chart(series, judgement, self.collector.names)}{histogram(series, judgement)}</div>'
                "</figure>")

    def jobs(self):
        collector = self.collector
        rows = []
        for job, (name, state) in enumerate(zip(collector.names[:MOST_ROWS], collector.states)):
            name_link = self.failure_link(name) if state == "failed" else self.link(job) if state != "open" else escaped(name)
            kind = {"failed": "bad", "changed": "warn", "open": "warn"}.get(state, "bad" if job in self.reasons else "")
            text = "stands out" if state == "done" and job in self.reasons else state
            rows.append(f'<li class="{kind}">{name_link} <span>{text}</span></li>')
        more = len(collector.names) - MOST_ROWS
        note = f"<p>The other {more} are in results.jsonl.</p>" if more > 0 else ""
        return (f'<section><details><summary>All jobs</summary><ul class="jobs">{"".join(rows)}</ul>{note}</details>'
                "</section>")


def quoted(*parts):
    return urllib.parse.quote("/".join(parts))
