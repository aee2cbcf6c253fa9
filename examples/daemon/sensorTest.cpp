/* SPDX-License-Identifier: MIT */
/* The daemon and a sensor that this test plays: sensorTest THERMOD. */
#include <sys/wait.h>
#include <unistd.h>
#include <vos.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vosTest.hpp>

using namespace std::chrono_literals;

namespace {

int failures = 0;

void expect(bool held, const std::string &what) {
    printf("%s: %s\n", held ? "ok" : "FAILED", what.c_str());
    failures += held ? 0 : 1;
}

/* What the daemon answers to "state": "cool", "hot", "unknown", or "" when it does not answer. */
std::string state() {
    char text[32] = "state";
    uint32_t code = 0;
    if (vosMsgSend("thermod", text, sizeof text, VOS_MSG_WAIT_ANSWER, &code, 3000, 0) != VOS_OK) return "";
    return {text, strnlen(text, sizeof text)};
}

std::string padded(std::string text) {
    text.resize(32);
    return text;
}

pid_t start(const char *program) {
    const pid_t pid = fork();
    if (pid == 0) {
        execl(program, program, static_cast<char *>(nullptr));
        _exit(127);
    }
    while (state().empty() && waitpid(pid, nullptr, WNOHANG) == 0) usleep(10000);
    return pid;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    vosProcessInit("sensorTest");
    const pid_t daemon = start(argv[1]);
    expect(state() == "unknown", "without a sensor the state is unknown");
    {
        vos::test::Peer sensor("sensord");
        sensor.expectPrefix("now").answer(20, padded("celsius"));
        sensor.expectPrefix("now").answer(21, padded("celsius"));
        sensor.expectPrefix("now").after(100ms).answer(-40, padded("celsius"));
        sensor.expectPrefix("now").answer(100, padded("kelvin"));
        sensor.expectPrefix("now").raw("no answer at all");
        sensor.expectPrefix("now").silence();
        sensor.expectPrefix("now").die();
        expect(state() == "cool", "at the limit it is cool");
        expect(state() == "hot", "above it, it is hot");
        expect(state() == "cool", "a slow answer is good enough, and a temperature may be below 0");
        expect(state() == "unknown", "another unit is not taken for degrees");
        expect(state() == "unknown", "nor are bytes that are no answer");
        expect(state() == "unknown", "a silent sensor does not stop the daemon");
        expect(state() == "unknown", "nor does one that dies");
        const vos::test::Report report = sensor.finish(1s);  // the daemon has answered, so it has asked
        expect(report.ok(), "the sensor was asked as often as it should be\n" + report.text());
    }
    {
        /* The same from a text, such as one that "vosctl listen --script" plays. */
        vos::test::Peer sensor("sensord",
                               vos::test::Script::parse("expect any\n answer 99 \"celsius\\x00\"\n", "script"));
        expect(state() == "hot", "a sensor that comes back is asked again");
        expect(sensor.finish(1s).ok(), "once");
    }
    kill(daemon, SIGKILL);
    waitpid(daemon, nullptr, 0);
    return failures == 0 ? 0 : 1;
}
