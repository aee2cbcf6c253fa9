/* SPDX-License-Identifier: MIT */
/* The script and the player are those of the test kit. */
#include "listenScript.h"

#include <vosTest.hpp>

#include "../base/interrupts.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

vos::test::Script scriptOf(const std::string &file) {
    const std::string content = readWhole(file, 1 << 20);
    constexpr const char *kCapture = "\x0a\x0d\x0d\x0a"; /* how a capture begins */
    if (content.compare(0, 4, kCapture) == 0)
        throw Failure(printable(file) + " is a capture, and no script",
                      "write the expectations as docs/testkit.md shows");
    try {
        return vos::test::Script::parse(content, file);
    } catch (const vos::test::ScriptError &error) {
        throw Failure(printable(error.what()), "docs/testkit.md describes the lines of a script");
    }
}

void show(Output &out, const vos::test::Request &request) {
    Json document{{"socket", request.high ? "high" : "normal"},
                  {"from", request.from.empty() ? Json(nullptr) : Json(request.from)},
                  {"type", request.type},
                  {"answerWanted", request.answerWanted},
                  {"expected", request.expected},
                  {"fate", request.fate}};
    addPayload(document, request.payload);
    out.documentLine(document);
    out.line(document["socket"].get<std::string>() + ", " + std::to_string(request.payload.size()) + " bytes from " +
                 (request.from.empty() ? "an unnamed socket" : printable(request.from)) + ", " + request.fate,
             Style::heading);
    if (!out.json()) printPayload(out, request.payload);
    out.flush();
}

std::unique_ptr<vos::test::Player> playerOf(const std::string &name, vos::test::Script script) {
    try {
        return std::make_unique<vos::test::Player>(name, std::move(script));
    } catch (const std::exception &error) {
        throw Failure(printable(error.what()), "choose a name that \"vosctl ps\" does not list");
    }
}

}  // namespace

int listenByScript(Output &out, const std::string &name, const std::string &file) {
    vos::test::Script script = scriptOf(file);
    const Interrupts interrupts;
    const auto player = playerOf(name, std::move(script));
    out.line("Playing " + printable(name) + " as " + printable(file) + " says; Ctrl-C ends it.", Style::faint);
    out.flush();
    bool going = true;
    for (std::size_t shown = 0; going && !player->complete();) {
        going = player->serve(interrupts.fd());
        for (; shown < player->served(); ++shown) show(out, player->request(shown));
    }
    const vos::test::Report report = player->report();
    if (report.ok()) return kDone;
    std::string problems;
    for (const std::string &problem : report.problems) problems += (problems.empty() ? "" : ", ") + printable(problem);
    throw Failure(problems, "compare the script with the messages above");
}

}  // namespace vosctl
