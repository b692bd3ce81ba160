// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/** Which point lies under a place of the picture. */

/** The transform from positions to the picture: 16 numbers, columns first. */
export function pictureFrom(camera) {
  return new THREE.Matrix4().multiplyMatrices(camera.projectionMatrix, camera.matrixWorldInverse).elements;
}

/** The pixels of a position; null behind the eye. */
export function projected(m, x, y, z, width, height) {
  const w = m[3] * x + m[7] * y + m[11] * z + m[15];
  if (w <= 0) {
    return null;
  }
  const right = (m[0] * x + m[4] * y + m[8] * z + m[12]) / w;
  const up = (m[1] * x + m[5] * y + m[9] * z + m[13]) / w;
  const depth = (m[2] * x + m[6] * y + m[10] * z + m[14]) / w;
  return {x: (right + 1) * width / 2, y: (1 - up) * height / 2, depth};
}

/** The points of a cloud whose pixels are near a place. */
function near(shown, m, place, radius, isKept, found) {
  const positions = shown.positions;
  const halfWidth = place.width / 2;
  const halfHeight = place.height / 2;
  for (let i = 0, at = 0; i < shown.cloud.count; ++i, at += 3) {
    const x = positions[at];
    const y = positions[at + 1];
    const z = positions[at + 2];
    const w = m[3] * x + m[7] * y + m[11] * z + m[15];
    if (w <= 0) {
      continue;
    }
    const right = ((m[0] * x + m[4] * y + m[8] * z + m[12]) / w + 1) * halfWidth - place.x;
    if (right > radius || right < -radius) {
      continue;
    }
    const down = (1 - (m[1] * x + m[5] * y + m[9] * z + m[13]) / w) * halfHeight - place.y;
    const far = Math.hypot(right, down);
    if (far <= radius && isKept(x, y, z)) {
      const depth = (m[2] * x + m[6] * y + m[10] * z + m[14]) / w;
      found.push({shown, place: i, far, depth, position: [x, y, z]});
    }
  }
}

/**
 * The point under a place: of those within a few pixels the ones that the eye meets first, and of these the one that is
 * nearest to the place.
 * @param clouds those that are shown
 * @param place  x, y, width and height in pixels
 * @param isKept whether the section keeps a position
 * @param eye    distances from it tell what lies in front
 * @return null where there is none
 */
export function pointAt(clouds, m, place, isKept, eye) {
  const radius = 7;
  const found = [];
  for (const shown of clouds) {
    near(shown, m, place, radius, isKept, found);
  }
  if (found.length === 0) {
    return null;
  }
  const first = found.reduce((a, b) => (b.depth < a.depth ? b : a));
  const away = (candidate) => Math.hypot(...candidate.position.map((v, axis) => v - eye[axis]));
  const pixel = place.pixelAt(away(first));
  const reach = away(first) + Math.max(3 * first.shown.cloud.description.spacing, radius * pixel);
  return found.filter((candidate) => away(candidate) <= reach).reduce((a, b) => (b.far < a.far ? b : a));
}
