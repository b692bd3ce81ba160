# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Charts as SVG within a page, coloured by the page's style sheet."""

import html
import math

WIDTH, HEIGHT = 640, 210
LEFT, RIGHT, TOP, BOTTOM = 62, 12, 12, 26
# More points than this are drawn as a band from least to greatest per column.
MOST_POINTS = 1500
MOST_MARKS = 60
MOST_NAMED = 6


def ticks(low, high, count):
    """Round numbers that divide a range, about so many."""
    span = high - low
    if not span > 0 or not math.isfinite(span):
        return [low]
    step = 10 ** math.floor(math.log10(span / count))
    step *= next(factor for factor in (1, 2, 5, 10) if span / (step * factor) <= count)
    first = math.ceil(low / step - 1e-9)
    return [step * i for i in range(first, math.floor(high / step + 1e-9) + 1)]


def number(value):
    """Five figures at most, without an exponent where it can be read so."""
    if value == int(value) and abs(value) < 1e9:
        return str(int(value))
    return f"{value:.5g}"


def tick_texts(values):
    step = min((abs(b - a) for a, b in zip(values, values[1:])), default=1)
    decimals = min(9, max(0, -math.floor(math.log10(step) + 1e-9))) if step > 0 else 3
    return [f"{value:.{decimals}f}" if abs(value) < 1e7 else f"{value:.4g}" for value in values]


class Axes:
    def __init__(self, width, height, x_range, y_range):
        self.width, self.height = width, height
        self.x_range = x_range if x_range[1] > x_range[0] else (x_range[0] - 0.5, x_range[0] + 0.5)
        pad = 0.06 * (y_range[1] - y_range[0]) or max(1e-6, 0.01 * abs(y_range[0]))
        self.y_range = (y_range[0] - pad, y_range[1] + pad)

    def x(self, value):
        share = (value - self.x_range[0]) / (self.x_range[1] - self.x_range[0])
        return LEFT + share * (self.width - LEFT - RIGHT)

    def y(self, value):
        share = (value - self.y_range[0]) / (self.y_range[1] - self.y_range[0])
        return self.height - BOTTOM - share * (self.height - TOP - BOTTOM)

    def held(self, value):
        """The nearest value that is shown."""
        return min(max(value, self.y_range[0]), self.y_range[1])

    def grid(self, x_label):
        right, floor = self.width - RIGHT, self.height - BOTTOM
        y_ticks = ticks(*self.y_range, 5)
        parts = [f'<path class="grid" d="M{LEFT} {self.y(value):.1f}H{right}"/>'
                 f'<text x="{LEFT - 6}" y="{self.y(value) + 4:.1f}" text-anchor="end">{text}</text>'
                 for value, text in zip(y_ticks, tick_texts(y_ticks))]
        x_ticks = [value for value in ticks(*self.x_range, 8) if value == int(value) and value >= 1
                   and self.x(value) < right - 35]
        parts += [f'<text x="{self.x(value):.1f}" y="{floor + 17}" text-anchor="middle">{int(value)}</text>'
                  for value in x_ticks]
        parts.append(f'<path class="axis" d="M{LEFT} {TOP}V{floor}H{right}"/>')
        parts.append(f'<text x="{right}" y="{floor + 17}" text-anchor="end" class="label">{x_label}</text>')
        return parts


def control_chart(series, judgement, names):
    """The values over the series, with centre, limits and tolerance; what stands out is marked and named."""
    values = series.values
    beyond = {index for index, value in enumerate(values) if is_beyond(series, value)}
    axes = Axes(WIDTH, HEIGHT, (0, len(names) + 1), shown_range(series, judgement))
    low, high = judgement.limits()
    parts = axes.grid("job")
    parts += [line(axes, "centre", judgement.centre)]
    parts += [line(axes, "limit", limit) for limit in (low, high) if judgement.sigma > 0]
    parts += [line(axes, "tolerance", limit) for limit in (series.low, series.high) if limit is not None]
    marked = sorted(beyond | set(judgement.outliers()), key=lambda index: -abs(judgement.scores[index]))[:MOST_MARKS]
    hidden = set(marked)
    parts.append(points(axes, [(series.jobs[index] + 1, axes.held(value)) for index, value in enumerate(values)
                               if index not in hidden]))
    labels = Labels(axes)
    for rank, index in enumerate(marked):
        parts.append(mark(axes, series.jobs[index] + 1, values[index], names[series.jobs[index]],
                          labels if rank < MOST_NAMED else None))
    return svg(WIDTH, HEIGHT, parts, f"{series.name} over the series")


