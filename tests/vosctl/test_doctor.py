# SPDX-License-Identifier: MIT
"""vosctl doctor: each check that can fail, and its line with what to do."""
import os
import pathlib
import subprocess

import pytest
from conftest import SOCKETS
from stores import APPLICATION, flipped, image, install_first, write

BACKUP = pathlib.Path("/flash/hostImage.bin.last")
CEILINGS = {"net/core/wmem_max": ("send-ceiling", 4194304), "net/core/rmem_max": ("receive-ceiling", 6291456),
            "net/unix/max_dgram_qlen": ("queue-length", 4096)}


@pytest.fixture(autouse=True)
def ceilings():
    """As vosInit() sets them."""
    files = {pathlib.Path("/proc/sys") / name: needed for name, (_, needed) in CEILINGS.items()}
    before = {path: path.read_text() for path in files}
    for path, needed in files.items():
        path.write_text(f"{needed}\n")
    yield
    for path, text in before.items():
        path.write_text(text)


def checks(vosctl, *arguments, device=True):
    outcome = vosctl("--json", *arguments, "doctor", *(["--device"] if device else []))
    assert outcome.stderr == ""
    found = {each["check"]: each for each in outcome.json["checks"]}
    errors = sum(each["verdict"] == "error" for each in found.values())
    assert outcome.json["errors"] == errors
    assert outcome.json["onDevice"] == sum(each["verdict"] == "device" for each in found.values())
    assert outcome.status == (1 if errors else 0)
    assert all((each["remedy"] is None) == (each["verdict"] == "good") for each in found.values())
    return found


def is_error(vosctl, check, text):
    found = checks(vosctl)[check]
    assert found["verdict"] == "error"
    assert text in found["found"]


def warns(vosctl, check, text):
    found = checks(vosctl)[check]
    assert found["verdict"] == "warning"
    assert text in found["found"]


def test_each_check_is_made_once_and_in_order(vosctl):
    assert list(checks(vosctl)) == ["socket-directory", "stale-sockets", "send-ceiling", "receive-ceiling", "queue-length",
                                    "netlink", "flash", "app", "journal", "system-partition", "factory-partition", "factory-copy",
                                    "application", "backup", "configuration", "flash-room", "terminals", "uptime"]


def test_what_is_as_it_should_be_is_good(vosctl, agent):
    agent()
    found = checks(vosctl)
    assert {name for name, each in found.items() if each["verdict"] == "good"} >= {
        "socket-directory", "stale-sockets", "send-ceiling", "receive-ceiling", "queue-length", "flash", "app", "terminals",
        "uptime"}


def test_a_development_machine_can_do_without_what_only_a_device_has(vosctl, agent):
    agent()
    for name in CEILINGS:
        (pathlib.Path("/proc/sys") / name).write_text("4096\n" if "qlen" not in name else "10\n")
    found = checks(vosctl, device=False)
    assert {name for name, each in found.items() if each["verdict"] == "device"} == {
        "send-ceiling", "receive-ceiling", "queue-length", "netlink"}
    assert not any(each["verdict"] == "error" for each in found.values())
    assert {name for name, each in checks(vosctl).items() if each["verdict"] == "error"} == {
        "send-ceiling", "receive-ceiling", "queue-length", "netlink"}


def test_an_error_that_matters_everywhere_is_one_on_a_development_machine_too(vosctl):
    SOCKETS.write_text("")
    assert checks(vosctl, device=False)["socket-directory"]["verdict"] == "error"


def test_the_directories_of_a_tree_that_is_named_matter(vosctl, tmp_path):
    (tmp_path / "flash").mkdir()
    found = checks(vosctl, "--root", str(tmp_path), device=False)
    assert (found["flash"]["verdict"], found["app"]["verdict"]) == ("good", "error")


@pytest.mark.parametrize("name", CEILINGS)
def test_a_ceiling_below_what_is_asked_for(vosctl, name):
    check, needed = CEILINGS[name]
    (pathlib.Path("/proc/sys") / name).write_text(f"{needed - 1}\n")
    is_error(vosctl, check, f"{name.replace('/', '.')} is {needed - 1} and")
    assert f"sysctl -w {name.replace('/', '.')}=" in checks(vosctl)[check]["remedy"]


