/* SPDX-License-Identifier: MIT */
/* vosctl config: the saved configuration. */
#include <vosFile.h>

#include <optional>

#include "../flash/deviceTree.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string file;
    bool yes = false;
};

std::string saved() {
    char *bytes = nullptr;
    uint32_t length = 0;
    const int32_t code = vosFileCfgRead(&bytes, &length);
    if (code == VOS_ERR_NO_FILE)
        throw Failure(std::string("there is no saved configuration at ") + szVosCfgFileName,
                      "save one with \"vosctl config save FILE\"");
    if (code != VOS_OK)
        throw Failure(std::string("the saved configuration ") + szVosCfgFileName + " cannot be read",
                      "run it again with --verbose to see why");
    std::string content(bytes, length);
    vosFileCfgFree(bytes);
    return content;
}

int show(Output &out) {
    const std::string content = saved();
    if (!out.json()) out.raw(content);
    Json object{{"path", szVosCfgFileName}};
    addPayload(object, content);
    out.document(object);
    return kDone;
}

/* That the device took only a part is not reported by the library. */
bool stored(const std::string &content) {
    if (vosFileCfgWrite(content.data(), lengthOf(content)) != VOS_OK) return false;
    return saved() == content;
}

/* After a configuration could not be saved: what was there before is again. Returns what is there now. */
std::string putBack(const std::optional<std::string> &before) {
    if (!before) {
        vosFileDelete(szVosCfgFileName);
        return vosFileCfgExist() == 1 ? "a part of it is there" : "none is there";
    }
    if (saved() == *before || stored(*before)) return "the one before is still there";
    return "the one before is lost";
}

int save(Output &out, const Arguments &arguments) {
    const std::string content = loadFile(arguments.file);
    std::optional<std::string> before;
    if (vosFileCfgExist() == 1) {
        confirm(std::string("The saved configuration ") + szVosCfgFileName + " will be overwritten. Go on?",
                arguments.yes);
        before = saved();
    }
    if (!stored(content)) {
        throw Failure(std::string("the configuration could not be saved whole to ") + szVosCfgFileName + ", and " +
                          putBack(before),
                      "see that the flash has room and can be written, and save it again");
    }
    Record record;
    record.add("path", "saved to", szVosCfgFileName).add("bytes", "bytes", content.size());
    out.report(record);
    return kDone;
}

/* The library removes the settings of core dumps as well, but those of this machine whatever the tree. */
void removeSaved() {
    if (devicePath("").empty()) {
        vosFileCfgDelete();
        return;
    }
    vosFileDelete(szVosCfgFileName);
    vosFileDelete(devicePath("/flash/core-file").c_str());
}

int remove(Output &out, const Arguments &arguments) {
    const bool existed = vosFileCfgExist() == 1;
    if (existed) {
        confirm(std::string("The saved configuration ") + szVosCfgFileName +
                    " and the settings of core dumps will be " + "deleted. Go on?",
                arguments.yes);
    }
    removeSaved();
    if (vosFileCfgExist() == 1 || vosFileExist(devicePath("/flash/core-file").c_str()) == 1)
        throw Failure(std::string(szVosCfgFileName) + " could not be deleted",
                      "run it again with --verbose to see why");
    Record record;
    record.add("path", "path", szVosCfgFileName).add("existed", "was there", existed);
    out.report(record);
    return kDone;
}

}  // namespace

void addConfigCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const group = app.add_subcommand("config", "Show, save and delete the saved configuration");
    group->require_subcommand(1);
    onRun(group->add_subcommand("show", "Print the saved configuration byte for byte"), context, show);

    CLI::App *const saving = group->add_subcommand("save", "Make a file the saved configuration");
    saving->add_option("FILE", arguments->file, "The file; - is standard input")->required();
    saving->add_flag("--yes", arguments->yes, "Do not ask");
    onRun(saving, context, [arguments](Output &out) { return save(out, *arguments); });

    CLI::App *const deleting = group->add_subcommand("delete", "Delete it: back to the defaults");
    deleting->add_flag("--yes", arguments->yes, "Do not ask");
    onRun(deleting, context, [arguments](Output &out) { return remove(out, *arguments); });
}

}  // namespace vosctl
