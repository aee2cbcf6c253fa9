# SPDX-License-Identifier: MIT
"""The pictures in the repository match their sources: when they are drawn again, they have the same texts.

    picturesTest.py SOURCE-DIRECTORY
"""
import pathlib
import sys
import tempfile

source = pathlib.Path(sys.argv[1])
sys.path.insert(0, str(source / "docs/pictures"))
import draw  # noqa: E402

failures = []
with tempfile.TemporaryDirectory() as directory:
    drawn = pathlib.Path(directory)
    draw.main(source, drawn)
    here, there = ({file.name for file in folder.glob("*.svg")} for folder in (source / "docs/pictures", drawn))
    failures += [f"{name} has no source, or is not drawn" for name in sorted(here ^ there)]
    for name in sorted(here & there):
        old, new = (draw.labels((folder / name).read_text(encoding="utf-8")) for folder in (source / "docs/pictures", drawn))
        if old != new or len(new) < 5:
            failures.append(f"{name} is not what its source says; run docs/pictures/draw.py . docs/pictures")
        if "prefers-color-scheme" not in (source / "docs/pictures" / name).read_text(encoding="utf-8"):
            failures.append(f"{name} has no colours for a dark page")

print(f"{len(there)} pictures")
for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures) or not there)
