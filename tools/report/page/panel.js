// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
import {beyondText, decimalsFor, tickTexts} from "./colors.js";
import {coloursOf} from "./cloud.js";

/** The controls beside the view. */

function element(name, text, attributes = {}) {
  const result = document.createElement(name);
  result.textContent = text;
  for (const [key, value] of Object.entries(attributes)) {
    result.setAttribute(key, value);
  }
  return result;
}

/** A button for each view; `views` have a name and what to do. */
export function fillSides(field, views) {
  const buttons = field.querySelector(".buttons");
  for (const view of views) {
    const button = element("button", view.name, {type: "button"});
    if (view.key) {
      button.title = `Key ${view.key}`;
    }
    button.addEventListener("click", view.look);
    buttons.append(button);
  }
}

/** A box to tick for each thing that can be hidden: a name, an object of the scene. */
export function fillShown(field, things, onChange) {
  const choices = field.querySelector(".choices");
  for (const thing of things) {
    const label = element("label", "", {class: "choice"});
    const box = element("input", "", {type: "checkbox"});
    box.checked = thing.object.visible;
    box.addEventListener("change", () => {
      thing.object.visible = box.checked;
      onChange();
    });
    label.append(box, ` ${thing.name}`);
    choices.append(label);
  }
  field.hidden = things.length === 0;
}

/** The choice of what colours stand for, with their range and the legend. */
export class Colours {
  constructor(elements, clouds, tables, onChange) {
    Object.assign(this, {elements, clouds, tables, onChange});
    const names = new Map();
    for (const shown of clouds) {
      for (const way of coloursOf(shown.cloud)) {
        names.set(way.name, names.has(way.name) ? this.joined(names.get(way.name), way) : way);
      }
    }
    this.ways = [...names.values()];
    for (const way of this.ways) {
      elements.field.append(element("option", way.unit ? `${way.name}, ${way.unit}` : way.name));
    }
    elements.field.addEventListener("change", () => this.apply(null));
    for (const end of [elements.low, elements.high]) {
      end.addEventListener("change", () => this.applyRange());
    }
    elements.field.disabled = this.ways.length === 0;
    elements.legend.hidden = this.ways.length === 0;
    if (this.ways.length > 0) {
      const first = this.ways.findIndex((way) => way.name === clouds[0].cloud.description.coloredBy);
      elements.field.selectedIndex = Math.max(first, 0);
      this.apply(null);
    }
  }

  /** The range that holds both. */
  joined(a, b) {
    return a.range
      ? Object.assign({}, a, {range: [Math.min(a.range[0], b.range[0]), Math.max(a.range[1], b.range[1])]})
      : a;
  }

  applyRange() {
    const low = this.elements.low.valueAsNumber;
    const high = this.elements.high.valueAsNumber;
    if (low < high) {
      this.apply([low, high]);
    }
  }

  /** @param range the ends of the colours, or null for the usual ones */
  apply(range) {
    this.way = this.ways[this.elements.field.selectedIndex];
    this.range = range || this.way.range;
    for (const shown of this.clouds) {
      const own = coloursOf(shown.cloud).find((way) => way.name === this.way.name);
      // A cloud without such values keeps one colour.
      shown.paint(own || {kind: "axis", axis: 2, table: "none"}, own ? this.range : [0, 1]);
    }
    const hasRange = Boolean(this.way.range);
    for (const [end, i] of [[this.elements.low, 0], [this.elements.high, 1]]) {
      end.disabled = !hasRange;
      end.value = hasRange ? this.range[i].toFixed(decimalsFor((this.range[1] - this.range[0]) / 200)) : "";
    }
    this.elements.legend.hidden = !hasRange;
    if (hasRange) {
      this.drawLegend();
    }
    this.tellBeyond();
    this.onChange();
  }

  title() {
    return this.way.unit ? `${this.way.name} [${this.way.unit}]` : this.way.name;
  }

  /** What of all that is shown has the colours of the ends though it lies beyond them. */
  tellBeyond() {
    if (!this.way || !this.way.range) {
      return;
    }
    const counts = {beyond: 0, all: 0};
    for (const shown of this.clouds.filter((cloud) => cloud.object.visible)) {
      const own = coloursOf(shown.cloud).find((way) => way.name === this.way.name);
      if (own) {
        shown.countBeyond(own, this.range, counts);
      }
    }
    this.elements.beyond.textContent = beyondText(counts.beyond, counts.all);
  }

  drawLegend() {
    this.elements.title.textContent = this.title();
    const table = this.tables[this.way.table];
    const context = this.elements.colors.getContext("2d");
    const rows = this.elements.colors.height;
    for (let y = 0; y < rows; ++y) {
      const color = table[Math.round((1 - y / (rows - 1)) * (table.length - 1))];
      context.fillStyle = `rgb(${color.join(",")})`;
      context.fillRect(0, y, this.elements.colors.width, 1);
    }
    this.elements.ticks.textContent = "";
    const ticks = tickTexts(this.range[0], this.range[1], 6);
    for (const text of ticks) {
      this.elements.ticks.append(element("li", text));
    }
    this.elements.legend.setAttribute("aria-label",
      `Legend: ${this.way.name} from ${ticks[ticks.length - 1]} to ${ticks[0]} ${this.way.unit}`);
  }
}
