/* SPDX-License-Identifier: MIT */
/* The script and the player are those of the test kit. */
#include "listenScript.h"

#include <vosTest.hpp>

#include "../base/interrupts.h"
#include "../processes/captureFile.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

vos::test::Script scriptOf(const std::string &name, const std::string &file, bool delays) {
    constexpr uint64_t kLongestScript = 1 << 20;
    constexpr uint64_t kLongestCapture = 64 << 20;
    const std::string content = readWhole(file, kLongestCapture);
    const std::string path = file == "-" ? "standard input" : file;
    try {
        if (vos::test::isCapture(content)) {
            using vos::test::Delays;
            return vos::test::scriptOfCapture(content, path, name, delays ? Delays::kept : Delays::leftOut);
        }
        if (delays) throw Misuse(path + " is no capture: a script says itself what waits", "leave --delays out");
        if (content.size() > kLongestScript) throw Failure(path + " is too long for a script", "shorten it");
        return vos::test::Script::parse(content, file);
    } catch (const vos::test::CaptureError &error) {
        throw failureOf(error);
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

int listenByScript(Output &out, const std::string &name, const std::string &file, bool delays) {
    vos::test::Script script = scriptOf(name, file, delays);
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
