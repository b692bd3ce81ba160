# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""One figure over a series of jobs: how it scatters, whether it drifts, and which values stand out.

Everything is by medians, so that a few faulty parts move neither limits nor drift.
"""

import math
import statistics
from dataclasses import dataclass, field

# What a median absolute deviation and a median moving range of normal values are of their sigma.
MAD_OF_SIGMA = 0.6745
RANGE_OF_SIGMA = 0.9539
# A value stands out this many sigma from its neighbours: once in millions by chance.
OUTLIER_SIGMAS = 6.0
LIMIT_SIGMAS = 3.0
FEWEST_FOR_OUTLIERS = 8
FEWEST_FOR_DRIFT = 12
LEAST_RANK_CORRELATION = 0.5
LEAST_DRIFT_SCORE = 4.0
WINDOW = 15
PLACES = 3


@dataclass
class Series:
    """Values of a figure with the numbers of their jobs in the run's order."""

    name: str
    unit: str = ""
    low: float = None
    high: float = None
    jobs: list = field(default_factory=list)
    values: list = field(default_factory=list)


@dataclass
class Judgement:
    """`centre` and `sigma` of the values from one job to the next; `scores` are distances from the neighbours' course
    in sigma of these distances; `drift` from the first to the last fifth, 0 where there is none."""

    centre: float
    sigma: float
    scores: list
    drift: float

    def limits(self):
        return self.centre - LIMIT_SIGMAS * self.sigma, self.centre + LIMIT_SIGMAS * self.sigma

    def outliers(self):
        return [index for index, score in enumerate(self.scores) if abs(score) > OUTLIER_SIGMAS]


def judge(values):
    centre = statistics.median(values)
    steps = [abs(after - before) for before, after in zip(values, values[1:])]
    sigma = scale_of(steps, RANGE_OF_SIGMA) if steps else 0.0
    if len(values) < FEWEST_FOR_OUTLIERS:
        return Judgement(centre, sigma, [0.0] * len(values), 0.0)
    distances = [value - middle for value, middle in zip(values, course(values))]
    scale = scale_of([abs(distance) for distance in distances], MAD_OF_SIGMA)
    # Rounding alone must not make an outlier.
    scale = max(scale, 1e-9 * max(abs(value) for value in values))
    scores = [distance / scale if scale > 0 else 0.0 for distance in distances]
    ordinary = [value for value, score in zip(values, scores) if abs(score) <= OUTLIER_SIGMAS]
    return Judgement(centre, sigma, scores, drift_of(ordinary))


def scale_of(sizes, share):
    """Sigma from absolute deviations: from their median, or, where most of them are 0, from their mean."""
    middle = statistics.median(sizes)
    if middle > 0:
        return middle / share
    return statistics.fmean(sizes) * math.sqrt(math.pi / 2)


def course(values):
    """Where the values are at each place, without single ones that stand out: robust lines through the neighbours, one
    for every few places."""
    count = len(values)
    span = min(WINDOW, count)
    middle = []
    while len(middle) < count:
        # The line's own places are the middle ones of its window, and at both ends of the series the outer ones too.
        first = min(max(0, len(middle) - (span - PLACES) // 2), count - span)
        slope, offset = robust_line(values[first:first + span])
        end = count if first == count - span else len(middle) + PLACES
        if first == 0 and not middle:
            end = max(end, min(count, (span + PLACES) // 2))
        middle += [offset + slope * (place - first) for place in range(len(middle), end)]
    return middle


def robust_line(values):
    """Slope and offset by the medians of all pairs' slopes (Theil and Sen)."""
    slopes = [(values[j] - values[i]) / (j - i) for j in range(len(values)) for i in range(j)]
    slope = statistics.median(slopes)
    return slope, statistics.median(value - slope * i for i, value in enumerate(values))


def drift_of(values):
    """From the median of the first fifth to that of the last, where the ranks rise or fall more than chance lets them."""
    count = len(values)
    if count < FEWEST_FOR_DRIFT:
        return 0.0
    correlation = rank_correlation(values)
    if abs(correlation) < LEAST_RANK_CORRELATION or abs(correlation) * math.sqrt(count - 1) < LEAST_DRIFT_SCORE * 0.8:
        return 0.0
    fifth = max(3, count // 5)
    return statistics.median(values[-fifth:]) - statistics.median(values[:fifth])


def rank_correlation(values):
    """Spearman's, of values and their places."""
    ranks = [0.0] * len(values)
    order = sorted(range(len(values)), key=values.__getitem__)
    first = 0
    while first < len(order):
        end = first
        while end < len(order) and values[order[end]] == values[order[first]]:
            end += 1
        for place in order[first:end]:
            ranks[place] = 0.5 * (first + end - 1)
        first = end
    middle = 0.5 * (len(values) - 1)
    product = sum((rank - middle) * (place - middle) for place, rank in enumerate(ranks))
    size = math.sqrt(sum((rank - middle) ** 2 for rank in ranks)
                     * sum((place - middle) ** 2 for place in range(len(values))))
    return product / size if size > 0 else 0.0
