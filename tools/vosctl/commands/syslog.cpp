/* SPDX-License-Identifier: MIT */
/* vosctl syslog: the saved syslog. */
#include <fcntl.h>
#include <unistd.h>
#include <vosFile.h>

#include <algorithm>

#include "../base/fd.h"
#include "../flash/deviceFile.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string file;
    bool yes = false;
};

constexpr uint64_t kLongestSyslog = 0x7FFFFFFF; /* the library returns the length as a signed word */

int show(Output &out) {
    const auto content = readDeviceFile(szVosSyslogFileName);
    if (!content)
        throw Failure(std::string("there is no saved syslog at ") + szVosSyslogFileName,
                      "save one with \"vosctl syslog save FILE\"");
    if (!out.json()) out.raw(*content);
    Json object{{"path", szVosSyslogFileName}};
    addPayload(object, *content);
    out.document(object);
    return kDone;
}

/* The library does not flush the syslog. The tool flushes it, so that what it reports as saved is on the flash. */
bool write(const std::string &content) {
    if (vosFileSyslogWrite(content.data(), lengthOf(content)) != static_cast<int32_t>(content.size())) return false;
    const Fd file{open(szVosSyslogFileName, O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    return fsync(file.get()) == 0;
}

int save(Output &out, const Arguments &arguments) {
    const DeviceFile before{szVosSyslogFileName};
    const std::string content = readWhole(arguments.file, std::min(before.room(), kLongestSyslog));
    before.requireTakes(content.size());
    if (before.content())
        confirm(std::string("The saved syslog ") + szVosSyslogFileName + " will be overwritten. Go on?", arguments.yes);
    replaceContent({"the syslog", before, content, [&content] { return write(content); }});
    Record record;
    record.add("path", "saved to", szVosSyslogFileName).add("bytes", "bytes", content.size());
    out.report(record);
    return kDone;
}

}  // namespace

void addSyslogCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command group = app.group("syslog", "Show and save the saved syslog");
    Command showing = group.command("show", "Print the saved syslog byte for byte");
    showing.example("vosctl syslog show");
    showing.onRun(context, show);
    Command saving = group.command("save", "Make a file the saved syslog");
    saving.argument("FILE", arguments->file, "The file; - is standard input").required().notEmpty("FILE");
    saving.flag("--yes", arguments->yes, "Do not ask");
    saving.example("vosctl syslog save log.txt");
    saving.onRun(context, [arguments](Output &out) { return save(out, *arguments); });
    /* Added last: a command that is added to the group later would inherit these examples. */
    group.example("vosctl syslog show");
}

}  // namespace vosctl
