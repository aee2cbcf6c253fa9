# SPDX-License-Identifier: MIT
"""README.md is correct: its commands build and install the library, its programs are built against that and exchange
messages as it says, its commands for the demo device work, and every file that it names exists. A block or a word that
this test does not know fails the test. Runs in the sandbox.

    readmeTest.py SOURCE-DIRECTORY BUILD-DIRECTORY
"""
import json
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import time

source, build = map(pathlib.Path, sys.argv[1:])
readme = (source / "README.md").read_text(encoding="utf-8")
PATIENCE = 60 * float(os.environ.get("VOS_TEST_PATIENCE", "1"))

scratch = tempfile.TemporaryDirectory()
work = pathlib.Path(scratch.name)
prefix = work / "root/usr/local"
# What is installed under /usr/local is below work.
environment = {**os.environ, "DESTDIR": str(work / "root"), "CMAKE_BUILD_PARALLEL_LEVEL": "2"}
background = []


def expect(true, what):
    if not true:
        sys.exit(f"FAILED: {what}")


def run(command, statuses=(0,), env=environment):
    """Runs a shell command, and returns its output."""
    print("$", command, flush=True)
    said = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    ended = subprocess.run(["bash", "-c", command], cwd=work, env=env, stdin=subprocess.DEVNULL, **said)
    expect(ended.returncode in statuses, f"{command} ended with {ended.returncode}:\n{ended.stdout}")
    return ended.stdout


def start(command, output=subprocess.DEVNULL, env=environment):
    print("$", command, "&", flush=True)
    files = {"stdin": subprocess.DEVNULL, "stdout": output, "stderr": subprocess.STDOUT}
    background.append(subprocess.Popen(shlex.split(command), cwd=work, env=env, **files))
    return background[-1]


def eventually(true, what):
    deadline = time.monotonic() + PATIENCE
    while not true():
        expect(time.monotonic() < deadline, what)
        time.sleep(0.01)


def install(command):
    """As in a fresh checkout, in which only build/ is written."""
    for entry in source.iterdir():
        if entry.name != "build" and not (work / entry.name).exists():
            (work / entry.name).symlink_to(entry)
    run(command)
    library = next(prefix.glob("lib*/libvos.so")).parent
    environment["PKG_CONFIG_PATH"] = str(library / "pkgconfig")
    environment["CMAKE_PREFIX_PATH"] = str(prefix)
    environment["LD_LIBRARY_PATH"] = str(library)


def script_is_sound(command):
    """Not run in full. Each of them builds the tree once more, and then runs the tests of which this is one (test),
    measures for minutes (bench), or needs the network (device, package, release). Examples.* runs what demo shows, and Site.*
    runs site."""
    name, *arguments = command.split()
    script = source / name
    expect(os.access(script, os.X_OK), f"{name} is not there, or not executable")
    run(f"bash -n {shlex.quote(str(script))}")
    help_of_it = script.read_text(encoding="utf-8") + (source / "device/main.py").read_text(encoding="utf-8")
    if arguments:
        expect(re.search(rf"^ *#? *{re.escape(command)}\s", help_of_it, flags=re.M), f"nothing tells of {command}")


def start_program(command):
    name = command.split()[0].rpartition("/")[2]
    start(command.removesuffix("&"))
    eventually(lambda: os.path.exists(f"/tmp/vos/{name}"), f"{name} is not reachable")


def run_program(command):
    said = run(command)
    expected = 'answer "hello", code 42'
    expect(expected in readme and expected in said, f"{command} said: {said}")


def on_the_device(command):
    """Beside the demo device, as in the shell of scripts/demo --shell."""
    env = {**os.environ, "PATH": f"{build}/examples:{build}/tools:{os.environ['PATH']}"}
    answers = lambda: subprocess.run(["olt", "show"], env=env, capture_output=True).returncode == 0
    if not any("initd" in each.args for each in background):
        start(f"initd {shlex.quote(str(build))}/examples", env=env)
        eventually(answers, "the device does not start")
    if command.startswith("vosctl log "):
        shown = work / "log"
        with shown.open("wb") as output:
            follower = start(command, output, env=env)
        eventually(lambda: answers() and b" vosMsgRecv:" in shown.read_bytes(), f"{command} shows nothing")
        follower.send_signal(signal.SIGINT)
        expect(follower.wait(PATIENCE) == 0, f"{command} ended with {follower.returncode}")
        return
    shows = {"olt show": "olt, serial ", "vosctl ps": "oltd ", "vosctl doctor": "socket-directory"}
    # Exit status 1 of doctor: this kernel does not have the device's module.
    said = run(command, statuses=(0, 1) if command == "vosctl doctor" else (0,), env=env)
    expect(shows[command] in said, f"{command} said: {said}")


