# SPDX-License-Identifier: MIT
"""scripts/release makes two builds in different surroundings, and finds an artifact that depends on them. The build itself is replaced by
a few commands here."""
import shutil
import time

import pytest

if not all(map(shutil.which, ("faketime", "localedef"))):
    pytest.skip("faketime or locales is not installed (scripts/bootstrap release)", allow_module_level=True)


def release(tree, commands):
    for name, content in (("packaging/artifacts", commands), ("scripts/bootstrap", ""), ("testkit/vos-sandbox", "")):
        (tree.path / name).parent.mkdir(exist_ok=True)
        (tree.path / name).write_text(f"#!/bin/bash\nset -e\n{content}\n")
        (tree.path / name).chmod(0o755)
    tree.commit()
    return tree.run("scripts/release")


@pytest.mark.parametrize("command", ["date +%Y", "pwd", "umask", "date +%Z", "echo $LC_ALL", "echo $HOME", "touch new; stat -c %a new"])
def test_an_artifact_that_depends_on_its_surroundings_is_found(tree, command):
    done = release(tree, f'echo same >"$1/sound"\n{command} >"$1/artifact"')
    assert done.returncode == 1
    assert "differs between the two builds: artifact\nrelease: the builds differ; both are in build/release-differing\n" in done.stderr
    assert "sound" not in done.stderr
    kept = tree.path / "build/release-differing"
    assert (kept / "first/artifact").read_text() != (kept / "second/artifact").read_text()
    assert not (tree.path / "build/proof").exists()


def test_the_second_build_has_another_user(tree):
    release(tree, 'id -u >"$1/artifact"')
    kept = tree.path / "build/release-differing"
    assert 0 in {int((kept / each / "artifact").read_text()) for each in ("first", "second")}


def test_an_artifact_that_only_one_build_has_is_found(tree):
    done = release(tree, f'[ $(date +%s) -gt {int(time.time()) + 86400 * 250} ] || touch "$1/first-only"\ntouch "$1/both"')
    assert done.returncode == 1 and "differs between the two builds: first-only\n" in done.stderr


def test_nothing_uncommitted_comes_into_a_build(tree):
    (tree.path / ".git/info/exclude").write_text("stray\n")
    (tree.path / "stray").touch()
    release(tree, 'ls "$(dirname "$0")/.." >"$1/artifact"; pwd >>"$1/artifact"')
    assert "stray" not in (tree.path / "build/release-differing/first/artifact").read_text()


def test_a_build_that_fails_ends_the_release(tree):
    done = release(tree, "echo that failed >&2; exit 3")
    assert done.returncode != 0 and "that failed" in done.stderr and not list((tree.path / "build").glob("release-*"))
