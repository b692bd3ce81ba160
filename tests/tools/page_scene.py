# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Pages whose points are known to the last digit: scenes of the tests' own, written as the tool would, in a page of the
tool's."""

import base64
import json
import re
import struct


def block(points, step):
    """How a block of points is stored: their number, its origin, its steps."""
    origin = [min(axis) for axis in zip(*points)]
    return [len(points), *origin, step, step, step]


def packed_cloud(name, points, *, step=0.01, blocks=None, fields=(), texture=None, triangles=(), **facts):
    """A cloud whose coordinates are whole steps from the origins of its blocks.
    fields: (name, unit, signed, range, values), a value None for none; texture: red, green, blue of multiples of 8."""
    description = {"name": name, "isShown": True, "coloredBy": "", "isSurface": False, "total": len(points), "dropped": 0,
                   "spacing": 1.0, "error": step, "count": len(points), "triangleTotal": len(triangles), "fields": []}
    data = bytearray()
    stored = []
    start = 0
    for size in blocks or [len(points)]:
        stored.append(block(points[start:start + size], step))
        start += size
    description["blocks"] = stored
    origins = [one[1:4] for one in stored for _ in range(one[0])]
    for axis in range(3):
        for point, origin in zip(points, origins):
            data += struct.pack("<H", round((point[axis] - origin[axis]) / step))
    description["box"] = [[pick(axis) for axis in zip(*points)] for pick in (min, max)] if points else None
    depths = [point[2] for point in points] or [0]
    description["range"] = [min(depths), max(depths) if max(depths) > min(depths) else min(depths) + 1e-6]
    for field, unit, is_signed, ends, values in fields:
        present = [value for value in values if value is not None]
        low = min(present)
        size = (max(present) - low) / 65534 or 1.0
        description["fields"].append({"name": field, "unit": unit, "isSigned": is_signed, "offset": len(data), "low": low,
                                      "step": size, "range": ends})
        for value in values:
            data += struct.pack("<H", 0 if value is None else 1 + round((value - low) / size))
    if texture:
        is_gray = all(red == green == blue for red, green, blue in texture)
        description["texture"] = {"kind": "gray" if is_gray else "rgb565", "offset": len(data)}
        for red, green, blue in texture:
            data += bytes([red]) if is_gray else struct.pack("<H", red >> 3 << 11 | green >> 2 << 5 | blue >> 3)
    if triangles:
        description["triangles"] = {"count": len(triangles), "offset": len(data)}
        before = 0
        for a, b, c in sorted(triangles):
            assert a == min(a, b, c) and a - before < 128 and abs(b - a) < 64 and abs(c - a) < 64
            data += bytes([a - before, *(2 * d if d >= 0 else -2 * d - 1 for d in (b - a, c - a))])
            before = a
    description.update(facts)
    return description, bytes(data)


def write_scene(page, path, clouds, outlines=()):
    """The tool's page with other clouds in its view."""
    text = page.read_text()
    opening = '<script type="application/json" id="scene">'
    at = text.index(opening) + len(opening)
    end = text.index("</script>", at)
    scene = json.loads(text[at:end])
    scene.update(clouds=[description for description, _ in clouds], outlines=list(outlines), views=[], title="Scene")
    text = text[:at] + json.dumps(scene).replace("<", "\\u003c") + text[end:]
    text = re.sub(r'<script type="application/octet-stream" id="cloud-\d+">[^<]*</script>\n', "", text)
    scripts = "".join(f'<script type="application/octet-stream" id="cloud-{i}">{base64.b64encode(data).decode()}</script>\n'
                      for i, (_, data) in enumerate(clouds))
    report = text.index("</script>", text.index('id="scene"')) + len("</script>\n")
    path.write_text(text[:report] + scripts + text[report:])
    return scene["colors"]