@pytest.mark.parametrize("name", CEILINGS)
def test_a_ceiling_that_cannot_be_read(vosctl, name):
    check, needed = CEILINGS[name]
    (pathlib.Path("/proc/sys") / name).write_text("nonsense\n")
    warns(vosctl, check, "cannot be read")


def test_a_missing_socket_directory_is_a_warning_while_it_can_be_made(vosctl):
    warns(vosctl, "socket-directory", "/tmp/vos does not exist")


def test_a_file_in_place_of_the_socket_directory(vosctl):
    SOCKETS.write_text("")
    is_error(vosctl, "socket-directory", "/tmp/vos is not a directory")
    warns(vosctl, "stale-sockets", "/tmp/vos cannot be read")


def test_a_symbolic_link_in_place_of_the_socket_directory(vosctl, tmp_path):
    SOCKETS.symlink_to(tmp_path)
    is_error(vosctl, "socket-directory", "/tmp/vos is not a directory")


def as_nobody(binary, *arguments):
    """Runs vosctl without the rights of root, who is allowed everything."""
    done = subprocess.run(["setpriv", "--bounding-set=-all", "--inh-caps=-all", "--", binary, *arguments],
                          stdout=subprocess.PIPE, check=False)
    return done.stdout.decode()


def test_a_socket_directory_that_cannot_be_written(binary):
    SOCKETS.mkdir()
    SOCKETS.chmod(0o555)
    told = as_nobody(binary, "doctor")
    assert "error    socket-directory: /tmp/vos cannot be written by this user" in told
    assert "chmod 1777 /tmp/vos" in told


def test_a_temporary_directory_that_cannot_be_written(binary):
    mode = os.stat("/tmp").st_mode
    os.chmod("/tmp", 0o555)
    try:
        assert "error    socket-directory: /tmp/vos does not exist and /tmp cannot be written" in as_nobody(binary, "doctor")
    finally:
        os.chmod("/tmp", mode)


def test_stale_sockets_are_listed(vosctl, stale):
    stale("old")
    stale("clientp1t2v3")
    warns(vosctl, "stale-sockets", "2 paths were left behind by processes that have ended: /tmp/vos/clientp1t2v3 /tmp/vos/old")
    assert "rm -- /tmp/vos/clientp1t2v3 /tmp/vos/old" in checks(vosctl)["stale-sockets"]["remedy"]


def test_the_advice_on_stale_sockets_can_be_pasted_whatever_their_names_are(vosctl, agent, stale):
    agent("a")  # what "*" would take along
    hostile = ["$(touch pwned)", "*", ";touch pwned", "a b", "it's", "`touch pwned`", "-rf", "new\nline", "x\udcff", "\\"]
    for name in hostile:
        stale(name)
    for text in (checks(vosctl)["stale-sockets"]["remedy"], vosctl("doctor").stdout.split("paths over; otherwise ")[1].split("\n")[0]):
        assert "\n" not in text
        command = text.rpartition("otherwise ")[2]
    subprocess.run(["bash", "-c", command], cwd=SOCKETS, check=True)
    assert not any((SOCKETS / name).exists() for name in hostile + ["pwned"])
    vosctl("send", "a", "x").ok()


def test_one_stale_socket_is_told_in_the_singular(vosctl, stale):
    stale("old")
    warns(vosctl, "stale-sockets", "1 path was left behind")


def test_a_kernel_without_the_devices_module(vosctl):
    is_error(vosctl, "netlink", "the kernel has no netlink protocol 30")


@pytest.mark.parametrize("check, path", [("system-partition", "/flash/sysdata"), ("factory-partition", "/app/factory")])
def test_partitions(vosctl, check, path):
    warns(vosctl, check, f"{path} does not exist")
    pathlib.Path(path).write_bytes(b"nonsense")
    is_error(vosctl, check, f"{path} is not a valid partition")


def test_fresh_partitions_are_valid(vosctl, example, background):
    background(pathlib.Path(os.environ["PROGRAMS"]) / "boot").finish()
    found = checks(vosctl)
    assert found["system-partition"]["verdict"] == found["factory-partition"]["verdict"] == "good"


@pytest.fixture
def installed(vosctl):
    """The second application, with the first one as its backup."""
    install_first()
    pathlib.Path("/app/hostImage.bin.ver").write_bytes(b"1.0\0")
    vosctl("image", "install", write("/tmp/image", image(2, b"second")), "--yes", "--version", "2.0").ok()


