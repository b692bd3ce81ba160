# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""The look of summary.html, in light and dark."""

STYLE = """
:root { color-scheme: light dark;
  --ground: light-dark(#fff, #15181c); --panel: light-dark(#f5f6f8, #1e2228); --ink: light-dark(#1b1f24, #e7eaee);
  --faint: light-dark(#626b76, #9aa4af); --line: light-dark(#d8dde3, #363d46); --accent: light-dark(#2a6fb0, #6fb1ee);
  --good: light-dark(#23804a, #5fc389); --warn: light-dark(#a86200, #e3a13c); --bad: light-dark(#c22f2f, #f07070); }
* { box-sizing: border-box; }
body { margin: 0; background: var(--ground); color: var(--ink); font: 15px/1.45 system-ui, "DejaVu Sans", sans-serif; }
main { max-width: 980px; margin: 0 auto; padding: 28px 20px 40px; }
header { display: flex; align-items: baseline; justify-content: space-between; gap: 20px; flex-wrap: wrap; }
h1 { font-size: 26px; margin: 0; } h2 { font-size: 18px; margin: 34px 0 10px; } h3 { font-size: 15px; margin: 8px 0 2px; }
header p, footer, .names, figcaption span, .jobs span { color: var(--faint); }
a { color: var(--accent); text-decoration: none; } a:hover { text-decoration: underline; }
.tiles { display: flex; flex-wrap: wrap; gap: 10px; margin-top: 18px; }
.tile { background: var(--panel); border-radius: 8px; padding: 10px 18px; min-width: 118px; }
.tile b { display: block; font-size: 25px; line-height: 1.2; font-variant-numeric: tabular-nums; }
.tile span { color: var(--faint); font-size: 13px; }
.tile.good b { color: var(--good); } .tile.bad b { color: var(--bad); } .tile.warn b { color: var(--warn); }
b.warn { color: var(--warn); }
.findings { list-style: none; padding: 0; margin: 0; }
.findings li { padding: 6px 12px; margin: 5px 0; border-left: 4px solid var(--line); background: var(--panel);
  border-radius: 0 6px 6px 0; }
.findings li.warn { border-color: var(--warn); } .findings li.bad { border-color: var(--bad); }
table { border-collapse: collapse; width: 100%; }
td { border-top: 1px solid var(--line); padding: 7px 10px; vertical-align: top; overflow-wrap: anywhere; }
td.count { font-size: 20px; color: var(--bad); text-align: right; width: 70px; }
code { font: 13px/1.4 ui-monospace, "DejaVu Sans Mono", monospace; } .names { font-size: 13px; margin-top: 3px; }
.cards { display: grid; grid-template-columns: repeat(auto-fill, minmax(260px, 1fr)); gap: 14px; }
.card { background: var(--panel); border-radius: 8px; padding: 12px; border-top: 3px solid var(--bad); }
.card.plain { border-top-color: var(--line); }
.card img { width: 100%; height: 190px; object-fit: contain; background: #000; border-radius: 4px; display: block; }
.card ul { margin: 0; padding-left: 18px; font-size: 13px; }
figure { margin: 0 0 20px; } figcaption { margin-bottom: 4px; } figcaption span { font-size: 13px; margin-left: 8px; }
.pair { display: grid; grid-template-columns: 640fr 250fr; gap: 6px; }
svg { width: 100%; height: auto; background: var(--panel); border-radius: 6px; display: block; }
svg text { font: 11px system-ui, "DejaVu Sans", sans-serif; fill: var(--faint); }
svg .name { fill: var(--bad); font-weight: 600; paint-order: stroke; stroke: var(--panel); stroke-width: 4px; }
svg path { fill: none; } .grid { stroke: var(--line); stroke-width: .6; } .axis { stroke: var(--faint); stroke-width: 1; }
.centre { stroke: var(--good); stroke-width: 1.2; } .limit { stroke: var(--warn); stroke-dasharray: 6 4; }
.tolerance { stroke: var(--bad); stroke-width: 1.3; } .band { stroke: var(--accent); stroke-width: 1.4; }
.dots { stroke: var(--accent); stroke-width: 4.6; stroke-linecap: round; } .bar { fill: var(--accent); opacity: .75; }
.out, svg path.out { fill: var(--bad); stroke: var(--panel); stroke-width: 1; }
.key { font-size: 13px; color: var(--faint); margin: 0 0 8px; } .key span { margin-right: 18px; }
.key span::before { content: ""; display: inline-block; width: 18px; height: 0; margin-right: 6px; vertical-align: middle;
  border-top: 2px solid var(--good); }
.key .k-limit::before { border-top: 2px dashed var(--warn); } .key .k-tolerance::before { border-color: var(--bad); }
.key .k-out::before { width: 9px; height: 9px; border: 0; border-radius: 5px; background: var(--bad); }
details summary { cursor: pointer; color: var(--accent); margin: 12px 0; }
.jobs { list-style: none; padding: 0; columns: 4 190px; font-size: 13px; } .jobs .bad span { color: var(--bad); }
.jobs .warn span { color: var(--warn); } footer { margin-top: 36px; font-size: 13px; }
@media (max-width: 700px) { .pair { grid-template-columns: 1fr; } }
@media print { main { max-width: none; } .card, figure { break-inside: avoid; } }
"""
