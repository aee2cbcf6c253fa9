/* SPDX-License-Identifier: MIT */
/* vosctl doctor: what on this machine keeps vos from working, and what to do. */
#include <algorithm>

#include "../flash/deviceTree.h"
#include "checks.h"
#include "commands.h"

namespace vosctl {

namespace {

/* What a development machine can do without: the module of the device's kernel, its flash, and the sizes that vosInit()
 * sets as root. */
enum class Matters { everywhere, onDevice };

struct Check {
    Finding (*look)();
    Matters matters = Matters::everywhere;
    bool inTree = false; /* of the device tree, which matters when --root names one */
};
constexpr Check kChecks[] = {
    {checkSocketDirectory},
    {checkStaleSockets},
    {checkSendCeiling, Matters::onDevice},
    {checkReceiveCeiling, Matters::onDevice},
    {checkQueueLength, Matters::onDevice},
    {checkNetlink, Matters::onDevice},
    {checkFlash, Matters::onDevice, true},
    {checkApp, Matters::onDevice, true},
    {checkJournal}, /* before the checks that complete what it holds */
    {checkSystemPartition},
    {checkFactoryPartition},
    {checkFactoryCopy},
    {checkApplication},
    {checkBackup},
    {checkConfiguration},
    {checkFlashRoom},
    {checkTerminals},
    {checkUptime},
};

Cell cellOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::good:
            return {"good", Style::good};
        case Verdict::warning:
            return {"warning", Style::warning};
        case Verdict::device:
            return {"device", Style::plain};
        case Verdict::error:
            break;
    }
    return {"error", Style::bad};
}

Table tableOf(const std::vector<Finding> &findings) {
    Table table{{{"check", "CHECK"}, {"verdict", "VERDICT"}, {"found", "FOUND"}, {"remedy", "WHAT TO DO"}}};
    for (const Finding &finding : findings)
        table.add({finding.check, cellOf(finding.verdict), finding.found,
                   finding.remedy.empty() ? Json(nullptr) : Json(finding.remedy)});
    return table;
}

/* Sentences are too long for columns beside each other: what to do stands below what was found. */
void print(Output &out, const std::vector<Finding> &findings) {
    for (const Finding &finding : findings) {
        const Cell verdict = cellOf(finding.verdict);
        out.line(
            verdict.text + std::string(9 - verdict.text.size(), ' ') + finding.check + ": " + printable(finding.found),
            finding.verdict == Verdict::good ? Style::plain : verdict.style);
        if (!finding.remedy.empty()) out.line("         -> " + printable(finding.remedy));
    }
}

Finding findingOf(const Check &check, bool isDevice) {
    Finding finding = check.look();
    const bool needed = isDevice || check.matters == Matters::everywhere || (check.inTree && !devicePath("").empty());
    if (finding.verdict == Verdict::error && !needed) finding.verdict = Verdict::device;
    return finding;
}

std::string summaryOf(std::size_t errors, std::size_t onDevice, std::size_t all) {
    std::string text = errors == 0 ? "Nothing on this machine keeps vos from working."
                                   : std::to_string(errors) + " of " + std::to_string(all) + " checks found an error.";
    if (onDevice > 0) text += " What is marked \"device\" is an error on a device only; --device counts it.";
    return text;
}

int doctor(Output &out, bool isDevice) {
    std::vector<Finding> findings;
    std::transform(std::begin(kChecks), std::end(kChecks), std::back_inserter(findings),
                   [isDevice](const Check &check) { return findingOf(check, isDevice); });
    const auto countOf = [&](Verdict verdict) {
        return static_cast<std::size_t>(
            std::count_if(findings.begin(), findings.end(),
                          [verdict](const Finding &finding) { return finding.verdict == verdict; }));
    };
    const std::size_t errors = countOf(Verdict::error);
    const std::size_t onDevice = countOf(Verdict::device);
    out.document(Json{{"errors", errors}, {"onDevice", onDevice}, {"checks", tableOf(findings).json()}});
    print(out, findings);
    out.line("");
    out.line(summaryOf(errors, onDevice, findings.size()));
    return errors == 0 ? kDone : kFailed;
}

}  // namespace

void addDoctorCommand(Command app, Context &context) {
    const auto isDevice = std::make_shared<bool>(false);
    Command command = app.command("doctor", "Tell what on this machine keeps vos from working, and what to do");
    command.flag("--device", *isDevice, "This machine is a device: what matters only there counts too");
    command.example("vosctl doctor");
    command.example("vosctl doctor --device");
    command.onRun(context, [isDevice](Output &out) { return doctor(out, *isDevice); });
}

}  // namespace vosctl
