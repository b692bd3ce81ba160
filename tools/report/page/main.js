// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
import {Colours, fillShown, fillSides} from "./panel.js";
import {Cloud, bytesOf} from "./decode.js";
import {Labels, makeGroup} from "./outline.js";
import {Orbit, followKeys, followPointers} from "./orbit.js";
import {ShownCloud, makeUniforms} from "./cloud.js";
import {countText, formatted} from "./colors.js";
import {drawPicture, savePicture} from "./picture.js";
import {pictureFrom, pointAt, projected} from "./pick.js";
import {Section} from "./section.js";

/** The page: puts the parts together. */

const byId = (id) => document.getElementById(id);
const scene = JSON.parse(byId("scene").textContent);

/** The box about everything, clouds and outlines; null for nothing. */
function wholeBox() {
  const box = [[Infinity, Infinity, Infinity], [-Infinity, -Infinity, -Infinity]];
  const take = (p) => {
    for (let axis = 0; axis < 3; ++axis) {
      box[0][axis] = Math.min(box[0][axis], p[axis]);
      box[1][axis] = Math.max(box[1][axis], p[axis]);
    }
  };
  const clouds = scene.clouds.filter((cloud) => cloud.count > 0);
  for (const cloud of clouds) {
    cloud.box.forEach(take);
  }
  for (const outline of scene.outlines) {
    if (outline.isShown || clouds.length === 0) {
      outline.lines.forEach((line) => line.forEach(take));
    }
  }
  return box[0][0] <= box[1][0] ? box : null;
}

/** Whether the processor draws, which smooth edges would cost half of its time. */
function isDrawnBySoftware() {
  const probe = document.createElement("canvas").getContext("webgl");
  const facts = probe && probe.getExtension("WEBGL_debug_renderer_info");
  const name = facts ? String(probe.getParameter(facts.UNMASKED_RENDERER_WEBGL)) : "";
  const release = probe && probe.getExtension("WEBGL_lose_context");
  if (release) {
    release.loseContext();
  }
  return /swiftshader|llvmpipe|software|basic render/i.test(name);
}

/** A renderer, or null where the browser has no WebGL. */
function makeRenderer(canvas) {
  const attributes = {antialias: !isDrawnBySoftware(), alpha: true, preserveDrawingBuffer: false};
  const context = canvas.getContext("webgl", attributes);
  if (!context) {
    return null;
  }
  const renderer = new THREE.WebGLRenderer({canvas, context});
  renderer.setPixelRatio(Math.min(window.devicePixelRatio, 2));
  return renderer;
}

function describeThinning() {
  const lines = scene.clouds.map((cloud) => {
    const words = [`${cloud.name}: ${countText(cloud.count)} of ${countText(cloud.total)} points shown`];
    if (cloud.dropped > 0) {
      words.push(`${countText(cloud.dropped)} without finite coordinates left out`);
    }
    if (cloud.triangles) {
      words.push(`${countText(cloud.triangles.count)} of ${countText(cloud.triangleTotal)} triangles`);
    }
    if (cloud.count > 0) {
      words.push(`distance between points ${cloud.spacing.toPrecision(3)} mm`,
        `coordinates rounded by less than ${(cloud.error + 1e-9).toPrecision(2)} mm`);
    }
    return words.join("; ");
  });
  byId("thinning").textContent = lines.join("\n");
}

/** The view: draws when something has changed, and with fewer points as long as it moves where that is slow. */
class View {
  constructor(renderer, box) {
    this.renderer = renderer;
    this.canvas = renderer.domElement;
    this.box = box;
    this.center = [0, 1, 2].map((axis) => (box[0][axis] + box[1][axis]) / 2);
    this.uniforms = makeUniforms();
    this.scene = new THREE.Scene();
    this.orbit = new Orbit(() => this.moved());
    this.orbit.radius = Math.max(Math.hypot(...[0, 1, 2].map((axis) => box[1][axis] - box[0][axis])) / 2, 1e-3);
    this.labels = new Labels(byId("labels"));
    this.picks = [];
    this.lastFrame = NaN;
    this.pause = 250;
    this.size = 1.5;
    this.addClouds();
    // A machine has to show that it is fast before it is asked for all points at once.
    const count = this.clouds.reduce((sum, shown) => sum + shown.cloud.count, 1);
    this.share = Math.min(1, 40000 / count);
    this.least = Math.min(1, 5000 / count);
    this.addOutlines();
    new ResizeObserver(() => this.draw()).observe(this.canvas);
  }

