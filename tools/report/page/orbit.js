// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/** Where the view is looked at from, and how mouse, fingers and keys change that. */

const usualFieldOfView = 35;
const steepest = 89.5 * Math.PI / 180;

/** The eye on a sphere about a target: turned about an axis that stays upright. */
export class Orbit {
  /** @param onChange called when the eye has moved */
  constructor(onChange) {
    this.onChange = onChange;
    this.target = new THREE.Vector3();
    this.radius = 1; // of what there is to see
    this.distance = 1;
    this.azimuth = 0;
    this.elevation = 0;
    this.fieldOfView = usualFieldOfView;
    this.isParallel = false;
    this.setBasis(new THREE.Vector3(0, 0, 1), new THREE.Vector3(0, 1, 0));
    this.lens = new THREE.PerspectiveCamera();
    this.parallelLens = new THREE.OrthographicCamera(-1, 1, 1, -1, 0, 1);
  }

  /** The direction that is "front", and which way is down there. */
  setBasis(forward, down) {
    this.front = forward.clone().normalize().negate();
    this.up = down.clone().normalize().negate();
    this.right = this.up.clone().cross(this.front);
  }

  /** The direction from the target to the eye. */
  direction() {
    const level = Math.cos(this.elevation);
    return this.front.clone().multiplyScalar(level * Math.cos(this.azimuth))
      .addScaledVector(this.right, level * Math.sin(this.azimuth))
      .addScaledVector(this.up, Math.sin(this.elevation));
  }

  /** Millimetres a pixel at the target. */
  pixel(height) {
    return 2 * this.distance * Math.tan(this.fieldOfView * Math.PI / 360) / height;
  }

  /** Looks from a side so that all of some places are seen. */
  look(azimuth, elevation, places, aspect) {
    this.fieldOfView = usualFieldOfView;
    this.azimuth = azimuth * Math.PI / 180;
    this.elevation = Math.max(-steepest, Math.min(steepest, elevation * Math.PI / 180));
    this.target.set(0, 0, 0);
    const direction = this.direction();
    const across = this.up.clone().cross(direction).normalize();
    const upwards = direction.clone().cross(across);
    const margin = 1.1;
    const upper = Math.tan(this.fieldOfView * Math.PI / 360) / margin;
    const side = upper * aspect;
    this.distance = places.reduce((distance, place) => {
      const wide = Math.abs(place.dot(across)) / side;
      const high = Math.abs(place.dot(upwards)) / upper;
      const near = this.isParallel ? 0 : place.dot(direction);
      return Math.max(distance, near + Math.max(wide, high));
    }, this.radius * 1e-3);
    this.onChange();
  }

  /** Looks as a device does: from its place, with its field of view. */
  lookAs(eye, forward, down, fieldOfView, depth) {
    this.setBasis(forward, down);
    this.azimuth = 0;
    this.elevation = 0;
    this.fieldOfView = fieldOfView;
    this.distance = depth;
    this.target.copy(eye).addScaledVector(forward, depth / forward.length());
    this.onChange();
  }

  turn(azimuth, elevation) {
    this.azimuth += azimuth;
    this.elevation = Math.max(-steepest, Math.min(steepest, this.elevation + elevation));
    this.onChange();
  }

  /** Moves what is seen by so many pixels. */
  move(x, y, height) {
    const size = this.pixel(height);
    const camera = this.camera();
    const across = new THREE.Vector3().setFromMatrixColumn(camera.matrix, 0);
    const upwards = new THREE.Vector3().setFromMatrixColumn(camera.matrix, 1);
    this.target.addScaledVector(across, -x * size).addScaledVector(upwards, y * size);
    this.onChange();
  }

  /** Zooms so that what lies so many pixels from the middle stays where it is. */
  zoom(factor, x, y, height) {
    const nearest = this.radius * 1e-4;
    const farthest = this.radius * 100;
    const distance = Math.max(nearest, Math.min(farthest, this.distance * factor));
    const kept = 1 - distance / this.distance;
    const size = this.pixel(height);
    const camera = this.camera();
    this.target.addScaledVector(new THREE.Vector3().setFromMatrixColumn(camera.matrix, 0), x * size * kept)
      .addScaledVector(new THREE.Vector3().setFromMatrixColumn(camera.matrix, 1), -y * size * kept);
    this.distance = distance;
    this.onChange();
  }

