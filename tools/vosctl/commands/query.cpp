/* SPDX-License-Identifier: MIT */
/* vosctl config-of, vosctl object: what a process tells about its configuration. */
#include <vosMsg.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "../base/words.h"
#include "../processes/names.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

constexpr uint32_t kLargestConfig = 4 * 1024 * 1024;
constexpr uint32_t kTableWords = 32;
constexpr std::size_t kLongestObject = 64000; /* well below a message's payload */

struct Arguments {
    std::string name;
    std::string object;
    uint32_t value1 = 0;
    uint32_t value2 = 0;
};

[[noreturn]] void explainRefusal(const std::string &name, int32_t code) {
    if (code == VOS_ERR_NO_HANDLER)
        throw Failure(name + " has no running configuration to tell", "ask a process that has registered a builder");
    if (code == VOS_ERR_MEMORY)
        throw Failure(name + " could not make room for its running configuration",
                      "look at the memory of that process");
    if (code == VOS_ERROR)
        explainSilence(name, Pair::high, "the running configuration of " + name + " could not be had",
                       "run it again with --verbose");
    throw Failure(name + " refused to tell its running configuration with code " + std::to_string(code),
                  "look into the log of that process, as with \"vosctl log " + name + "\"");
}

int configOf(Output &out, const Arguments &arguments) {
    requireReachable(arguments.name, Pair::high);
    std::vector<char> buffer(kLargestConfig);
    uint32_t length = kLargestConfig;
    const int32_t code =
        vosMsgBldrunSend(arguments.name.c_str(), buffer.data(), &length, arguments.value1, arguments.value2);
    if (code != VOS_OK) explainRefusal(arguments.name, code);
    const std::string_view text{buffer.data(), kLargestConfig - std::min(length, kLargestConfig)};
    out.document(Json{{"name", arguments.name}, {"bytes", text.size()}, {"text", text}});
    if (!out.json()) out.raw(text);
    return kDone;
}

struct Description {
    uint32_t code = 0;
    std::array<uint32_t, 9> out{}; /* outputs 1 to 6 and 8 to 10 */
    std::array<uint32_t, kTableWords> table{};
    uint32_t count = 0;
    int error = 0;
};

Description describe(const Arguments &arguments) {
    Description about;
    auto &out = about.out;
    errno = 0;
    if (vosMsgCcdObjInfoGetSend(&about.code, arguments.name.c_str(), arguments.object.c_str(), arguments.value1,
                                &out[0], &out[1], &out[2], &out[3], &out[4], &out[5], about.table.data(), &about.count,
                                &out[6], &out[7], &out[8]) != VOS_OK) {
        explainSilence(arguments.name, Pair::normal,
                       arguments.name + " did not describe the object " + arguments.object + " within 10 s",
                       "ask a process that has registered a describer of configuration objects");
    }
    about.error = errno;
    return about;
}

int object(Output &out, const Arguments &arguments) {
    requireReachable(arguments.name);
    if (arguments.object.size() >= kLongestObject) {
        throw Failure("the object's name has " + std::to_string(arguments.object.size()) +
                          " characters, which do not fit a message",
                      "name the object as its process does");
    }
    const Description about = describe(arguments);
    const auto code = static_cast<int32_t>(about.code);
    if (code != 0) {
        throw Failure(arguments.name + " answered about the object " + arguments.object + " with code " +
                          std::to_string(code) + " and errno " + std::to_string(about.error) + " (" +
                          strerror(about.error) + ")",
                      "check the object's name");
    }
    Record record;
    record.add("name", "name", arguments.name).add("object", "object", arguments.object);
    for (std::size_t index = 0; index < 6; ++index) {
        const std::string number = std::to_string(index + 1);
        record.add("out" + number, "output " + number, about.out[index]);
    }
    const auto used = std::min(about.count, kTableWords);
    Json table = Json::array();
    for (uint32_t index = 0; index < used; ++index) table.push_back(about.table[index]);
    record.add("table", "table", table);
    /* The protocol tells the last three only behind a full table. */
    for (std::size_t index = 6; index < 9 && used == kTableWords; ++index) {
        const std::string number = std::to_string(index + 2);
        record.add("out" + number, "output " + number, about.out[index]);
    }
    out.report(record);
    return kDone;
}

CLI::Option *addWord(CLI::App *command, const std::string &option, uint32_t &word, const std::string &description) {
    return command
        ->add_option_function<std::string>(
            option, [&word](const std::string &text) { word = wordOf(text).value_or(0); }, description)
        ->check(CLI::Validator([](const std::string &text) { return wordMistake(text); }, ""))
        ->type_name("WORD");
}

}  // namespace

void addQueryCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const config = app.add_subcommand("config-of", "Show the running configuration of a process");
    addName(config, arguments->name);
    addWord(config, "--arg1", arguments->value1, "First argument of its builder, 0 if not given");
    addWord(config, "--arg2", arguments->value2, "Second argument of its builder, 0 if not given");
    onRun(config, context, [arguments](Output &out) { return configOf(out, *arguments); });

    CLI::App *const info = app.add_subcommand("object", "Show how a process describes a configuration object");
    addName(info, arguments->name);
    info->add_option("OBJECT", arguments->object, "Name of the object")->required();
    addWord(info, "--arg", arguments->value1, "Argument of its describer, 0 if not given");
    onRun(info, context, [arguments](Output &out) { return object(out, *arguments); });
}

}  // namespace vosctl
