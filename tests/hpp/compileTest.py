# SPDX-License-Identifier: MIT
"""What compilers say to vos.hpp, and what they make of it.

    compileTest.py SOURCE-DIRECTORY matrix   g++ and clang, C++17, 20 and 23, with and without exceptions and run-time
                                             types, without a warning
    compileTest.py SOURCE-DIRECTORY misuse   what must not compile does not, for the reason that is meant
    compileTest.py SOURCE-DIRECTORY cost     a request takes as many instructions as the same request in C
"""
import pathlib
import re
import subprocess
import sys
import tempfile

source, mode = pathlib.Path(sys.argv[1]), sys.argv[2]
COMPILERS = ("g++", "clang++-14")
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion", "-Wsign-conversion", "-Wold-style-cast",
            "-Wcast-align", "-Wformat=2", "-Werror"]
INCLUDE = ["-I", source / "include"]
failures = []


def run(*command, text=None):
    return subprocess.run(list(map(str, command)), input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def matrix():
    count = 0
    for compiler in COMPILERS:
        for standard in ("c++17", "c++20", "c++2b"):
            for options in ([], ["-fno-exceptions", "-fno-rtti"], ["-DNDEBUG"]):
                if options == ["-DNDEBUG"] and standard != "c++17":
                    continue
                done = run(compiler, f"-std={standard}", *options, *WARNINGS, *INCLUDE, "-fsyntax-only", source / "tests/hpp/whole.cpp")
                count += 1
                if done.returncode != 0 or done.stdout:
                    failures.append(f"{compiler} {standard} {options}:\n{done.stdout}")
    for compiler in COMPILERS:  # the test kit's, which use exceptions
        for standard in ("c++17", "c++2b"):
            done = run(compiler, f"-std={standard}", *WARNINGS, *INCLUDE, "-I", source / "testkit/include", "-fsyntax-only", "-xc++", "-",
                       text="#include <vosTest.hpp>\n#include <vosFaults.h>\n")
            count += 1
            if done.returncode != 0 or done.stdout:
                failures.append(f"{compiler} {standard} vosTest.hpp:\n{done.stdout}")
    for header in (source / "include").glob("*.hpp"):
        macros = re.findall(r"^\s*#\s*define\s+(.*)$", header.read_text(encoding="utf-8"), flags=re.M)
        if len(macros) != 1 or not re.fullmatch(r"VOS(_[A-Z]+)*_HPP", macros[0]):
            failures.append(f"{header.name} leaks macros: {macros}")
    print(count, "compilations")


START = """#include <vos.hpp>
using namespace std::chrono_literals;
struct Record { int32_t number; };
void use(vos::channel &channel, vos::request &request, Record record, std::string_view view, int *pointer) {
    static_cast<void>(channel), static_cast<void>(request), static_cast<void>(record), static_cast<void>(view), static_cast<void>(pointer);
    %s
}
"""
# What is right, what is wrong, and what at least one line of the compiler's reason says.
MISUSES = [
    ('(void)vos::call("a", record, 3s);', '(void)vos::call("a", record, 3000);', "timeout"),
    ('(void)channel.every(1s, []{});', '(void)channel.every(1000, []{});', "interval"),
    ('(void)channel.every(1s, []{});', '(void)channel.every(vos::forever, []{});', "interval"),
    ('(void)channel.every(1s, []{});', '(void)channel.every(1s, [](int, int){});', "does not take the arguments"),
    ('(void)channel.every(1s, []{});', 'channel.every(1s, []{});', "nodiscard|unused"),
    ('(void)vos::post("a", record, 1s);', '(void)vos::post("a", pointer, 1s);', "content"),
    ('(void)vos::post("a", record, 1s);', '(void)vos::post("a", std::vector<std::string>{}, 1s);', "content"),
    ('(void)vos::post("a", record, 1s);', '(void)vos::post("a", std::array<int *, 2>{}, 1s);', "content"),
    ('(void)vos::post("a", record, 1s);', '(void)vos::post("a", vos::result<int>{1}, 1s);', "content"),
    ('(void)vos::exchange("a", record, 1s);', 'std::string text; (void)vos::exchange("a", text, 1s);', "trivially copyable"),
    ('(void)vos::exchange("a", record, 1s);', 'const Record fixed{1}; (void)vos::exchange("a", fixed, 1s);', "replaces the record"),
    ('(void)vos::exchange("a", record, 1s);', 'static char large[64569]; (void)vos::exchange("a", large, 1s);', "does not fit"),
    ('(void)request.as<Record>();', '(void)request.as<std::string>();', "trivially copyable"),
    ('vos::request moved = std::move(request); moved.ignore();', 'vos::request copy = request; copy.ignore();', "deleted"),
    ('vos::channel other; (void)other;', 'vos::channel copy = channel;', "deleted"),
    ('vos::timer one, two = std::move(one);', 'vos::timer one, two = one;', "deleted"),
    ('(void)vos::process::init(std::string{view});', '(void)vos::process::init(view);', "c_text"),
    ('(void)vos::items::set(vos::items::ipAddress, 5);', '(void)vos::items::set(vos::items::systemMac, 5);', "array|conver"),
    ('(void)vos::items::get(vos::items::ipAddress);', '(void)vos::items::get(vos::items::privilegedPasswordFlag);', "cannot be read"),
    ('vos::log(vos::level::error)("%d", 1);', 'vos::log(vos::level::error)("%s", 1);', "format"),
    ('vos::log(vos::level::error)("%d", 1);', 'vos::log(vos::level::error)("%d %d", 1);', "format|conversions"),
    ('vos::log(vos::level::error)("%d", 1);', 'vos::log(vos::level::error)("%s", std::string{});', "non-triv|format"),
    ('(void)vos::shared_memory<Record>::attach("/tmp", 1);', '(void)vos::shared_memory<std::string>::attach("/tmp", 1);', "trivially copyable"),
    ('(void)**vos::shared_memory<const Record>::attach("/tmp", 1);',
     '(**vos::shared_memory<const Record>::attach("/tmp", 1)).number = 1;', "read-only|const"),
    ('(void)vos::connected_socket(SOCK_STREAM, sockaddr_in{}, 1s);',
     'sockaddr any{}; (void)vos::connected_socket(SOCK_STREAM, any, 1s);', "does not tell its length"),
    ('(void)vos::shell::run("true");', 'vos::shell::run("true");', "nodiscard|unused"),
    ('(void)channel.open_netlink("a");', 'vos::second_channel second; (void)second.open_netlink("a");', "no netlink"),
]


def misuse():
    with tempfile.TemporaryDirectory() as directory:
        file = pathlib.Path(directory) / "use.cpp"
        for compiler in COMPILERS:
            # All that is right in one compilation, each in a block of its own.
            right = dict.fromkeys(right for right, _, _ in MISUSES)
            file.write_text("#include <vector>\n#include <array>\n" + START % "\n".join(f"{{ {each} }}" for each in right))
            done = run(compiler, "-std=c++17", *WARNINGS, *INCLUDE, "-fsyntax-only", file)
            if done.returncode != 0:
                failures.append(f"{compiler}: what is right does not compile:\n{done.stdout}")
            # The header is read once more for each misuse, so one compiler has to do for most of them.
            for _, wrong, reason in MISUSES if compiler == COMPILERS[0] else MISUSES[::4]:
                file.write_text("#include <vector>\n#include <array>\n" + START % wrong)
                done = run(compiler, "-std=c++17", *WARNINGS, *INCLUDE, "-fsyntax-only", file)
                if done.returncode == 0:
                    failures.append(f"{compiler} compiles {wrong}")
                elif not re.search(reason, done.stdout):
                    failures.append(f"{compiler} refuses {wrong} for another reason than {reason}:\n{done.stdout[:2000]}")
    print(len(MISUSES), "misuses")


IN_C = """#include <errno.h>
#include <vos.h>
struct record { int32_t a, b; };
int32_t ask(struct record *pRecord) {
    uint32_t code = 0;
    const int32_t result = vosMsgSend("server", pRecord, sizeof *pRecord, VOS_MSG_WAIT_ANSWER, &code, 3000, 0);
    if (result == VOS_OK) return (int32_t)code;
    return result == VOS_ERROR && errno == EAGAIN ? VOS_ERR_TIMEOUT : result;
}
"""
IN_CPP = """#include <vos.hpp>
using namespace std::chrono_literals;
struct record { int32_t a, b; };
extern "C" int32_t ask(record *pRecord) {
    const auto answer = vos::exchange("server", *pRecord, 3s);
    return answer ? *answer : answer.code();
}
"""


def disassembled(compiler, options, text, suffix, directory):
    """The instructions of ask(), by address: mnemonic and operands."""
    file, made = directory / f"ask.{suffix}", directory / f"ask.{suffix}.o"
    file.write_text(text)
    done = run(compiler, "-O2", "-DNDEBUG", *options, *INCLUDE, "-c", file, "-o", made)
    if done.returncode != 0:
        sys.exit(done.stdout)
    listing = run("objdump", "-dr", "--no-show-raw-insn", "--disassemble=ask", made).stdout
    found = re.findall(r"^ +([0-9a-f]+):\t(\S+) *(.*?)\s*$", listing, flags=re.M)
    calls = re.findall(r"R_X86_64_PLT32\s+(\w+)", listing)
    return {int(at, 16): (name, rest) for at, name, rest in found if not name.startswith("R_X86")}, set(calls)


def on_success(code):
    """How many instructions run when vosMsgSend() returns 0."""
    order = sorted(code)
    at, count, zero, called = order[0], 0, None, False
    while True:
        name, rest = code[at]
        count += 1
        following = order[order.index(at) + 1] if at != order[-1] else None
        if name == "ret":
            return count
        if name == "call":
            called = True
        elif called and (name, rest) in (("test", "%eax,%eax"), ("test", "%ebx,%ebx")):
            zero = True
        elif called and (name, rest) == ("cmp", "$0xffffffff,%eax"):
            zero = False
        elif name in ("cmp", "cmpl", "test"):
            zero = None
        target = int(rest.split()[0], 16) if name.startswith("j") else None
        if name.startswith("j") and name != "jmp" and (zero is None or name not in ("je", "jne")):
            sys.exit(f"the path is not understood at {at:#x}: {name} {rest}")
        if name == "jmp" or (name == "je" and zero) or (name == "jne" and zero is False):
            following = target
        at = following


def cost():
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(name)
        for c, cpp in (("gcc", "g++"), ("clang-14", "clang++-14")):
            first, calls = disassembled(c, [], IN_C, "c", directory)
            for options in (["-std=c++17"], ["-std=c++17", "-fno-exceptions", "-fno-rtti"]):
                second, cpp_calls = disassembled(cpp, options, IN_CPP, "cpp", directory)
                told = f"{cpp} {' '.join(options)}: {on_success(second)} of {len(second)} instructions run, in C {on_success(first)} of {len(first)}"
                print(told)
                if cpp_calls != calls or calls != {"vosMsgSend", "__errno_location"}:
                    failures.append(f"{cpp}: calls {cpp_calls}, in C {calls}")
                if on_success(second) > on_success(first):
                    failures.append(told)
                if len(second) > len(first) + 12:  # g++ repeats the end of the function for each way to it
                    failures.append("too large: " + told)


{"matrix": matrix, "misuse": misuse, "cost": cost}[mode]()
for failure in failures:
    print("FAILED:", failure)
sys.exit(bool(failures))
