// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/** The view as a picture with its legend and names, for files and for print. */

function drawLegend(context, legend, width, scale) {
  const ticks = [...legend.ticks.children].map((tick) => tick.textContent);
  const line = 15 * scale;
  const bar = 160 * scale;
  const left = width - 100 * scale;
  context.fillStyle = "rgba(255, 255, 255, 0.92)";
  context.fillRect(left - 8 * scale, 8 * scale, 100 * scale, bar + 4 * line);
  context.fillStyle = "#000000";
  context.font = `bold ${12 * scale}px sans-serif`;
  context.textBaseline = "middle";
  context.fillText(legend.title.textContent, left, 8 * scale + line, 88 * scale);
  const top = 8 * scale + 2 * line;
  context.drawImage(legend.colors, left, top, 16 * scale, bar);
  context.font = `${12 * scale}px sans-serif`;
  ticks.forEach((text, i) => {
    context.fillText(text, left + 22 * scale, top + bar * i / (ticks.length - 1));
  });
  context.fillText(legend.beyond.textContent, left, top + bar + 1.3 * line, 88 * scale);
}

function drawNames(context, labels, scale) {
  context.font = `${12 * scale}px sans-serif`;
  context.textBaseline = "top";
  const frame = labels.getBoundingClientRect();
  for (const label of labels.children) {
    const box = label.getBoundingClientRect();
    const x = (box.left - frame.left) * scale;
    const y = (box.top - frame.top) * scale;
    if (label.className === "picked") {
      context.strokeStyle = "#d6006c";
      context.lineWidth = 2 * scale;
      context.beginPath();
      context.arc(x + box.width * scale / 2, y + box.height * scale / 2, 6 * scale, 0, 2 * Math.PI);
      context.stroke();
    } else {
      context.fillStyle = "rgba(255, 255, 255, 0.85)";
      context.fillRect(x, y, box.width * scale, box.height * scale);
      context.fillStyle = "#000000";
      context.fillText(label.textContent, x + 4 * scale, y + 2 * scale);
    }
  }
}

/**
 * Draws the view into a canvas on light ground. The scene's canvas must just have been drawn.
 * @param legend its elements; hidden ones are left out
 * @param words  what stands in the lower left corner
 */
export function drawPicture(target, source, legend, labels, words) {
  const scale = source.width / source.clientWidth;
  target.width = source.width;
  target.height = source.height;
  const context = target.getContext("2d");
  context.fillStyle = "#ffffff";
  context.fillRect(0, 0, target.width, target.height);
  context.drawImage(source, 0, 0);
  drawNames(context, labels, scale);
  if (!legend.legend.hidden) {
    drawLegend(context, legend, target.width, scale);
  }
  context.fillStyle = "#000000";
  context.font = `${13 * scale}px sans-serif`;
  context.textBaseline = "bottom";
  words.split("\n").reverse().forEach((line, i) => {
    context.fillText(line, 10 * scale, target.height - (8 + 18 * i) * scale);
  });
}

/** Lets the reader keep a canvas as a PNG file. */
export function savePicture(canvas, name) {
  canvas.toBlob((blob) => {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(blob);
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 10000);
  }, "image/png");
}
