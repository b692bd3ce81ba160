// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/** Frusta, boards and the like in the scene: lines, tinted faces, names. */

function relative(points, center) {
  return points.map((p) => new THREE.Vector3(p[0] - center[0], p[1] - center[1], p[2] - center[2]));
}

/** Two ends of each piece of all lines, one behind the other. */
function pieces(lines, center) {
  const ends = [];
  for (const line of lines) {
    const points = relative(line, center);
    for (let i = 1; i < points.length; ++i) {
      ends.push(points[i - 1], points[i]);
    }
  }
  return ends;
}

/** The outlines of one group as an object, with all their places and those of their names. */
export function makeGroup(outlines, center) {
  const group = new THREE.Group();
  const names = [];
  const places = [];
  for (const outline of outlines) {
    const color = new THREE.Color(outline.color);
    const ends = pieces(outline.lines, center);
    places.push(...ends);
    const geometry = new THREE.BufferGeometry().setFromPoints(ends);
    group.add(new THREE.LineSegments(geometry, new THREE.LineBasicMaterial({color})));
    if (outline.face.length > 2) {
      const face = new THREE.BufferGeometry().setFromPoints(relative(outline.face, center));
      const corners = [];
      for (let i = 2; i < outline.face.length; ++i) {
        corners.push(0, i - 1, i);
      }
      face.setIndex(corners);
      group.add(new THREE.Mesh(face, new THREE.MeshBasicMaterial(
        {color, transparent: true, opacity: 0.1, side: THREE.DoubleSide, depthWrite: false})));
    }
    if (outline.lines.length > 0 && outline.name) {
      names.push({text: outline.name, place: relative([outline.lines[0][0]], center)[0]});
    }
  }
  return {object: group, names, places};
}

/** Writes names at places of the picture over an element. */
export class Labels {
  constructor(element) {
    this.element = element;
  }

  /**
   * @param names what to write: a text, a place relative to the centre, and a class or none
   * @param project gives the pixels of a place, or null behind the eye
   */
  show(names, project) {
    this.element.textContent = "";
    for (const name of names) {
      const pixels = project(name.place);
      if (!pixels) {
        continue;
      }
      const label = document.createElement("span");
      label.textContent = name.text;
      label.className = name.kind || "";
      label.style.transform = `translate(${pixels.x.toFixed(1)}px, ${pixels.y.toFixed(1)}px)`;
      this.element.append(label);
    }
  }
}
