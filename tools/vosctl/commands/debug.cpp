/* SPDX-License-Identifier: MIT */
/* vosctl debug, vosctl smd: the debug words of a running process. */
#include <vosDebug.h>
#include <vosMsg.h>

#include "../base/words.h"
#include "../processes/names.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string name;
    std::vector<std::string> words;
    std::string word;
};

int sendWord(Output &out, const std::string &name, uint32_t word, int32_t (*send)(const char *, uint32_t)) {
    requireReachable(name);
    if (send(name.c_str(), word) != VOS_OK)
        explainSilence(name, Pair::normal, "the word could not be sent to " + name, "run it again with --verbose");
    Record record;
    record.add("name", "name", name).add("word", "word sent", Cell{word, hexWord(word), Style::plain});
    out.report(record);
    return kDone;
}

}  // namespace

void addDebugCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();

    CLI::App *const debug = app.add_subcommand("debug", "Set which log lines a process prints");
    addName(debug, arguments->name);
    debug
        ->add_option("LEVEL", arguments->words,
                     "error, trace, event, no-timeouts, none, or a word such as 0x26; several are "
                     "combined; without any, error, as after the start")
        ->check(CLI::Validator([](const std::string &text) { return levelMistake(text); }, ""));
    onRun(debug, context, [arguments](Output &out) {
        return sendWord(out, arguments->name, levelsOf(arguments->words), vosMsgDebugVos);
    });

    CLI::App *const smd = app.add_subcommand("smd", "Set the second debug word of a process, the applications' own");
    addName(smd, arguments->name);
    smd->add_option("WORD", arguments->word, "32-bit word, decimal or with 0x hexadecimal")
        ->required()
        ->check(CLI::Validator([](const std::string &text) { return wordMistake(text); }, ""));
    onRun(smd, context, [arguments](Output &out) {
        return sendWord(out, arguments->name, *wordOf(arguments->word), vosMsgDebugSmd);
    });
}

}  // namespace vosctl
