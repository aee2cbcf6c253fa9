# SPDX-License-Identifier: MIT
"""Results of measurements, build/proof/NAME.json: what was claimed, the figure, how it was measured, the command that repeats it, the
day, and the commit that was measured."""
import datetime
import json
import os
import pathlib
import subprocess
import tomllib

HERE = pathlib.Path(__file__).parent
FIELDS = ("claim", "figure", "measured", "command", "date", "commit", "changed")


def claims():
    """The rows of a proof, by name and in order, and what is not covered."""
    told = tomllib.loads((HERE / "rows.toml").read_text(encoding="utf-8"))
    return {row["name"]: row for row in told["row"]}, told["not_covered"]


def git(tree, *words):
    """The output of git; empty if this is no checkout, or there is no git."""
    try:
        # Tests run in sandboxes with another user, whom git would not trust.
        return subprocess.run(["git", "-c", "safe.directory=*", "-C", tree, *words], check=True, capture_output=True, text=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def write(tree, name, figure, measured, command=None):
    """Writes the record of a measurement that has just been made in this tree."""
    rows, _ = claims()
    if name not in rows:
        raise KeyError(f"packaging/proof/rows.toml has no row {name}")
    record = {
        "claim": rows[name]["claim"],
        "figure": figure,
        "measured": measured,
        "command": command or rows[name]["command"],
        "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d"),
        "commit": git(tree, "rev-parse", "HEAD"),
        "changed": bool(git(tree, "status", "--porcelain")),
    }
    directory = pathlib.Path(tree) / "build/proof"
    directory.mkdir(parents=True, exist_ok=True)
    path = directory / f"{name}.json"
    unfinished = path.with_suffix(".new")
    unfinished.write_text(json.dumps(record, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")
    os.replace(unfinished, path)


def remove(tree, name):
    """Takes an earlier figure back."""
    (pathlib.Path(tree) / f"build/proof/{name}.json").unlink(missing_ok=True)


def read(tree, name):
    """The record of this name; None if nothing has been measured."""
    try:
        record = json.loads((pathlib.Path(tree) / f"build/proof/{name}.json").read_text(encoding="utf-8"))
    except FileNotFoundError:
        return None
    missing = [field for field in FIELDS if field not in record]
    if missing:
        raise ValueError(f"build/proof/{name}.json has no {missing[0]}")
    return record