def build_project(lines):
    """The project of an application, with the two lines that the text shows."""
    project = work / "project"
    project.mkdir()
    find, link = lines
    (project / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.25)\nproject(greeter LANGUAGES C)\n"
        f"{find}\nadd_executable(greeter ../greeter.c)\n{link}\n")
    run("cmake -S project -B project/build && cmake --build project/build && test -x project/build/greeter")


# What to do with a command, in this order.
KINDS = [
    (r"cmake .*", install),
    # The loader's cache is the machine's; here LD_LIBRARY_PATH replaces it.
    (r"ldconfig", lambda command: None),
    (r"cc .*", run),
    (r"\./\w+ &", start_program),
    (r"\./\w+", run_program),
    (r"scripts/\w+.*", script_is_sound),
    (r"(olt|vosctl) .*", on_the_device),
]


# Commands of other projects, which cannot be run here.
FOREIGN = ["git clone", "docker run --privileged"]


def is_known(word):
    """A name in the text that is not a command."""
    exported = re.findall(r"^\s+(\w+);", (source / "vos/vos.map").read_text(encoding="utf-8"), flags=re.M)
    presets = json.loads((source / "CMakePresets.json").read_text(encoding="utf-8"))["configurePresets"]
    return (
        word in FOREIGN
        or word.removeprefix("man ").removesuffix("()") in exported
        or (source / word).exists()
        or (source / "scripts" / word).is_file()
        or (word.startswith("/") and os.path.isdir(word))
        or word in [preset["name"] for preset in presets]
        or word in programs
        or (word.startswith("build/") and word in (source / "scripts/site").read_text(encoding="utf-8"))
        or any(prefix.glob(f"lib*/{word}"))
        or (build / "tools" / word).is_file()
        or (word.startswith("--") and word in run(f"{shlex.quote(str(build))}/tools/vosctl --help"))
    )


blocks = list(re.finditer(r"^```(\w*)\n(.*?)^```$", readme, flags=re.M | re.S))
expect(readme.count("```") == 2 * len(blocks), "the fences of the blocks do not match")
text = re.sub(r"^```.*?^```$", "", readme, flags=re.M | re.S)
expect(not re.search(r"^(    |\t)", text, flags=re.M), "a block without a fence has no language")

commands, programs = [], []
for block in blocks:
    language, content = block.groups()
    if language == "c":  # a whole program; the text before gives it a name
        programs.append(re.findall(r"`(\w+\.c)`", readme[: block.start()])[-1])
        (work / programs[-1]).write_text(content)
    elif language == "sh":
        commands += [re.sub(r"\s+#.*", "", line) for line in content.splitlines()]
    else:  # a drawing has nothing to run
        expect(language == "text", f"a block of an unknown kind, \"{language}\":\n{content}")
spans = [" ".join(span.split()) for span in re.findall(r"`([^`]+)`", text)]
project_lines = [span for span in spans if re.fullmatch(r"(find_package|target_link_libraries)\(.*\)", span)]
commands += [span for span in spans if any(re.fullmatch(pattern, span) for pattern, _ in KINDS)]
words = [span for span in spans if span not in commands and span not in project_lines]
unknown = [command for command in commands if not any(re.fullmatch(pattern, command) for pattern, _ in KINDS)]
expect(not unknown, f"unknown commands: {unknown}")
expect(programs and commands and project_lines and words, "README.md was not understood")

try:
    for pattern, action in KINDS:
        for command in dict.fromkeys(commands):
            if next(each for each, _ in KINDS if re.fullmatch(each, command)) == pattern:
                action(command)
    build_project(project_lines)
    for word in dict.fromkeys(words):
        expect(is_known(word), f"there is no such thing: {word}")
    options = re.findall(r"^(?:option|set)\((VOS_\w+) .*", (source / "CMakeLists.txt").read_text(encoding="utf-8"), flags=re.M)
    installation = (source / "docs/install.md").read_text(encoding="utf-8")
    for option in options:
        expect(f"\n| `{option}` |" in installation, f"docs/install.md does not tell of {option}")
    expect(len(options) > 5, "CMakeLists.txt was not understood")
    for script in filter(pathlib.Path.is_file, (source / "scripts").iterdir()):
        expect(f"`{script.name}`" in readme or f"`scripts/{script.name}`" in readme, f"nothing tells of {script.name}")
finally:
    for process in background:
        process.kill()
print(f"{len(blocks)} blocks, {len(commands)} commands, {len(words)} other words")
