# SPDX-License-Identifier: MIT
"""scripts/release refuses a tree that cannot be released, with one message."""
import datetime
import re


def refusal(tree):
    done = tree.run("scripts/release", "--check")
    assert done.returncode == 1 and done.stdout == "" and not (tree.path / "build").exists()
    return done.stderr


def test_a_committed_tree_with_a_dated_version_can_be_released(tree):
    done = tree.run("scripts/release", "--check")
    assert done.returncode == 0, done.stderr
    assert re.fullmatch(r"version [\d.]+ of \d{4}-\d\d-\d\d can be released\n", done.stdout)


def test_a_changed_file_is_refused(tree):
    tree.replace("README.md", "vos", "VOS")
    assert refusal(tree) == "release: the tree is not as committed: README.md\n"


def test_a_file_that_git_does_not_know_is_refused(tree):
    (tree.path / "new").touch()
    assert refusal(tree) == "release: the tree is not as committed: new\n"


def test_changes_that_are_not_released_are_refused(tree):
    tree.replace("CHANGELOG.md", "## Unreleased\n", "## Unreleased\n\n### Added\n- A call.\n")
    tree.commit()
    assert refusal(tree) == "release: CHANGELOG.md has changes that are not released: ### Added\n"


def test_a_version_that_is_not_in_the_changelog_is_refused(tree):
    text = (tree.path / "CMakeLists.txt").read_text()
    (tree.path / "CMakeLists.txt").write_text(re.sub(r"(project\(vos VERSION )[\d.]+", r"\g<1>9.9.9", text))
    tree.commit()
    assert "and the build is version 9.9.9\nrelease: the versions do not agree\n" in refusal(tree)


def test_a_day_that_has_not_come_is_refused(tree):
    later = (datetime.date.today() + datetime.timedelta(days=3)).isoformat()
    text = (tree.path / "CHANGELOG.md").read_text()
    (tree.path / "CHANGELOG.md").write_text(re.sub(r"(## \d[\d.]* - )\S+", rf"\g<1>{later}", text, count=1))
    tree.commit()
    assert refusal(tree) == f"release: the day of the release, {later}, has not come yet\n"


def test_a_tag_at_another_commit_is_refused(tree):
    version = re.search(r"project\(vos VERSION ([\d.]+)", (tree.path / "CMakeLists.txt").read_text())[1]
    tree.git("tag", f"v{version}")
    assert tree.run("scripts/release", "--check").returncode == 0
    tree.commit()
    assert refusal(tree) == f"release: the tag v{version} is at another commit\n"


def test_an_unknown_option_is_refused(tree):
    done = tree.run("scripts/release", "--twice")
    assert done.returncode == 2 and done.stderr.startswith("usage: scripts/release ")
