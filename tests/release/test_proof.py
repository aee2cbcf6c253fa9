# SPDX-License-Identifier: MIT
"""The proof of a release shows what was measured, and nothing else."""
import subprocess

import pytest
import records
from conftest import SOURCE

CLAIM = "Power cuts at random moments of the emulated device"


def record(tree, *words):
    return tree.run("/usr/bin/python3", "-B", "packaging/proof/record.py", *words)


def test_a_figure_that_a_command_has_written_is_on_both_pages_with_the_command_that_repeats_it(tree):
    assert record(tree, "powercut", "61 cuts <&|>", "with the seed 7").returncode == 0
    text, page = tree.proof()
    assert "| 61 cuts <&\\|> | with the seed 7; " in tree.row(CLAIM)
    assert "`scripts/device powercut`" in tree.row(CLAIM)
    assert "<td>61 cuts &lt;&amp;|&gt;</td>" in page and "61 cuts" in text
    assert "commit" not in tree.row(CLAIM)


def test_a_claim_without_a_record_is_not_measured_and_tells_the_command(tree):
    assert tree.row(CLAIM) == (
        "| Power cuts at random moments of the emulated device leave what docs/power-cuts.md describes | **not measured** | - | `scripts/device powercut` |")
    assert '<tr class=open id="powercut">' in tree.proof()[1]


def test_a_figure_of_another_commit_says_so(tree):
    record(tree, "powercut", "61 cuts", "with the seed 7")
    tree.commit()
    assert "on another commit, " in tree.row(CLAIM) and "1 commit before this one" in tree.row(CLAIM)


def test_a_figure_of_a_changed_tree_says_so(tree):
    tree.replace("README.md", "vos", "VOS")
    record(tree, "powercut", "61 cuts", "with the seed 7")
    assert "with changes that were not committed" in tree.row(CLAIM)


def test_a_figure_is_taken_back_when_the_measurement_fails(tree):
    record(tree, "powercut", "61 cuts", "with the seed 7")
    assert record(tree, "--failed", "powercut").returncode == 0
    assert "not measured" in tree.row(CLAIM)


def test_a_record_for_which_there_is_no_row_is_refused(tree):
    done = record(tree, "powercuts", "61 cuts", "with the seed 7")
    assert done.returncode == 1 and "has no row powercuts" in done.stderr


def test_a_record_without_a_commit_is_refused(tree):
    (tree.path / "build/proof").mkdir(parents=True)
    (tree.path / "build/proof/powercut.json").write_text('{"claim": "a", "figure": "1"}')
    done = tree.run("/usr/bin/python3", "-B", "packaging/proof/page.py", ".", "build")
    assert done.returncode != 0 and "has no measured" in done.stderr


def ctest(tree, *tests, preset="release", status=0):
    """Runs tests with ctest, and records their results."""
    directory = tree.path / "build/ctest"
    directory.mkdir(parents=True)
    (directory / "CTestTestfile.cmake").write_text("\n".join(tests))
    subprocess.run(["ctest", "--output-junit", "results.xml", "--test-output-size-passed", "100000"], cwd=directory, check=False, capture_output=True)
    assert record(tree, "--tests", preset, str(directory / "results.xml")).returncode == status


PASSING = 'add_test(Loop.Passes echo "3 calls failed, each in a run of its own")'
SKIPPING = 'add_test(Site.Skips sh -c "exit 77")\nset_tests_properties(Site.Skips PROPERTIES SKIP_RETURN_CODE 77)'


def test_a_run_of_the_tests_gives_its_numbers_and_what_the_tests_have_printed(tree):
    ctest(tree, PASSING, SKIPPING, 'add_test(Vosctl.ps echo "12 passed in 3s")')
    assert records.read(tree.path, "tests-release")["figure"] == "2 passed, 0 failed, 1 skipped; the files of pytest among them have 12 cases"
    assert records.read(tree.path, "tests-kinds")["figure"] == "1 scenarios of the library, 1 documents, 1 files of tests of vosctl"
    assert records.read(tree.path, "calls-failed")["figure"] == "3 calls failed, one in each run"
    assert records.read(tree.path, "kills") is None


def test_figures_that_tests_compare_with_ceilings_are_taken_over(tree):
    sizes = 'add_test(Abi.SizesStayBelowTheirCeilings sh -c "echo deepest calls: a; echo relocations: 395, ceiling 420")'
    counts = 'add_test(Instructions.StayBelowTheirCeilings echo "get, all: 12.5 instructions, ceiling 20")'
    ctest(tree, sizes, counts)
    assert records.read(tree.path, "sizes-x86_64")["figure"] == "relocations 395 (ceiling 420) bytes, but for relocations"
    assert records.read(tree.path, "instructions")["figure"] == "get, all 12.5 (ceiling 20) instructions"


def test_the_inputs_of_all_fuzz_targets_are_added_up(tree):
    ctest(tree, *(f'add_test(fuzz-{name} echo "stat::number_of_executed_units: {number}")' for name, number in (("dispatch", 1200), ("oem", 34))),
          preset="fuzz")
    assert records.read(tree.path, "fuzz")["figure"] == "1,234 inputs: dispatch 1,200, oem 34"
    assert records.read(tree.path, "hostile-datagrams")["figure"] == "1,200 inputs"


def test_a_fuzz_target_that_does_not_tell_its_inputs_is_an_error(tree):
    ctest(tree, "add_test(fuzz-oem true)", preset="fuzz", status=1)
    assert records.read(tree.path, "fuzz") is None


@pytest.mark.parametrize("failing", ['add_test(Loop.Fails false)', 'add_test(Loop.Missing /nowhere/program)'])
def test_a_failed_run_leaves_no_figure(tree, failing):
    records.write(tree.path, "tests-release", "all", "before")
    records.write(tree.path, "calls-failed", "many", "before")
    ctest(tree, PASSING, failing)
    assert records.read(tree.path, "tests-release") is None
    assert records.read(tree.path, "calls-failed") is None


def test_each_row_names_a_command_of_this_tree():
    rows, open_points = records.claims()
    for row in rows.values():
        first = row["command"].split()[0]
        assert first == "cmake" or (SOURCE / first).exists(), row["name"]
    assert open_points and all(each["what"] and each["why"] for each in open_points)
