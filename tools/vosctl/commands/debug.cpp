/* SPDX-License-Identifier: MIT */
/* vosctl debug, vosctl smd: the debug words of a running process. */
#include <vosDebug.h>

#include "../base/words.h"
#include "../processes/exchange.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string name;
    std::vector<std::string> words;
    std::string word;
    uint32_t timeoutMs = 3000; /* wait while the queue of the process is full */
};

int sendWord(Output &out, const Arguments &arguments, uint32_t type, uint32_t word) {
    VOS_MSG_HEAD head{};
    head.ulType = type;
    head.ulValue1 = word;
    Requester{arguments.name, Pair::normal, arguments.timeoutMs}.send(head, "");
    Record record;
    record.add("name", "name", arguments.name).add("word", "word sent", Cell{word, hexWord(word), Style::plain});
    out.report(record);
    return kDone;
}

/* The word of a process cannot be read from outside. */
int showLevels(Output &out, const std::string &name) {
    requireReachable(name);
    Table table{{{"level", "LEVEL"}, {"word", "WORD"}, {"meaning", "WHAT THE PROCESS PRINTS"}}};
    for (const Level &level : levels())
        table.add(
            {std::string(level.name), Cell{level.word, hexWord(level.word), Style::plain}, std::string(level.meaning)});
    out.document(Json{{"name", name}, {"levels", table.json()}});
    out.text(table);
    out.line("Nothing is changed. \"vosctl debug " + name +
             " LEVEL...\" sets the word; it cannot be read from outside.");
    return kDone;
}

}  // namespace

void addDebugCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();

    Command debug = app.command("debug", "Set which log lines a process prints");
    debug.name(arguments->name);
    debug
        .argument("LEVEL", arguments->words,
                  "error, trace, event, no-timeouts, none, or a word such as 0x26; several are combined, and errors "
                  "stay on unless none or a word is among them; without any, nothing is changed")
        .check(levelMistake);
    debug.timeout(arguments->timeoutMs);
    debug.example("vosctl debug oltd trace");
    debug.example("vosctl debug oltd error");
    debug.onRun(context, [arguments](Output &out) {
        if (arguments->words.empty()) return showLevels(out, arguments->name);
        return sendWord(out, *arguments, VOS_MSG_VOS_DEBUG, levelsOf(arguments->words));
    });

    Command smd = app.command("smd", "Set the second debug word of a process, the applications' own");
    smd.name(arguments->name);
    smd.argument("WORD", arguments->word, "32-bit word, decimal or with 0x hexadecimal").required().check(wordMistake);
    smd.timeout(arguments->timeoutMs);
    smd.example("vosctl smd oltd 0x805");
    smd.onRun(context, [arguments](Output &out) {
        return sendWord(out, *arguments, VOS_MSG_SMD_DEBUG, *wordOf(arguments->word));
    });
}

}  // namespace vosctl
