// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/** Colours of values, and numbers as people read them. */

/** The colour of a share from 0 to 1, as an offset into a table of colours. */
export function colorIndex(table, share) {
  const last = table.length - 1;
  return Math.max(0, Math.min(last, Math.round(share * last)));
}

/** As many decimals as tell steps of this size apart. */
export function decimalsFor(step) {
  if (!(step > 0)) {
    return 3;
  }
  return Math.max(0, Math.min(6, Math.ceil(-Math.log10(step))));
}

/** A number with so many decimals, with a minus that is as wide as a plus. */
export function formatted(value, decimals) {
  if (!Number.isFinite(value)) {
    return "none";
  }
  const text = Math.abs(value) >= 1e9 ? value.toExponential(4) : value.toFixed(decimals);
  return (Number(text) === 0 ? text.replace("-", "") : text).replace("-", "\u2212");
}

/** A count with narrow spaces between thousands. */
export function countText(count) {
  return String(count).replace(/\B(?=(\d{3})+$)/g, "\u202f");
}

/** How much lies beyond the ends of the colours; empty for nothing. */
export function beyondText(beyond, all) {
  if (beyond === 0) {
    return "";
  }
  const percent = 100 * beyond / all;
  return percent < 0.05 ? `${countText(beyond)} beyond` : `${percent.toFixed(1)} % beyond`;
}

/** The values beside a legend, from the highest to the lowest. */
export function tickTexts(low, high, count) {
  const decimals = decimalsFor((high - low) / count / 2);
  const texts = [];
  for (let i = 0; i < count; ++i) {
    texts.push(formatted(high - (high - low) * i / (count - 1), decimals));
  }
  return texts;
}