def verdicts(vosctl, *names):
    found = checks(vosctl)
    return [found[name]["verdict"] for name in names]


def test_an_application_with_its_backup_is_good(vosctl, installed):
    assert verdicts(vosctl, "application", "backup", "flash-room") == ["good"] * 3
    found = checks(vosctl)
    assert "version 2.0, is whole" in found["application"]["found"] and "version 1.0, is whole" in found["backup"]["found"]


def test_a_broken_application_is_an_error_and_the_backup_is_the_way_back(vosctl, installed):
    APPLICATION.write_bytes(flipped(APPLICATION.read_bytes()))
    is_error(vosctl, "application", "/app/hostImage.bin is broken")
    assert "vosctl image restore" in checks(vosctl)["application"]["remedy"]
    BACKUP.write_bytes(b"")
    warns(vosctl, "backup", "is broken")
    assert "by hand" in checks(vosctl)["application"]["remedy"]


def test_what_the_next_installation_would_not_keep(vosctl, installed):
    pathlib.Path("/app/hostImage.bin.ver").unlink()
    warns(vosctl, "application", "has no version")
    BACKUP.unlink()
    warns(vosctl, "backup", "there is no backup")
    APPLICATION.unlink()
    warns(vosctl, "application", "there is no application")
    assert verdicts(vosctl, "backup") == ["good"]


def test_an_empty_configuration(vosctl):
    saved = pathlib.Path("/flash/zebcfg")
    assert verdicts(vosctl, "configuration") == ["good"]
    saved.write_bytes(b"x")
    assert verdicts(vosctl, "configuration") == ["good"]
    saved.write_bytes(b"")
    warns(vosctl, "configuration", "/flash/zebcfg is empty")


def test_a_store_that_cannot_be_looked_at_is_told_and_the_others_are_looked_at(vosctl):
    os.mkfifo("/flash/zebcfg")
    os.mkfifo("/app/hostImage.bin")
    is_error(vosctl, "configuration", "/flash/zebcfg is no regular file")
    is_error(vosctl, "application", "/app/hostImage.bin is no regular file")
    assert verdicts(vosctl, "uptime") == ["good"]


def test_a_flash_without_room_for_the_next_backup(vosctl, tmp_path):
    (tmp_path / "app").mkdir()
    (tmp_path / "flash").mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16k", "tmpfs", tmp_path / "flash"], check=True)
    try:
        (tmp_path / "app/hostImage.bin").write_bytes(image(2, b"x" * 20000))
        (tmp_path / "app/hostImage.bin.ver").write_bytes(b"1.0\0")
        found = checks(vosctl, "--root", tmp_path)["flash-room"]
        assert found["verdict"] == "warning"
        assert f"{tmp_path}/flash has room for 16384 bytes, and the next backup of the application needs 20016" == found["found"]
    finally:
        subprocess.run(["umount", tmp_path / "flash"], check=True)


def test_a_device_tree_elsewhere(vosctl, tmp_path):
    (tmp_path / "flash").mkdir()
    (tmp_path / "flash" / "sysdata").write_bytes(b"x")
    found = checks(vosctl, "--root", str(tmp_path))
    assert found["flash"] == {"check": "flash", "verdict": "good", "found": f"{tmp_path}/flash can be written",
                              "remedy": None}
    assert f"{tmp_path}/app cannot be reached: No such file" in found["app"]["found"]
    assert f"{tmp_path}/flash/sysdata is not a valid partition" in found["system-partition"]["found"]
    assert found["factory-partition"]["found"] == f"{tmp_path}/app/factory does not exist"


def test_as_text(vosctl):
    outcome = vosctl("doctor", "--device")
    lines = outcome.stdout.splitlines()
    assert outcome.status == 1
    assert lines[0] == "warning  socket-directory: /tmp/vos does not exist"
    assert lines[1].startswith("         -> nothing while no process of vos has run")
    assert lines[-1] == "1 of 18 checks found an error."


def test_colours_only_when_wanted(vosctl):
    assert "\033" not in vosctl("doctor").stdout
    assert "\033[31m" in vosctl("--color", "always", "doctor", "--device").stdout
    assert "\033" not in vosctl("--color", "always", "--json", "doctor").stdout