def shown_range(series, judgement):
    """The values but those that stand out so far that the others would be one line; these are drawn at the border."""
    outliers = set(judgement.outliers())
    plain = [value for index, value in enumerate(series.values) if index not in outliers] or series.values
    plain += [limit for limit in (series.low, series.high, *judgement.limits()) if limit is not None]
    low, high = min(plain), max(plain)
    reach = 0.5 * (high - low) or judgement.sigma
    near = [value for value in series.values if low - reach <= value <= high + reach]
    return min([low, *near]), max([high, *near])


class Labels:
    """Names beside marks, none over another: they move up or down, and one without a free place is left out."""
    HEIGHT, CHARACTER = 13, 7.2  # of a line and of a wide letter, as the style sheet has them

    def __init__(self, axes):
        self.axes = axes
        self.boxes = []

    def svg(self, x, y, text):
        is_right = x > 0.7 * self.axes.width
        width = self.CHARACTER * len(text)
        start = x - 8 - width if is_right else x + 8
        for step in (0, 1, -1, 2, -2, 3, -3):
            place = min(max(TOP + 8, y + 4 + step * self.HEIGHT), self.axes.height - BOTTOM - 4)
            if all(start + width <= left or right <= start or abs(place - other) >= self.HEIGHT
                   for left, right, other in self.boxes):
                self.boxes.append((start, start + width, place))
                return (f'<text class="name" x="{x + (-8 if is_right else 8):.1f}" y="{place:.1f}" '
                        f'text-anchor="{"end" if is_right else "start"}">{html.escape(text)}</text>')
        return ""


def mark(axes, job, value, name, labels):
    """A value that stands out: a dot, or an arrow at the border when it lies beyond; with its name among `labels`."""
    x, y = axes.x(job), axes.y(axes.held(value))
    title = f"<title>{html.escape(name)}: {number(value)}</title>"
    if axes.y_range[0] <= value <= axes.y_range[1]:
        shape = f'<circle class="out" cx="{x:.1f}" cy="{y:.1f}" r="4">{title}</circle>'
        text = name
    else:
        tip = 6 if value < axes.y_range[0] else -6
        base = y - tip if tip > 0 else y + 6
        shape = f'<path class="out" d="M{x - 5:.1f} {base:.1f}h10l-5 {tip}z">{title}</path>'
        text = f"{name}: {number(value)}"
    return shape + (labels.svg(x, y, text) if labels else "")


def is_beyond(series, value):
    return (series.low is not None and value < series.low) or (series.high is not None and value > series.high)


def line(axes, kind, value):
    if not axes.y_range[0] <= value <= axes.y_range[1]:
        return ""
    return f'<path class="{kind}" d="M{LEFT} {axes.y(value):.1f}H{axes.width - RIGHT}"/>'


def points(axes, places):
    if len(places) <= MOST_POINTS:
        dots = "".join(f"M{axes.x(x):.1f} {axes.y(y):.1f}h0" for x, y in places)
        return f'<path class="dots" d="{dots}"/>'
    columns = {}
    for x, y in places:
        column = round(axes.x(x))
        low, high = columns.get(column, (y, y))
        columns[column] = min(low, y), max(high, y)
    band = "".join(f"M{column} {axes.y(low) + 0.5:.1f}V{axes.y(high) - 0.5:.1f}"
                   for column, (low, high) in sorted(columns.items()))
    return f'<path class="band" d="{band}"/>'


def histogram(series, judgement, width=250, height=HEIGHT):
    """How often which values are, the vertical axis that of the control chart beside it."""
    values = series.values
    axes = Axes(width, height, (0, 1), shown_range(series, judgement))
    low, high = axes.y_range
    count = max(6, min(36, round(2 * math.sqrt(len(values)))))
    bins = [0] * count
    for value in values:
        bins[min(count - 1, int((axes.held(value) - low) / (high - low) * count))] += 1
    left = 10
    scale = (width - left - RIGHT) / max(bins)
    bar = (height - TOP - BOTTOM) / count
    parts = [f'<rect class="bar" x="{left}" y="{height - BOTTOM - (i + 1) * bar + 0.5:.1f}" '
             f'width="{max(1.5, n * scale):.1f}" height="{max(0.5, bar - 1):.1f}"><title>{n}</title></rect>'
             for i, n in enumerate(bins) if n]
    parts += [f'<path class="tolerance" d="M{left} {axes.y(limit):.1f}H{width - RIGHT}"/>'
              for limit in (series.low, series.high) if limit is not None]
    parts.append(f'<path class="axis" d="M{left} {TOP}V{height - BOTTOM}H{width - RIGHT}"/>')
    parts.append(f'<text x="{width - RIGHT}" y="{height - BOTTOM + 17}" text-anchor="end" class="label">'
                 f"jobs, up to {max(bins)}</text>")
    return svg(width, height, parts, f"distribution of {series.name}")


def svg(width, height, parts, title):
    return (f'<svg viewBox="0 0 {width} {height}" role="img" aria-label="{html.escape(title, quote=True)}">'
            + "".join(parts) + "</svg>")
