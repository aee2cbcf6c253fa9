/* SPDX-License-Identifier: MIT */
/* vosctl config-of, vosctl object: the configuration that a process reports. */
#include <algorithm>
#include <array>
#include <cstring>

#include "../processes/exchange.h"
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
    uint32_t timeoutMs = 0;
};

[[noreturn]] void explainRefusal(const std::string &name, int32_t code) {
    if (code == VOS_ERR_NO_HANDLER)
        throw Failure(name + " has no running configuration to report", "ask a process that has registered a builder");
    if (code == VOS_ERR_MEMORY)
        throw Failure(name + " could not make room for its running configuration",
                      "look at the memory of that process");
    throw Failure(name + " refused to report its running configuration with code " + std::to_string(code),
                  "look into the log of that process, as with \"vosctl log " + name + "\"");
}

[[noreturn]] void explainNoAnswer(const Arguments &arguments, Pair which, const std::string &nextStep) {
    explainSilence(arguments.name, which, noAnswerFrom(arguments.name, arguments.timeoutMs), nextStep);
}

int configOf(Output &out, const Arguments &arguments) {
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_BLDRUN;
    head.ulValue1 = arguments.value1;
    head.ulValue2 = arguments.value2;
    head.ulBufLen = kLargestConfig;
    auto reply = Requester{arguments.name, Pair::high, arguments.timeoutMs}.ask(head, "", kLargestConfig);
    if (!reply)
        explainNoAnswer(arguments, Pair::high, "see with \"vosctl ps\" whether it is busy, or give it more --timeout");
    if (reply->head.ulRetCode != VOS_OK) explainRefusal(arguments.name, static_cast<int32_t>(reply->head.ulRetCode));
    const std::string_view text = std::string_view(reply->payload).substr(0, reply->head.ulBufLen);
    Json document{{"name", arguments.name}, {"bytes", text.size()}, {"text", text}};
    document["text"] = jsonOf(document)["text"]; /* not jsonOf()'s textHex: "hex" has all bytes */
    document["hex"] = hexOf(text);
    out.document(document);
    if (!out.json()) out.raw(text);
    return kDone;
}

struct Description {
    uint32_t code = 0;
    std::array<uint32_t, 9> out{}; /* outputs 1 to 6 and 8 to 10 */
    std::vector<uint32_t> table;
    int error = 0;
};

/* Reads words in this machine's byte order from the front of the bytes, never past their end. */
class Words {
  public:
    explicit Words(std::string_view bytes) : rest_(bytes) {}
    uint32_t next() {
        uint32_t word = 0;
        if (rest_.size() < sizeof word) throw Failure("the answer is too short", "see what the process is");
        memcpy(&word, rest_.data(), sizeof word);
        rest_.remove_prefix(sizeof word);
        return word;
    }
    void skip(std::size_t count) { rest_.remove_prefix(std::min(count, rest_.size())); }

  private:
    std::string_view rest_;
};

/* In the protocol, outputs 8 to 10 are read from the place after the table words in use. */
Description descriptionOf(const Reply &reply) {
    Description about;
    about.code = reply.head.ulRetCode;
    about.error = static_cast<int>(reply.head.ulValue4);
    if (about.code != 0) return about;
    Words words{reply.payload};
    words.skip(words.next()); /* the object's name */
    about.out[0] = reply.head.ulValue2;
    about.out[1] = reply.head.ulValue3;
    for (std::size_t index = 2; index < 6; ++index) about.out[index] = words.next();
    const uint32_t count = std::min(words.next(), kTableWords);
    for (uint32_t index = 0; index < count; ++index) about.table.push_back(words.next());
    for (std::size_t index = 6; index < 9; ++index) about.out[index] = words.next();
    return about;
}

Description describe(const Arguments &arguments) {
    std::string name = arguments.object;
    name.resize(name.size() / 4 * 4 + 4); /* a NUL, and padding to a whole word */
    VOS_MSG_HEAD head{};
    head.ulType = VOS_MSG_TYPE_CCD_OBJ_INFO_GET;
    head.ulValue1 = arguments.value1;
    head.ulValue2 = static_cast<uint32_t>(name.size());
    const auto reply = Requester{arguments.name, Pair::normal, arguments.timeoutMs}.ask(head, name, VOS_MSG_BUFFER_LEN);
    if (!reply)
        explainNoAnswer(arguments, Pair::normal,
                        "ask a process that has registered a describer of configuration objects");
    return descriptionOf(*reply);
}

int object(Output &out, const Arguments &arguments) {
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
    record.add("table", "table", Json(about.table));
    /* When the table is not full, these three are unused words of the table. */
    for (std::size_t index = 6; index < 9 && about.table.size() == kTableWords; ++index) {
        const std::string number = std::to_string(index + 2);
        record.add("out" + number, "output " + number, about.out[index]);
    }
    out.report(record);
    return kDone;
}

constexpr uint32_t kConfigTimeoutMs = 90000; /* a large configuration takes long to build */
constexpr uint32_t kObjectTimeoutMs = 10000;

}  // namespace

void addQueryCommands(Command app, Context &context) {
    const auto forConfig = std::make_shared<Arguments>();
    forConfig->timeoutMs = kConfigTimeoutMs;
    Command config = app.command("config-of", "Show the running configuration of a process");
    config.name(forConfig->name);
    config.number("--arg1", forConfig->value1, "First argument of its builder").typeName("WORD").defaultText("0");
    config.number("--arg2", forConfig->value2, "Second argument of its builder").typeName("WORD").defaultText("0");
    config.timeout(forConfig->timeoutMs);
    config.example("vosctl config-of oltd");
    config.onRun(context, [forConfig](Output &out) { return configOf(out, *forConfig); });

    const auto forObject = std::make_shared<Arguments>();
    forObject->timeoutMs = kObjectTimeoutMs;
    Command info = app.command("object", "Show how a process describes a configuration object");
    info.name(forObject->name);
    info.argument("OBJECT", forObject->object, "Name of the object").required();
    info.number("--arg", forObject->value1, "Argument of its describer").typeName("WORD").defaultText("0");
    info.timeout(forObject->timeoutMs);
    info.example("vosctl object oltd portLinkChanges");
    info.onRun(context, [forObject](Output &out) { return object(out, *forObject); });
}

}  // namespace vosctl