  addClouds() {
    this.clouds = [];
    scene.clouds.forEach((description, number) => {
      if (description.count > 0) {
        const cloud = new Cloud(description, bytesOf(byId(`cloud-${number}`)));
        const shown = new ShownCloud(cloud, this.center, scene.colors, this.uniforms);
        this.clouds.push(shown);
        this.scene.add(shown.object);
      }
    });
  }

  addOutlines() {
    this.groups = [];
    for (const name of new Set(scene.outlines.map((outline) => outline.group))) {
      const members = scene.outlines.filter((outline) => outline.group === name);
      const group = Object.assign(makeGroup(members, this.center), {name});
      group.object.visible = members[0].isShown;
      this.groups.push(group);
      this.scene.add(group.object);
    }
  }

  /** Places, relative to the centre, that together are about all there is to see at first. */
  placesToShow() {
    const most = 3000;
    const places = this.groups.filter((group) => group.object.visible).flatMap((group) => group.places);
    for (const shown of this.clouds) {
      // The first points of the order are spread evenly.
      for (let i = 0; i < Math.min(most, shown.cloud.count); ++i) {
        places.push(new THREE.Vector3().fromArray(shown.positions, 3 * i));
      }
    }
    return places;
  }

  /** Draws soon, and more of it once it rests. */
  moved() {
    this.isMoving = true;
    clearTimeout(this.rest);
    this.rest = setTimeout(() => {
      this.isMoving = false;
      this.draw();
    }, this.pause);
    this.draw();
  }

  draw() {
    if (!this.isWaiting) {
      this.isWaiting = true;
      requestAnimationFrame((time) => {
        this.isWaiting = false;
        this.watchSpeed(time);
        this.drawNow();
      });
    }
  }

  /** While the view moves: fewer points where frames take long, more where they do not. */
  watchSpeed(time) {
    const frame = time - this.lastFrame;
    this.lastFrame = this.isMoving ? time : NaN;
    // Rest begins after a pause that is longer than a frame, or slow machines would draw all points in between.
    this.pause = Math.min(Math.max(3 * (frame || 0), 250), 3000); // ms
    const slow = 45;
    const fast = 25;
    if (frame > slow) {
      this.share = Math.max(this.share * Math.max(35 / frame, 0.1), this.least);
    } else if (frame < fast) {
      this.share = Math.min(this.share * 1.5, 1);
    }
  }

  drawNow() {
    const width = this.canvas.clientWidth;
    const height = this.canvas.clientHeight;
    const size = this.renderer.getSize(new THREE.Vector2());
    if (size.x !== width || size.y !== height) {
      this.renderer.setSize(width, height, false);
    }
    const camera = this.orbit.camera(width / height);
    const share = this.isMoving ? this.share : 1;
    const ratio = this.renderer.getPixelRatio();
    const halfAngle = this.orbit.fieldOfView * Math.PI / 360;
    // Fewer points are drawn larger, so that surfaces stay closed.
    const larger = 1 / Math.sqrt(share);
    this.uniforms.pixels.value = this.size * larger * ratio * height / 2 /
      (Math.tan(halfAngle) * (this.orbit.isParallel ? this.orbit.distance : 1));
    this.uniforms.least.value = this.size * ratio * Math.min(larger, 2);
    this.uniforms.isParallel.value = this.orbit.isParallel;
    for (const shown of this.clouds) {
      shown.setShare(share);
    }
    this.renderer.render(this.scene, camera);
    this.labels.show(this.names(), (p) => this.pixels(p));
  }

  names() {
    const names = this.groups.filter((group) => group.object.visible).flatMap((group) => group.names);
    return names.concat(this.picks.map((pick) => (
      {text: "", kind: "picked", place: new THREE.Vector3(...pick.position)})));
  }

