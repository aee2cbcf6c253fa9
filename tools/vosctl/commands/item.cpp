/* SPDX-License-Identifier: MIT */
/* vosctl item: the items of the data partitions. */
#include <vosSysConfig.h>

#include "../flash/itemTable.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string item;
    std::string value;
    std::string file;
    bool hex = false;
};

constexpr std::size_t kEncryptOffset = 704; /* of the flag that has no reader, in the system partition's body */

const char *partitionOf(const Item &item) { return item.factory ? "factory" : "system"; }
const char *pathOf(const Item &item) { return item.factory ? szFactoryData : szSysData; }

[[noreturn]] void unreadable(const Item &item) {
    throw Failure(std::string("the ") + partitionOf(item) + " partition " + pathOf(item) + ", which holds " +
                      item.name + ", cannot be read or is not valid",
                  std::string("see \"vosctl partition check ") + partitionOf(item) + "\"");
}

std::string readItem(const Item &item) {
    uint8_t value[1024];
    if (item.number == BSP_PRIVMODE_ENCRYPT) {
        if (vosSysConfigDataGet(BSP_FLASH_DATA_VERSION, value, sizeof value) != VOS_OK) unreadable(item);
        return {static_cast<char>(flashData[kEncryptOffset])};
    }
    if (vosSysConfigDataGet(item.number, value, sizeof value) != VOS_OK) unreadable(item);
    return {reinterpret_cast<const char *>(value), item.size};
}

/* What the library takes: of the stacking settings the validity word too. */
std::string stored(const Item &item, std::string bytes) {
    constexpr uint32_t kValid = VOS_STACK_VALID_MAGIC;
    if (item.number == BSP_STACK) bytes.append(reinterpret_cast<const char *>(&kValid), sizeof kValid);
    return bytes;
}

enum class Written { whole, notAtAll, damaged };

/* A device that refuses the bytes, or takes only a part of them, is not reported by the library. */
Written writtenTo(const Item &item, const std::string &bytes) {
    const std::string before = readItem(item); /* says what is wrong with the partition, if that is it */
    const std::string value = stored(item, bytes);
    const bool done = vosSysConfigDataSet(item.number, value.data(), lengthOf(value)) == VOS_OK;
    try {
        const std::string now = readItem(item);
        if (done && now == bytes) return Written::whole;
        return now == before ? Written::notAtAll : Written::damaged;
    } catch (const Failure &) {
        return Written::damaged;
    }
}

void writeItem(const Item &item, const std::string &bytes) {
    const Written written = writtenTo(item, bytes);
    if (written == Written::whole) return;
    const std::string what = std::string(item.name) + " could not be written to " + pathOf(item);
    if (written == Written::notAtAll)
        throw Failure(what + ", and is as it was",
                      "see with --verbose why; the file may be read-only or the flash worn out");
    throw Failure(what + " whole, and the " + partitionOf(item) + " partition is not valid any more",
                  std::string("make room, then a fresh one with \"vosctl partition init ") + partitionOf(item) +
                      "\", and set its items again");
}

Json describe(const Item &item, const std::string &bytes, bool secrets) {
    Json object{{"number", item.number},          {"name", item.name},         {"constant", item.constant},
                {"partition", partitionOf(item)}, {"form", nameOf(item.form)}, {"size", item.size},
                {"limit", limitOf(item)},         {"erased", erased(bytes)}};
    const bool shown = secrets || !item.secret;
    object["value"] = shown && !erased(bytes) ? shownValue(item, bytes).value : Json(nullptr);
    object["hex"] = shown ? Json(hexOf(bytes)) : Json(nullptr);
    return object;
}

std::string listText(const Item &item, const std::string &bytes) {
    if (erased(bytes)) return "(erased)";
    if (item.secret) return "(not shown; see item get)";
    const std::string text = shownValue(item, bytes).text;
    return text.size() > 48 ? text.substr(0, 45) + "..." : text;
}