  /** The lens, set up for a picture of this aspect. */
  camera(aspect = this.lens.aspect) {
    const camera = this.isParallel ? this.parallelLens : this.lens;
    const halfHeight = this.distance * Math.tan(this.fieldOfView * Math.PI / 360);
    const reach = 2.2 * this.radius + this.target.length();
    camera.far = this.distance + reach;
    if (this.isParallel) {
      camera.near = this.distance - reach;
      camera.top = halfHeight;
      camera.bottom = -halfHeight;
      camera.right = halfHeight * aspect;
      camera.left = -camera.right;
    } else {
      camera.near = Math.max(this.distance - reach, camera.far * 1e-4);
      camera.fov = this.fieldOfView;
    }
    this.lens.aspect = aspect;
    camera.position.copy(this.target).addScaledVector(this.direction(), this.distance);
    camera.up.copy(this.up);
    camera.lookAt(this.target);
    camera.updateMatrix();
    camera.updateMatrixWorld(true);
    camera.updateProjectionMatrix();
    return camera;
  }
}

/** Leads mouse and fingers on an element to an orbit; `onPick` gets the place of a click or tap. */
export function followPointers(element, orbit, onPick) {
  const pointers = new Map();
  let travelled = 0;

  const middle = () => {
    const all = [...pointers.values()];
    const x = all.reduce((sum, p) => sum + p.x, 0) / all.length;
    const y = all.reduce((sum, p) => sum + p.y, 0) / all.length;
    const reach = all.length < 2 ? 0 : Math.hypot(all[0].x - all[1].x, all[0].y - all[1].y);
    return {x, y, reach};
  };
  const fromMiddle = (event) => {
    const frame = element.getBoundingClientRect();
    return {x: event.clientX - frame.left - frame.width / 2, y: event.clientY - frame.top - frame.height / 2};
  };

  element.addEventListener("pointerdown", (event) => {
    element.setPointerCapture(event.pointerId);
    pointers.set(event.pointerId, fromMiddle(event));
    travelled = pointers.size > 1 ? Infinity : 0;
  });
  element.addEventListener("pointermove", (event) => {
    if (!pointers.has(event.pointerId)) {
      return;
    }
    const before = middle();
    pointers.set(event.pointerId, fromMiddle(event));
    const now = middle();
    const x = now.x - before.x;
    const y = now.y - before.y;
    travelled += Math.hypot(x, y);
    const height = element.clientHeight;
    if (pointers.size > 1 || event.shiftKey || (event.buttons & 6) !== 0) {
      orbit.move(x, y, height);
    } else {
      const perPixel = Math.PI / height;
      orbit.turn(-x * perPixel, y * perPixel);
    }
    if (pointers.size > 1 && now.reach > 0 && before.reach > 0) {
      orbit.zoom(before.reach / now.reach, now.x, now.y, height);
    }
  });
  const release = (event) => {
    const wasDown = pointers.delete(event.pointerId);
    const isStill = 4;
    if (wasDown && event.type === "pointerup" && event.button === 0 && travelled < isStill) {
      const place = fromMiddle(event);
      onPick(place.x + element.clientWidth / 2, place.y + element.clientHeight / 2);
    }
  };
  element.addEventListener("pointerup", release);
  element.addEventListener("pointercancel", release);
  element.addEventListener("contextmenu", (event) => event.preventDefault());
  element.addEventListener("wheel", (event) => {
    event.preventDefault();
    const lines = event.deltaMode === 0 ? event.deltaY : event.deltaY * 33;
    const place = fromMiddle(event);
    orbit.zoom(Math.exp(lines * 0.0012), place.x, place.y, element.clientHeight);
  }, {passive: false});
}

/** Leads keys to an orbit; `others` has what further keys do, by name. */
export function followKeys(element, orbit, others) {
  const angle = 5 * Math.PI / 180;
  const pixels = 24;
  const arrows = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]};
  element.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    const height = element.clientHeight;
    const arrow = arrows[event.key];
    if (arrow && event.shiftKey) {
      orbit.move(arrow[0] * pixels, arrow[1] * pixels, height);
    } else if (arrow) {
      orbit.turn(-arrow[0] * angle, arrow[1] * angle);
    } else if (event.key === "+" || event.key === "=") {
      orbit.zoom(1 / 1.15, 0, 0, height);
    } else if (event.key === "-") {
      orbit.zoom(1.15, 0, 0, height);
    } else if (others[event.key]) {
      others[event.key]();
    } else {
      return;
    }
    event.preventDefault();
  });
}
