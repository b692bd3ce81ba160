#!/usr/bin/python3
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""check_reports.py VORN_MV SCHEMAS: what every command reports has the form of its JSON schema, names the files that it
read with their true hashes, and is the one thing on standard output with --json. The schemas are strict: a report with
a member left out or added does not pass."""

import copy
import hashlib
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

tool, schema_folder = sys.argv[1], pathlib.Path(sys.argv[2])
schemas = {path.name: json.loads(path.read_text()) for path in schema_folder.glob("*.schema.json")}
failures = 0


def fail(text):
    global failures
    failures += 1
    print(text)


def validator(name):
    resolver = jsonschema.RefResolver(f"{name}.schema.json", schemas[f"{name}.schema.json"], store=schemas)
    return jsonschema.Draft202012Validator(schemas[f"{name}.schema.json"], resolver=resolver)


def run(*arguments, status=0):
    result = subprocess.run([tool, *map(str, arguments)], capture_output=True, text=True)
    if result.returncode != status:
        fail(f"{arguments}: status {result.returncode}: {result.stderr}")
    return result


def check_inputs(command, report, expected):
    paths = [entry["path"] for entry in report["inputs"]]
    if sorted(paths) != sorted(map(str, expected)):
        fail(f"{command}: inputs {paths}, not {list(map(str, expected))}")
    for entry in report["inputs"]:
        content = pathlib.Path(entry["path"]).read_bytes()
        if (entry["size"], entry["sha256"]) != (len(content), hashlib.sha256(content).hexdigest()):
            fail(f"{command}: wrong facts of {entry['path']}")


def check_strictness(command, report):
    """Every member that the report's first object levels lack or have too many is noticed."""
    judge = validator(command)
    places = [[], ["tool"], ["schema"], ["settings"]] + ([["inputs", 0]] if report["inputs"] else [])
    for place in places:
        changed = copy.deepcopy(report)
        target = changed
        for step in place:
            target = target[step]
        target["surplus"] = 1
        if judge.is_valid(changed):
            fail(f"{command}: the schema takes a surplus member in {place}")
    for name in ("schema", "tool", "inputs", "settings", "warnings"):
        changed = {key: value for key, value in report.items() if key != name}
        if judge.is_valid(changed):
            fail(f"{command}: the schema takes a report without {name}")


def check(command, *arguments, inputs=(), strict=True):
    """The report of a command, after all checks."""
    result = run(command, *arguments, "--json")
    try:
        report = json.loads(result.stdout)
    except json.JSONDecodeError as error:
        fail(f"{command}: standard output of --json is no JSON: {error}: {result.stdout[:200]}")
        return {}
    if command + ".schema.json" not in schemas:
        fail(f"{command} has no schema")
        return {}
    for error in validator(command).iter_errors(report):
        fail(f"{command}: {error.json_path}: {error.message[:200]}")
    if report["schema"] != {"name": f"vorn-mv.{command}", "version": 1}:
        fail(f"{command}: schema {report['schema']}")
    if report["tool"]["version"] != run("--version").stdout.strip():
        fail(f"{command}: tool {report['tool']}")
    check_inputs(command, report, inputs)
    if strict:
        check_strictness(command, report)
    return report


def pictures(folder, *names):
    return sorted(path for name in names for path in folder.glob(name))


def main():
    for schema in schemas.values():
        jsonschema.Draft202012Validator.check_schema(schema)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        check_all(folder)
    commands = {line.split()[0] for line in run("--help").stdout.split("Subcommands:")[1].splitlines() if line.strip()}
    if missing := commands - {file.split(".")[0] for file in schemas}:
        fail(f"without a schema: {missing}")