  /** The pixels of a place relative to the centre. */
  pixels(p) {
    const m = pictureFrom(this.orbit.camera());
    return projected(m, p.x, p.y, p.z, this.canvas.clientWidth, this.canvas.clientHeight);
  }

  /** Takes the point at a place of the picture as the next pick. */
  pick(x, y) {
    const camera = this.orbit.camera();
    const width = this.canvas.clientWidth;
    const height = this.canvas.clientHeight;
    const perDistance = this.orbit.pixel(height) / this.orbit.distance;
    const place = {x, y, width, height,
      pixelAt: (distance) => (this.orbit.isParallel ? this.orbit.pixel(height) : perDistance * distance)};
    const clouds = this.clouds.filter((shown) => shown.object.visible);
    const found = pointAt(clouds, pictureFrom(camera), place, (...p) => this.section.isKept(...p),
      camera.position.toArray());
    if (found) {
      const all = this.picks.length > 1 ? [] : this.picks;
      this.picks = all.concat(Object.assign(found, {point: found.shown.cloud.point(found.place)}));
    }
    this.tellPicks(found === null);
    this.draw();
  }

  forgetPicks() {
    this.picks = [];
    this.tellPicks(false);
    this.draw();
  }

  tellPicks(isMissed) {
    const lines = this.picks.map((pick) => {
      const cloud = pick.shown.cloud;
      const values = cloud.description.fields.map((field, number) => (
        `${field.name} ${formatted(cloud.value(number, pick.place), 3)} ${field.unit}`.trim()));
      const name = this.clouds.length > 1 ? `${cloud.description.name}: ` : "";
      return `${name}x ${formatted(pick.point[0], 3)}, y ${formatted(pick.point[1], 3)}, ` +
        `z ${formatted(pick.point[2], 3)} mm${values.map((value) => `; ${value}`).join("")}`;
    });
    if (this.picks.length === 2) {
      const [a, b] = this.picks.map((pick) => pick.point);
      const step = b.map((value, axis) => value - a[axis]);
      lines.push(`Distance ${formatted(Math.hypot(...step), 3)} mm ` +
        `(x ${formatted(step[0], 3)}, y ${formatted(step[1], 3)}, z ${formatted(step[2], 3)})`);
    }
    if (isMissed) {
      lines.push("No point there.");
    }
    byId("readout").textContent = lines.join("\n");
  }
}

/** The places to look from: those of the devices, and six sides. */
function sidesOf(view) {
  const orbit = view.orbit;
  const vector = (values) => new THREE.Vector3(...values);
  const first = scene.views[0] || {forward: [0, 0, 1], down: [0, 1, 0]};
  const places = view.placesToShow();
  const side = (azimuth, elevation) => () => {
    orbit.setBasis(vector(first.forward), vector(first.down));
    const aspect = view.canvas.clientWidth / view.canvas.clientHeight;
    orbit.look(azimuth, elevation, places, aspect);
  };
  const sides = [["Front", 0, 0], ["Back", 180, 0], ["Left", -90, 0], ["Right", 90, 0], ["Top", 0, 90],
    ["Bottom", 0, -90]]
    .map(([name, azimuth, elevation], i) => ({name, key: String(i + 1), look: side(azimuth, elevation)}));
  const slanted = {name: "Slanted", key: "Home", look: side(-30, 25)};
  const devices = scene.views.map((device) => ({
    name: device.name,
    look: () => {
      const eye = vector(device.eye.map((value, axis) => value - view.center[axis]));
      const forward = vector(device.forward).normalize();
      const depth = Math.max(-eye.dot(forward), view.orbit.radius * 0.1);
      orbit.lookAs(eye, forward, vector(device.down), device.fieldOfView, depth);
    },
  }));
  return [slanted].concat(sides, devices);
}

