// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/**
 * From the bytes of a cloud to points. The bytes hold, little-endian: all x, all y, all z in 16 bits, counted in steps
 * from the origin of the point's block; then what the description tells the offset of. A field has 16 bits a point, 0
 * for none and 1 for its lowest value.
 */

/** The bytes that an element holds as base64. */
export function bytesOf(element) {
  const letters = atob(element.textContent);
  const bytes = new Uint8Array(letters.length);
  for (let i = 0; i < letters.length; ++i) {
    bytes[i] = letters.charCodeAt(i);
  }
  return bytes;
}

/**
 * An order in which the first so many points are spread evenly: every 16th, then those between them, and so on. What
 * is drawn while the view moves is the beginning of it.
 * @return for each place the point that comes there
 */
function spreadOrder(count) {
  const order = new Uint32Array(count);
  let place = 0;
  for (let i = 0; i < count; i += 16) {
    order[place++] = i;
  }
  for (let step = 16; step > 1; step /= 2) {
    for (let i = step / 2; i < count; i += step) {
      order[place++] = i;
    }
  }
  return order;
}

/** The block that a point belongs to. */
function blockOf(starts, point) {
  let low = 0;
  let high = starts.length - 1;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (starts[middle] <= point) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return low;
}

/** A direction from two bytes, see the packer; none is 0, 0, 0. Written to `target` at `at`, from -127 to 127. */
function unfoldNormal(first, second, target, at) {
  if (first === 0) {
    return;
  }
  let u = (first - 1) / 127 - 1;
  let v = (second - 1) / 127 - 1;
  const w = 1 - Math.abs(u) - Math.abs(v);
  if (w < 0) {
    const unfolded = (1 - Math.abs(v)) * (u < 0 ? -1 : 1);
    v = (1 - Math.abs(u)) * (v < 0 ? -1 : 1);
    u = unfolded;
  }
  const scale = 127 / Math.hypot(u, v, w);
  target[at] = Math.round(u * scale);
  target[at + 1] = Math.round(v * scale);
  target[at + 2] = Math.round(w * scale);
}

/** Corners of triangles, as numbers of points; see the packer. */
function decodeTriangles(bytes, offset, count) {
  const corners = new Uint32Array(3 * count);
  let at = offset;
  const next = () => {
    let value = 0;
    let factor = 1;
    let byte;
    do {
      byte = bytes[at++];
      value += (byte & 127) * factor;
      factor *= 128;
    } while (byte >= 128);
    return value;
  };
  const nextSigned = () => {
    const value = next();
    return value % 2 === 0 ? value / 2 : -(value + 1) / 2;
  };
  let before = 0;
  for (let i = 0; i < corners.length; i += 3) {
    before += next();
    corners[i] = before;
    corners[i + 1] = before + nextSigned();
    corners[i + 2] = before + nextSigned();
  }
  return corners;
}

/** The points of a cloud and what comes with them. All but `point` and `value` go by places in the drawn order. */
export class Cloud {
  constructor(description, bytes) {
    this.description = description;
    this.count = description.count;
    this.bytes = bytes;
    this.order = spreadOrder(this.count);
    const words = (offset) => new Uint16Array(bytes.buffer, offset, this.count);
    this.steps = [0, 1, 2].map((axis) => words(2 * this.count * axis));
    this.starts = [];
    let start = 0;
    for (const block of description.blocks || []) {
      this.starts.push(start);
      start += block[0];
    }
    this.fieldWords = description.fields.map((field) => words(field.offset));
  }

  /** The position of a point, exactly as it is stored. */
  point(place) {
    const n = this.order[place];
    const block = this.description.blocks[blockOf(this.starts, n)];
    return [0, 1, 2].map((axis) => block[1 + axis] + this.steps[axis][n] * block[4 + axis]);
  }

  /** The value of a field at a point; NaN for none. */
  value(field, place) {
    const word = this.fieldWords[field][this.order[place]];
    const facts = this.description.fields[field];
    return word === 0 ? NaN : facts.low + (word - 1) * facts.step;
  }

  /** Positions relative to a centre, which keeps them within what 32 bits resolve. */
  positions(center) {
    const result = new Float32Array(3 * this.count);
    const places = new Uint32Array(this.count);
    this.order.forEach((n, place) => {
      places[n] = place;
    });
    this.description.blocks.forEach((block, number) => {
      const end = this.starts[number] + block[0];
      for (let axis = 0; axis < 3; ++axis) {
        const origin = block[1 + axis] - center[axis];
        const step = block[4 + axis];
        const steps = this.steps[axis];
        for (let n = this.starts[number]; n < end; ++n) {
          result[3 * places[n] + axis] = origin + steps[n] * step;
        }
      }
    });
    return result;
  }

  /** Normals from -127 to 127; null where there are none. */
  normals() {
    if (this.description.normals === undefined) {
      return null;
    }
    const result = new Int8Array(3 * this.count);
    const offset = this.description.normals;
    for (let place = 0; place < this.count; ++place) {
      const at = offset + 2 * this.order[place];
      unfoldNormal(this.bytes[at], this.bytes[at + 1], result, 3 * place);
    }
    return result;
  }

  /** Red, green and blue of the texture, 0 to 255. */
  texture() {
    const result = new Uint8Array(3 * this.count);
    const texture = this.description.texture;
    const isGray = texture.kind === "gray";
    const words = isGray ? null : new Uint16Array(this.bytes.buffer, texture.offset, this.count);
    for (let place = 0; place < this.count; ++place) {
      const n = this.order[place];
      if (isGray) {
        result.fill(this.bytes[texture.offset + n], 3 * place, 3 * place + 3);
      } else {
        result[3 * place] = (words[n] >> 11) * 255 / 31;
        result[3 * place + 1] = (words[n] >> 5 & 63) * 255 / 63;
        result[3 * place + 2] = (words[n] & 31) * 255 / 31;
      }
    }
    return result;
  }

  /** Corners of the triangles as places; null for a cloud without. */
  triangles() {
    const facts = this.description.triangles;
    if (facts === undefined) {
      return null;
    }
    const corners = decodeTriangles(this.bytes, facts.offset, facts.count);
    const places = new Uint32Array(this.count);
    this.order.forEach((n, place) => {
      places[n] = place;
    });
    return corners.map((n) => places[n]);
  }
}
