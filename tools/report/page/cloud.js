// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
import {colorIndex} from "./colors.js";

/** A cloud or mesh in the scene. */

const common = `
precision highp float;
uniform vec4 plane;
uniform vec2 kept;
`;

const light = `
vec3 lit(vec3 color, vec3 normal) {
  const vec3 direction = vec3(-0.356, 0.458, 0.815);
  return color * (0.4 + 0.6 * abs(dot(normalize(normal), direction)));
}
`;

const pointVertices = common + light + `
uniform mat4 modelViewMatrix, projectionMatrix;
uniform mat3 normalMatrix;
uniform float size, pixels, least;
uniform bool isParallel, isLit;
attribute vec3 position, normal, color;
varying vec3 shownColor;
void main() {
  vec4 seen = modelViewMatrix * vec4(position, 1.0);
  gl_Position = projectionMatrix * seen;
  float at = dot(plane.xyz, position) - plane.w;
  if (at < kept.x || at > kept.y) {
    gl_Position = vec4(0.0, 0.0, 2.0, 1.0);
  }
  shownColor = isLit && dot(normal, normal) > 0.1 ? lit(color, normalMatrix * normal) : color;
  gl_PointSize = clamp(size * pixels / (isParallel ? 1.0 : -seen.z), least, 24.0);
}
`;

const pointFragments = `
precision mediump float;
varying vec3 shownColor;
void main() {
  gl_FragColor = vec4(shownColor, 1.0);
}
`;

const meshVertices = common + `
uniform mat4 modelViewMatrix, projectionMatrix;
uniform mat3 normalMatrix;
attribute vec3 position, normal, color;
varying vec3 shownColor, shownNormal;
varying float at;
void main() {
  gl_Position = projectionMatrix * modelViewMatrix * vec4(position, 1.0);
  at = dot(plane.xyz, position) - plane.w;
  shownNormal = normalMatrix * normal;
  shownColor = color;
}
`;

const meshFragments = common + light + `
uniform bool isLit;
varying vec3 shownColor, shownNormal;
varying float at;
void main() {
  if (at < kept.x || at > kept.y) {
    discard;
  }
  gl_FragColor = vec4(isLit && dot(shownNormal, shownNormal) > 0.0 ? lit(shownColor, shownNormal) : shownColor, 1.0);
}
`;

/** What the clouds of a scene have in common: the section, the light, the size of points. */
export function makeUniforms() {
  return {
    plane: {value: new THREE.Vector4(0, 0, 0, 0)},
    kept: {value: new THREE.Vector2(-1, 1)},
    pixels: {value: 1},
    least: {value: 1.5},
    isParallel: {value: false},
    isLit: {value: true},
  };
}

/** The ways to colour a cloud: names with units, in the order in which they are offered. */
export function coloursOf(cloud) {
  const facts = cloud.description;
  const ways = [{kind: "axis", axis: 2, name: "z", unit: "mm", range: facts.range, table: "depth"}];
  for (const axis of [0, 1]) {
    const range = [facts.box[0][axis], Math.max(facts.box[1][axis], facts.box[0][axis] + 1e-6)];
    ways.push({kind: "axis", axis, name: "xy"[axis], unit: "mm", range, table: "value"});
  }
  facts.fields.forEach((field, number) => {
    ways.push({kind: "field", number, name: field.name, unit: field.unit, range: field.range,
      table: field.isSigned ? "signed" : "value"});
  });
  if (facts.texture) {
    ways.push({kind: "texture", name: "texture"});
  }
  return ways;
}

/** A cloud as the scene draws it. */
export class ShownCloud {
  /** @param tables colours of values, by name */
  constructor(cloud, center, tables, uniforms) {
    this.cloud = cloud;
    this.center = center;
    this.tables = tables;
    this.colors = new Uint8Array(3 * cloud.count);
    const geometry = new THREE.BufferGeometry();
    this.positions = cloud.positions(center);
    geometry.setAttribute("position", new THREE.BufferAttribute(this.positions, 3));
    this.colorAttribute = new THREE.BufferAttribute(this.colors, 3, true);
    geometry.setAttribute("color", this.colorAttribute);
    const triangles = cloud.triangles();
    const normals = cloud.normals();
    // Points of a surface cover it; single dots leave room.
    const size = cloud.description.spacing * (cloud.description.isSurface ? 1 : 0.25);
    this.uniforms = Object.assign({size: {value: size}}, uniforms);
    this.isMesh = triangles !== null && triangles.length > 0;
    if (this.isMesh) {
      geometry.setIndex(new THREE.BufferAttribute(triangles, 1));
    }
    if (normals) {
      geometry.setAttribute("normal", new THREE.BufferAttribute(normals, 3, true));
    } else if (this.isMesh) {
      geometry.computeVertexNormals();
    } else {
      geometry.setAttribute("normal", new THREE.BufferAttribute(new Int8Array(3 * cloud.count), 3, true));
    }
    const material = new THREE.RawShaderMaterial({
      uniforms: this.uniforms,
      vertexShader: this.isMesh ? meshVertices : pointVertices,
      fragmentShader: this.isMesh ? meshFragments : pointFragments,
      side: THREE.DoubleSide,
    });
    this.object = this.isMesh ? new THREE.Mesh(geometry, material) : new THREE.Points(geometry, material);
    this.object.frustumCulled = false;
    this.object.visible = cloud.description.isShown;
    this.paint(coloursOf(cloud)[0], null);
  }

  /** Colours all points by one of `coloursOf`. */
  paint(way, range) {
    if (way.kind === "texture") {
      this.colors.set(this.cloud.texture());
    } else {
      const [low, high] = range || way.range;
      const table = this.tables[way.table];
      const absent = [128, 128, 128];
      const scale = 1 / (high - low);
      const valueAt = this.reader(way);
      for (let place = 0; place < this.cloud.count; ++place) {
        const share = (valueAt(place) - low) * scale;
        const color = Number.isNaN(share) ? absent : table[colorIndex(table, share)];
        this.colors[3 * place] = color[0];
        this.colors[3 * place + 1] = color[1];
        this.colors[3 * place + 2] = color[2];
      }
    }
    this.colorAttribute.needsUpdate = true;
  }

  /** What a way of `coloursOf` with a range colours by: gives a place's value. */
  reader(way) {
    return way.kind === "axis"
      ? (place) => this.positions[3 * place + way.axis] + this.center[way.axis]
      : (place) => this.cloud.value(way.number, place);
  }

  /** Adds to `counts` how many values lie beyond a range, and how many there are in all. */
  countBeyond(way, [low, high], counts) {
    const valueAt = this.reader(way);
    for (let place = 0; place < this.cloud.count; ++place) {
      const value = valueAt(place);
      counts.all += Number.isNaN(value) ? 0 : 1;
      counts.beyond += value < low || value > high ? 1 : 0;
    }
  }

  /** Draws a share of the points, spread evenly; meshes are drawn whole. */
  setShare(share) {
    if (!this.isMesh) {
      this.object.geometry.setDrawRange(0, Math.ceil(this.cloud.count * share));
    }
  }
}
