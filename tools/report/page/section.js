// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
import {formatted} from "./colors.js";

/** The section: a plane across an axis, with what lies above, below or within a slice of it. */
export class Section {
  /** @param box the lowest and the highest corner of all there is */
  constructor(elements, box, center, uniforms, onChange) {
    this.elements = elements;
    this.box = box;
    this.center = center;
    this.uniforms = uniforms;
    for (const element of [elements.axis, elements.keep, elements.at]) {
      element.addEventListener(element.type === "range" ? "input" : "change", () => {
        this.apply();
        onChange();
      });
    }
    this.apply();
  }

  apply() {
    const {axis, keep, at, value} = this.elements;
    const number = "xyz".indexOf(axis.value);
    at.disabled = keep.disabled = axis.value === "";
    this.isOn = axis.value !== "";
    if (!this.isOn) {
      this.uniforms.plane.value.set(0, 0, 0, 0);
      this.uniforms.kept.value.set(-1, 1);
      value.textContent = "";
      return;
    }
    const low = this.box[0][number];
    const high = this.box[1][number];
    const place = low + (high - low) * at.value / at.max;
    const normal = [0, 0, 0];
    normal[number] = 1;
    this.uniforms.plane.value.set(...normal, place - this.center[number]);
    const all = 2 * (high - low) + 1;
    const half = Math.max((high - low) * 0.01, 1e-6);
    const ends = {above: [0, all], below: [-all, 0], slice: [-half, half]}[keep.value];
    this.uniforms.kept.value.set(...ends);
    value.textContent = `${formatted(place, 2)} mm`;
  }

  /** Whether a position, relative to the centre, is shown. */
  isKept(x, y, z) {
    const plane = this.uniforms.plane.value;
    const at = plane.x * x + plane.y * y + plane.z * z - plane.w;
    return at >= this.uniforms.kept.value.x && at <= this.uniforms.kept.value.y;
  }
}