function connect(view) {
  const legend = {legend: byId("legend"), title: byId("legend-title"), colors: byId("legend-colors"),
    ticks: byId("legend-ticks"), beyond: byId("legend-beyond")};
  const redraw = () => view.draw();
  const tables = Object.assign({none: [[150, 150, 150]]}, scene.colors);
  for (const shown of view.clouds) {
    shown.tables = tables;
  }
  view.colours = new Colours(Object.assign({field: byId("field"), low: byId("range-low"), high: byId("range-high")},
    legend), view.clouds, tables, redraw);
  view.section = new Section({axis: byId("section-axis"), keep: byId("section-keep"), at: byId("section-at"),
    value: byId("section-value")}, view.box, view.center, view.uniforms, redraw);
  const sides = sidesOf(view);
  fillSides(byId("sides"), sides);
  const clouds = view.clouds.map((shown) => ({name: shown.cloud.description.name, object: shown.object}));
  fillShown(byId("shown"), clouds.concat(view.groups), () => {
    view.colours.tellBeyond();
    redraw();
  });
  followPointers(view.canvas, view.orbit, (x, y) => view.pick(x, y));
  const keys = Object.fromEntries(sides.filter((side) => side.key).map((side) => [side.key, side.look]));
  keys.Enter = () => view.pick(view.canvas.clientWidth / 2, view.canvas.clientHeight / 2);
  keys.Escape = () => view.forgetPicks();
  followKeys(view.canvas, view.orbit, keys);

  byId("panel").addEventListener("submit", (event) => event.preventDefault());
  byId("shaded").addEventListener("change", (event) => {
    view.uniforms.isLit.value = event.target.checked;
    redraw();
  });
  byId("size").addEventListener("input", (event) => {
    view.size = Number(event.target.value);
    redraw();
  });
  byId("parallel").addEventListener("change", (event) => {
    view.orbit.isParallel = event.target.checked;
    redraw();
  });
  const picture = (target) => {
    view.isMoving = false;
    view.drawNow();
    drawPicture(target, view.canvas, legend, byId("labels"), byId("readout").textContent);
    target.classList.add("ready");
  };
  byId("export").addEventListener("click", () => {
    const target = document.createElement("canvas");
    picture(target);
    savePicture(target, `${scene.title.replace(/[^\p{L}\p{N}]+/gu, "_")}.png`);
  });
  window.addEventListener("beforeprint", () => picture(byId("printed")));
  sides[0].look();
}

/** Print shows what is folded on the screen. */
function unfoldForPrint() {
  const folded = [...document.querySelectorAll("main details:not(#help)")];
  window.addEventListener("beforeprint", () => folded.forEach((part) => {
    part.dataset.was = part.open ? "open" : "";
    part.open = true;
  }));
  window.addEventListener("afterprint", () => folded.forEach((part) => {
    part.open = part.dataset.was === "open";
  }));
  byId("print").addEventListener("click", () => window.print());
}

function chooseTheme() {
  const button = byId("theme");
  const system = window.matchMedia("(prefers-color-scheme: dark)");
  const isDark = () => (document.documentElement.dataset.theme || (system.matches ? "dark" : "light")) === "dark";
  const name = () => {
    button.textContent = isDark() ? "Light" : "Dark";
  };
  button.hidden = false;
  button.addEventListener("click", () => {
    document.documentElement.dataset.theme = isDark() ? "light" : "dark";
    name();
  });
  system.addEventListener("change", name);
  name();
}

function start() {
  chooseTheme();
  unfoldForPrint();
  describeThinning();
  const message = byId("view-message");
  const box = wholeBox();
  if (!box) {
    message.textContent = scene.emptyReason || "There is no point to show.";
    return;
  }
  const work = byId("work");
  work.hidden = false;
  const renderer = makeRenderer(byId("canvas"));
  if (!renderer) {
    work.hidden = true;
    message.textContent = "This browser shows no 3D view: it has no WebGL. Pictures and tables are below.";
    return;
  }
  message.hidden = true;
  byId("help").hidden = false;
  const view = new View(renderer, box);
  connect(view);
  // For scripts: where a point is seen, and what was picked.
  window.vornPage = {
    pixelsOf: (point) => view.pixels(new THREE.Vector3(...point.map((value, axis) => value - view.center[axis]))),
    picks: () => view.picks.map((pick) => pick.point),
    view,
  };
}

start();
