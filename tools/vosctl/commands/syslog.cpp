/* SPDX-License-Identifier: MIT */
/* vosctl syslog: the saved syslog. */
#include <vosFile.h>

#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string file;
    bool yes = false;
};

int show(Output &out) {
    uint32_t size = 0;
    vosFileSizeGet(szVosSyslogFileName, &size);
    std::string content(std::size_t{size} + 1, '\0');
    const int32_t count = vosFileSyslogRead(content.data(), size);
    if (count == VOS_ERR_NO_FILE)
        throw Failure(std::string("there is no saved syslog at ") + szVosSyslogFileName,
                      "save one with \"vosctl syslog save FILE\"");
    if (count < 0)
        throw Failure(std::string("the saved syslog ") + szVosSyslogFileName + " cannot be read",
                      "run it again with --verbose to see why");
    content.resize(static_cast<std::size_t>(count));
    if (!out.json()) out.raw(content);
    Json object{{"path", szVosSyslogFileName}};
    addPayload(object, content);
    out.document(object);
    return kDone;
}

int save(Output &out, const Arguments &arguments) {
    const std::string content = loadFile(arguments.file);
    if (vosFileExist(szVosSyslogFileName) == 1)
        confirm(std::string("The saved syslog ") + szVosSyslogFileName + " will be overwritten. Go on?", arguments.yes);
    const int32_t count = vosFileSyslogWrite(content.data(), lengthOf(content));
    if (count < 0 || static_cast<std::size_t>(count) != content.size())
        throw Failure(std::string("the syslog could not be saved whole to ") + szVosSyslogFileName,
                      "see that the flash has room and can be written, and save it again");
    Record record;
    record.add("path", "saved to", szVosSyslogFileName).add("bytes", "bytes", content.size());
    out.report(record);
    return kDone;
}

}  // namespace

void addSyslogCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const group = app.add_subcommand("syslog", "Show and save the saved syslog");
    group->require_subcommand(1);
    onRun(group->add_subcommand("show", "Print the saved syslog byte for byte"), context, show);
    CLI::App *const saving = group->add_subcommand("save", "Make a file the saved syslog");
    saving->add_option("FILE", arguments->file, "The file; - is standard input")->required();
    saving->add_flag("--yes", arguments->yes, "Do not ask");
    onRun(saving, context, [arguments](Output &out) { return save(out, *arguments); });
}

}  // namespace vosctl
