/* SPDX-License-Identifier: MIT */
/* vosctl doctor: what on this machine would hinder vos, and what to do about it. */
#include <algorithm>

#include "checks.h"
#include "commands.h"

namespace vosctl {

namespace {

constexpr Finding (*kChecks[])() = {checkSocketDirectory, checkStaleSockets,     checkSendCeiling, checkReceiveCeiling,
                                    checkQueueLength,     checkNetlink,          checkFlash,       checkApp,
                                    checkSystemPartition, checkFactoryPartition, checkTerminals,   checkUptime};

Cell cellOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::good:
            return {"good", Style::good};
        case Verdict::warning:
            return {"warning", Style::warning};
        case Verdict::hinders:
            break;
    }
    return {"hinders", Style::bad};
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

int doctor(Output &out) {
    std::vector<Finding> findings;
    std::transform(std::begin(kChecks), std::end(kChecks), std::back_inserter(findings),
                   [](Finding (*check)()) { return check(); });
    const auto hindering = std::count_if(findings.begin(), findings.end(),
                                         [](const Finding &finding) { return finding.verdict == Verdict::hinders; });
    out.document(Json{{"hindering", hindering}, {"checks", tableOf(findings).json()}});
    print(out, findings);
    out.line("");
    out.line(hindering == 0 ? "Nothing hinders vos on this machine."
                            : std::to_string(hindering) + " of " + std::to_string(findings.size()) +
                                  " checks found something that hinders vos.");
    return hindering == 0 ? kDone : kFailed;
}

}  // namespace

void addDoctorCommand(CLI::App &app, Context &context) {
    onRun(app.add_subcommand("doctor", "Tell what on this machine would hinder vos, and what to do about it"), context,
          doctor);
}

}  // namespace vosctl
