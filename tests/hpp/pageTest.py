# SPDX-License-Identifier: MIT
"""docs/cpp.md shows what compiles: each C++ block is a program or the inside of a function, and the two programs talk as the
page says. Runs in the sandbox.

    pageTest.py SOURCE-DIRECTORY BUILD-DIRECTORY C++-COMPILER
"""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

source, build, compiler = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]
page = (source / "docs/cpp.md").read_text(encoding="utf-8")
blocks = re.findall(r"^```cpp\n(.*?)^```$", page, flags=re.M | re.S)
programs = [block for block in blocks if "int main" in block]
fragments = [block for block in blocks if "int main" not in block]
PATIENCE = 60 * float(os.environ.get("VOS_TEST_PATIENCE", "1"))
START = "#include <mutex>\n#include <vector>\n#include <unistd.h>\n#include <vos.hpp>\nusing namespace std::chrono_literals;\n"


def expect(true, what):
    if not true:
        sys.exit(f"FAILED: {what}")


def compiled(code, *options):
    command = [compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", "-I", source / "include", "-xc++", "-", *options]
    done = subprocess.run(command, input=code, capture_output=True, text=True)
    expect(done.returncode == 0, f"this does not compile:\n{code}\n{done.stderr}")


expect(len(programs) == 2 and len(fragments) >= 5 and page.count("```") == 2 * len(blocks), "docs/cpp.md was not understood")
inside = "\n".join(f"void fragment{at}() {{\n{each}}}" for at, each in enumerate(fragments))
compiled(START + inside, "-fsyntax-only")

with tempfile.TemporaryDirectory() as directory:
    work = pathlib.Path(directory)
    for name, code in zip(("hello", "ask"), programs):
        compiled(code, "-o", work / name, "-xnone", build / "libvos.so", f"-Wl,-rpath,{build}")
    server = subprocess.Popen([work / "hello"], stdout=subprocess.PIPE, text=True)
    deadline = time.monotonic() + PATIENCE
    while not os.path.exists("/tmp/vos/helloHigh"):
        expect(time.monotonic() < deadline, "the first program is not reachable")
        time.sleep(0.01)
    said = subprocess.run([work / "ask"], capture_output=True, text=True, timeout=PATIENCE)
    expect(said.returncode == 0 and "code 1: hello\n" in said.stdout, said.stdout)
    server.send_signal(signal.SIGTERM)
    output = server.communicate(timeout=PATIENCE)[0]
    expect(server.returncode == 0 and "served 1\n" in output, output)
    said = subprocess.run([work / "ask"], capture_output=True, text=True, timeout=PATIENCE)
    expect(said.returncode == 1 and "no answer: a system call failed" in said.stdout, said.stdout)
print(len(programs), "programs,", len(fragments), "fragments")