def check_all(folder):
    rig = folder / "rig"
    check("simulate", rig, "--divisor", 4)
    line = check("simulate", folder / "line", "--line", 2, "--divisor", 8, "--no-calib")
    if line["parts"] != 2 or len(list((folder / "line").glob("part_*"))) != 2:
        fail(f"simulate: a line of two parts is {line}")
    sides = check("simulate", folder / "sides", "--views", 2, "--turntable", "--divisor", 8, "--no-calib")
    if sides["views"] != 2 or len(list((folder / "sides").glob("view_*/columns_00.png"))) != 2:
        fail(f"simulate: a part from two sides is {sides}")
    views = pictures(folder / "sides", "view_*/columns_*", "views.json") + [folder / "sides/scanner_truth.json"]
    fused = check("fuse", folder / "sides", "--calib", folder / "sides/scanner_truth.json", "-o", folder / "sides.ply",
                  inputs=views)
    if [view["name"] for view in fused["views"]] != ["view_00", "view_01"]:
        fail(f"fuse: views {fused['views']}")
    pictured = pictures(folder / "sides", "view_*/white.png", "views.json", "scanner_truth.json") + [folder / "sides.ply"]
    check("texture", folder / "sides.ply", folder / "sides", "--calib", folder / "sides/scanner_truth.json", "-o",
          folder / "sides.obj", inputs=pictured)
    check("patterns", folder / "patterns", "--width", 64, "--height", 48)
    projected = folder / "projected"
    check("patterns", projected, "--width", 64, "--height", 48, "--set", "gray")
    check("patterns", "--plan", "--width", 640, "--height", 400, "--images", 40)
    captured = pictures(projected, "*.png") + pictures(projected, "pattern_set.json")
    check("decode", projected, inputs=captured)
    check("target", folder / "target.svg")
    target = rig / "calib/pose_05/target.png"
    detect = check("detect", target, "--pitch", 15, "--set", "MinDotArea=8", inputs=[target])
    if detect["settings"]["properties"]["CalibPatternDetector"]["MinDotArea"] != 8:
        fail("detect: the property is not that which was set")
    if detect["settings"]["options"]["pitch"] != 15:
        fail("detect: the option is not that which was given")
    check("detect", target, "--target", folder / "target.json", inputs=[target, folder / "target.json"])

    views = pictures(rig / "calib", "pose_*/target.png", "pose_*/columns_*", "pose_*/rows_*")
    views += pictures(rig, "target.json")
    scanner = folder / "scanner.json"
    calibration = check("calibrate", rig, "--pitch", 15, "--set", "MinDotArea=8", "-o", scanner, inputs=views)
    scanned = pictures(rig / "scan", "columns_*") + [scanner]
    scan = check("scan", rig / "scan", "--calib", scanner, "-o", folder / "c.ply", "--xyz", folder / "c.tiff",
                 inputs=scanned)
    if "ScannerType" not in scan["settings"]["properties"]["Sl3dScanner"]:
        fail("scan: the scanner's properties are missing")
    both = folder / "both"
    run("simulate", both, "--divisor", 8, "--no-calib", "--rows")
    truth = both / "scanner_truth.json"
    checked = check("check", both / "scan", "--calib", truth,
                    inputs=pictures(both / "scan", "columns_*", "rows_*") + [truth])
    if checked["verdict"] != "good":
        fail(f"check: the true calibration is {checked['verdict']}")
    for arguments in (["--outlier", 5, 4, "--dz", 8], ["--filter", "UniformSampler:Radius=2"]):
        cloud = folder / "c.tiff"
        filtered = check("filter", cloud, folder / "f.ply", *arguments, inputs=[cloud])
        if len(filtered["steps"]) != len([word for word in arguments if str(word).startswith("--")]):
            fail(f"filter: steps {filtered['steps']}")
    skipped = check("filter", folder / "c.ply", folder / "f.ply", "--dz", 2, "--allow-loss", inputs=[folder / "c.ply"])
    if len(skipped["warnings"]) != 1:
        fail(f"filter: warnings {skipped['warnings']}")
    check("normals", folder / "c.tiff", folder / "n.ply", inputs=[folder / "c.tiff"])
    aligned = check("align", folder / "c.ply", folder / "c.tiff", "-o", folder / "t.json", "--allow-free",
                    inputs=[folder / "c.ply", folder / "c.tiff"])
    if aligned["overlap"] < 0.8:
        fail(f"align: a cloud onto itself overlaps by {aligned['overlap']}")
    mesh = check("mesh", folder / "c.tiff", folder / "m.stl", inputs=[folder / "c.tiff"])
    if mesh["mesh"]["faultyEdges"] or not mesh["mesh"]["boundaries"]:
        fail(f"mesh: {mesh}")
    check("height", folder / "c.tiff", folder / "h.tiff", "--depth", 16, inputs=[folder / "c.tiff"])
    check("height", folder / "h.tiff", folder / "h.ply", inputs=[folder / "h.tiff", folder / "h.json"])
    check("image", target, folder / "blurred.png", "--filter", "Gaussian", inputs=[target])
    check("image", "--list")
    check("demo", "--out", folder / "demopart", "--divisor", 2, "--true-calibration", "--part")
    check("demo", "--out", folder / "demo", "--divisor", 2, "--true-calibration")

    laser = folder / "laser"
    run("simulate", laser, "--laser", "--divisor", 4, "--no-calib")
    lines = pictures(laser / "scan", "line_*", "stage.json") + [laser / "laser_truth.json"]
    check("scan", laser / "scan", "--laser", "--calib", laser / "laser_truth.json", inputs=lines)

    check("focus", target, inputs=[target])
    check("histogram", target, inputs=[target])
    check("profile", target, 5, 20, 150, 60, "--width", 3, inputs=[target])
    fringes = [rig / f"scan/columns_0{i}.png" for i in range(4)]
    check("exposure", rig / "scan", inputs=fringes)
    check("exposure", laser / "scan", inputs=pictures(laser / "scan", "line_*"))

    report = folder / "r.json"
    run("scan", rig / "scan", "--calib", scanner, "--report", report)
    old = folder / "old.json"
    old.write_text(json.dumps({"Images": 11, "Pixels": 9, "Decoded": 4, "Points": 3, "Times": {"Read": 1.5},
                               "NotMeasured": {"LowContrast": 5}}))
    devices = json.loads(scanner.read_text())
    stereo = write(folder / "stereo.json", {"CameraModel0": devices["CameraModel"], "Hpc": devices["Hpc"],
                                            "CameraModel1": devices["ProjectorModel"], "Hpose": devices["Hpose"]})
    for file in (scanner, folder / "c.ply", target, report, old, folder / "target.json", laser / "laser_truth.json",
                 stereo):
        check("info", file, inputs=[file], strict=file == report)
    check("info", "--properties")
    shown = check("info", old, inputs=[old])["files"][0]["report"]
    if shown["notMeasured"] != {"lowContrast": 5} or shown["times"] != {"read": 1.5}:
        fail(f"info: an old report is read as {shown}")
    if "calibrate" not in run("info", write(folder / "calib.json", calibration)).stdout:
        fail("info does not say what report it is")


def write(path, report):
    path.write_text(json.dumps(report))
    return path


main()
sys.exit(failures > 0)
