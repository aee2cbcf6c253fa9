# SPDX-License-Identifier: MIT
"""What the public headers declare, as the compiler reads them."""
import json
import pathlib
import subprocess


def declared_names(include: pathlib.Path, clang: str) -> set[str]:
    """Names of all functions and variables declared in headers below `include`."""
    tree = json.loads(
        subprocess.run(
            [clang, "-x", "c", "-std=gnu17", f"-I{include}", "-Xclang", "-ast-dump=json", "-fsyntax-only", include / "vos.h"],
            check=True, capture_output=True, text=True,
        ).stdout
    )
    names = set()
    current_file = ""
    for node in tree["inner"]:
        # The dump names a file only where it changes.
        location = node.get("loc", {})
        current_file = location.get("file", current_file)
        if pathlib.Path(current_file).parent == include and node["kind"] in ("FunctionDecl", "VarDecl"):
            names.add(node["name"])
    return names
