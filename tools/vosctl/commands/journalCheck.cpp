/* SPDX-License-Identifier: MIT */
/* Whether the library saves by way of a journal, and what lies in it. */
#include <vosFile.h>

#include <algorithm>

#include "../base/failure.h"
#include "../flash/deviceFile.h"
#include "../flash/journal.h"
#include "checks.h"

namespace vosctl {

namespace {

constexpr const char *kCheck = "journal";

std::string join(const std::string &text, const std::string &more) { return text.empty() ? more : text + ", " + more; }

/* What each file in the journal is. Records of installations stay there, and files with other names are ignored. */
std::string listOf(const std::vector<KeptFile> &files) {
    std::string text;
    for (const KeptFile &file : files) {
        if (file.kept == Kept::save) text = join(text, "a sound entry for " + file.target);
        if (file.kept == Kept::torn) text = join(text, "a torn entry " + file.name);
        if (file.kept == Kept::image) text = join(text, "the record of an installation to " + file.target);
        if (file.kept == Kept::unfinished) text = join(text, "an unfinished entry " + file.name);
        if (file.kept == Kept::foreign) text = join(text, "a file " + file.name + ", which is ignored");
    }
    return text.empty() ? "it is empty" : "in it: " + text;
}

Finding lookAtJournal() {
    if (!hasJournal())
        return {kCheck, Verdict::good, "off: a power cut during a save can leave a torn or empty file", ""};
    const std::string on = std::string("on, in ") + szVosJournalDir + "; ";
    const auto files = keptInJournal();
    if (!files) return {kCheck, Verdict::good, on + "the first save makes the directory", ""};
    const auto has = [&](Kept kept) {
        return std::any_of(files->begin(), files->end(), [&](const KeptFile &file) { return file.kept == kept; });
    };
    const std::string found = on + listOf(*files);
    if (has(Kept::save))
        return {kCheck, Verdict::warning, found,
                "nothing: a save was interrupted, or is at work; the next program that reads the file completes it"};
    if (has(Kept::torn))
        return {kCheck, Verdict::warning, found, "nothing: the next program that reads its file removes a torn entry"};
    return {kCheck, Verdict::good, found, ""};
}

}  // namespace

Finding checkJournal() {
    try {
        return lookAtJournal();
    } catch (const Failure &failure) {
        return {kCheck, Verdict::error, failure.what(), failure.nextStep()};
    }
}

}  // namespace vosctl
