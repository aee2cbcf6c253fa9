# SPDX-License-Identifier: MIT
"""What the tests of a release share. SOURCE is the tree, BUILD a build of it with VOS_RECORD_LINKS. They write in their own directories
only, and run no program of the library, so they need no sandbox."""
import os
import pathlib
import shutil
import subprocess
import sys

import pytest

SOURCE, BUILD = pathlib.Path(os.environ["SOURCE"]), pathlib.Path(os.environ["BUILD"])
sys.path += [str(SOURCE / "packaging/sbom"), str(SOURCE / "packaging/proof")]
# What a check of the tree reads.
PARTS = ("CMakeLists.txt", "CHANGELOG.md", "README.md", "scripts", "packaging", "tests/readme", "docs/install.md", "docs/board.md", "docs/benchmarks")


class Tree:
    """A small checkout, with what a release reads."""

    def __init__(self, path):
        self.path = path
        for part in PARTS:
            (path / part).parent.mkdir(parents=True, exist_ok=True)
            copy = shutil.copytree if (SOURCE / part).is_dir() else shutil.copy
            copy(SOURCE / part, path / part)
        (path / ".gitignore").write_text("build/\n__pycache__/\n")
        self.replace("CHANGELOG.md", self.between("## Unreleased\n", "\n## "), "")
        self.git("init", "-q")
        self.commit()

    def between(self, begin, end):
        return (self.path / "CHANGELOG.md").read_text().split(begin, 1)[1].split(end, 1)[0]

    def replace(self, file, old, new):
        text = (self.path / file).read_text()
        assert old in text
        (self.path / file).write_text(text.replace(old, new, 1) if old else text)

    def git(self, *words):
        subprocess.run(["git", "-c", "user.name=a", "-c", "user.email=a@b.invalid", "-c", "safe.directory=*", *words], cwd=self.path, check=True)

    def commit(self):
        self.git("add", "-A")
        self.git("commit", "-q", "--allow-empty", "-m", "a change")

    def run(self, *command):
        return subprocess.run(command, cwd=self.path, check=False, capture_output=True, text=True)

    def proof(self):
        """The pages: Markdown and HTML."""
        out = self.path / "build/pages"
        out.mkdir(parents=True, exist_ok=True)
        done = self.run("/usr/bin/python3", "-B", "packaging/proof/page.py", ".", str(out))
        assert done.returncode == 0, done.stderr
        return (out / "proof.md").read_text(), (out / "proof.html").read_text()

    def row(self, claim):
        (line,) = [line for line in self.proof()[0].splitlines() if claim in line]
        return line


@pytest.fixture
def tree(tmp_path):
    return Tree(tmp_path / "tree")