int listItems(Output &out) {
    Json all = Json::array();
    Table table({{"number", "NO", Align::right},
                 {"name", "ITEM"},
                 {"partition", "PARTITION"},
                 {"size", "BYTES", Align::right},
                 {"form", "FORM"},
                 {"value", "VALUE"}});
    int status = kDone;
    for (const Item &item : items()) {
        std::string shown = "(partition not valid)";
        Json object{{"number", item.number},
                    {"name", item.name},
                    {"partition", partitionOf(item)},
                    {"error", "partition not valid"}};
        try {
            const std::string bytes = readItem(item);
            shown = listText(item, bytes);
            object = describe(item, bytes, false);
        } catch (const Failure &) {
            status = kFailed;
        }
        all.push_back(object);
        table.add({item.number, item.name, partitionOf(item), item.size, nameOf(item.form), shown});
    }
    out.text(table);
    out.document(Json{{"items", all}});
    return status;
}

int getItem(Output &out, const Arguments &arguments) {
    const Item &item = itemOf(arguments.item);
    const std::string bytes = readItem(item);
    out.line(erased(bytes) ? "(erased)" : shownValue(item, bytes).text);
    out.document(describe(item, bytes, true));
    return kDone;
}

std::string givenValue(const Item &item, const Arguments &arguments) {
    if (!arguments.hex && arguments.file.empty()) return parseValue(item, arguments.value);
    std::optional<std::string> bytes = arguments.hex ? bytesOfHex(arguments.value) : loadFile(arguments.file);
    if (!bytes || bytes->size() != item.size) {
        throw Failure(
            "the value does not fit " + std::string(item.name),
            "give exactly " + std::to_string(item.size) + " bytes" + (arguments.hex ? " in hexadecimal" : ""));
    }
    return *bytes;
}

int setItem(Output &out, const Arguments &arguments) {
    const Item &item = itemOf(arguments.item);
    const std::string bytes = givenValue(item, arguments);
    writeItem(item, bytes);
    out.line(std::string(item.name) + (item.secret ? " is set" : " is " + shownValue(item, bytes).text));
    out.document(describe(item, bytes, !item.secret));
    return kDone;
}

int dumpItems(Output &out, const Arguments &arguments) {
    Json all = Json::array();
    for (const Item &item : items()) {
        if (!arguments.item.empty() && &item != &itemOf(arguments.item)) continue;
        const std::string bytes = readItem(item);
        out.line(std::string(item.name) + " (" + std::to_string(item.size) + " bytes)", Style::heading);
        for (std::size_t at = 0; at < bytes.size(); at += 16) {
            char offset[32];
            snprintf(offset, sizeof offset, "  %04zx  ", at);
            out.line(offset + hexOf(bytes.substr(at, 16)));
        }
        all.push_back(describe(item, bytes, true));
    }
    out.document(Json{{"items", all}});
    return kDone;
}

}  // namespace

void addItemCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const group = app.add_subcommand("item", "See and change the items of the data partitions");
    group->require_subcommand(1);
    onRun(group->add_subcommand("list", "List all items with their values"), context, listItems);

    CLI::App *const get = group->add_subcommand("get", "Print an item");
    get->add_option("ITEM", arguments->item, kItemDescription)->required();
    onRun(get, context, [arguments](Output &out) { return getItem(out, *arguments); });

    CLI::App *const set = group->add_subcommand("set", "Change an item");
    set->add_option("ITEM", arguments->item, kItemDescription)->required();
    CLI::Option *const value = set->add_option("VALUE", arguments->value, "The value, in the item's form");
    CLI::Option *const hex = set->add_flag("--hex", arguments->hex, "VALUE is the bytes in hexadecimal")->needs(value);
    set->add_option("--file", arguments->file, "Take the bytes from a file")->excludes(value)->excludes(hex);
    set->parse_complete_callback([set] {
        if (set->count("VALUE") == 0 && set->count("--file") == 0) throw CLI::RequiredError("VALUE or --file");
    });
    onRun(set, context, [arguments](Output &out) { return setItem(out, *arguments); });

    CLI::App *const dump = group->add_subcommand("dump", "Print the bytes of one item or of all, passwords included");
    dump->add_option("ITEM", arguments->item, kItemDescription);
    onRun(dump, context, [arguments](Output &out) { return dumpItems(out, *arguments); });
}

}  // namespace vosctl
