/* SPDX-License-Identifier: MIT */
/* vosctl item: the items of the data partitions. */
#include <algorithm>

#include "../flash/itemStore.h"
#include "../flash/itemTable.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "../terminal/prompt.h"
#include "commands.h"
#include "itemReport.h"

namespace vosctl {

namespace {

constexpr const char *kItemDescription = "Name, constant or number of the item";

struct Arguments {
    std::string item;
    std::vector<std::string> several;
    std::string value;
    std::string file;
    bool fromFile = false;
    bool fromInput = false;
    bool hex = false;
    bool yes = false;
};

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
                    {"partition", partitionName(item)},
                    {"error", "partition not valid"}};
        try {
            const std::string bytes = readItem(item);
            shown = listText(item, bytes);
            object = describe(item, bytes, false);
        } catch (const Failure &) {
            status = kFailed;
        }
        all.push_back(object);
        table.add({item.number, item.name, partitionName(item), item.size, nameOf(item.form), shown});
    }
    out.text(table);
    out.document(Json{{"items", all}});
    return status;
}

/* One value is printed alone, so that a script can use it. Several values are printed with their names. */
int getItems(Output &out, const Arguments &arguments) {
    const bool alone = arguments.several.size() == 1;
    Json all = Json::array();
    std::string missing;
    for (const std::string &name : arguments.several) {
        const Item &item = itemOf(name);
        const std::string bytes = readItem(item);
        all.push_back(describe(item, bytes, true));
        if (erased(bytes))
            missing += (missing.empty() ? "" : " and ") + std::string(item.name);
        else
            out.line(alone ? shownValue(item, bytes).text : exportLine(item, bytes));
    }
    out.document(alone ? all[0] : Json{{"items", all}});
    if (missing.empty()) return kDone;
    return failedAfterResults("nothing is set for " + missing + ": erased", "set a value with \"vosctl item set\"");
}

std::string givenValue(const Item &item, const Arguments &arguments) {
    if (arguments.fromFile) return readWhole(arguments.file, item.size);
    std::string text = arguments.value;
    if (arguments.fromInput) text = readValue("new " + std::string(item.name));
    return arguments.hex ? bytesOfHex(text).value_or("") : parseValue(item, text);
}

int setItem(Output &out, const Arguments &arguments) {
    const Item &item = itemOf(arguments.item);
    const std::string bytes = givenValue(item, arguments);
    if (bytes.size() != item.size) {
        throw Failure(
            "the value does not fit " + std::string(item.name) + ": it has " + std::to_string(bytes.size()) + " bytes",
            "give exactly " + std::to_string(item.size) + " bytes" + (arguments.hex ? " in hexadecimal" : ""));
    }
    writeItems({{&item, bytes}}, item.name);
    out.line(std::string(item.name) + (item.secret ? " is set" : " is " + shownValue(item, bytes).text));
    out.document(describe(item, bytes, !item.secret));
    return kDone;
}

int eraseItems(Output &out, const Arguments &arguments) {
    std::vector<ItemValue> values;
    std::string names;
    Json all = Json::array();
    for (const std::string &name : arguments.several) {
        const Item &item = itemOf(name);
        if (std::any_of(values.begin(), values.end(), [&](const ItemValue &one) { return one.item == &item; }))
            continue;
        values.push_back({&item, std::string(item.size, '\xFF')});
        names += (names.empty() ? "" : " and ") + std::string(item.name);
        all.push_back(item.name);
    }
    confirm("What is set for " + names + " will be erased. Go on?", arguments.yes);
    writeItems(values, names);
    out.line(names + (all.size() == 1 ? " is erased" : " are erased"));
    out.document(Json{{"erased", all}});
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

/* A wrong value is a mistake on the command line when it was given there. */
std::string settingMistake(Arguments &arguments, bool given) {
    const Item &item = itemOf(arguments.item);
    const bool password = item.secret && item.form == Form::text;
    arguments.fromInput = arguments.fromInput || (password && !given && !arguments.fromFile);
    if (!given && !arguments.fromFile && !arguments.fromInput) return "VALUE, --file or --stdin is required";
    if (!given) return "";
    try {
        if (!arguments.hex) parseValue(item, arguments.value);
    } catch (const Failure &failure) {
        return std::string(failure.what()) + ": " + failure.nextStep();
    }
    const auto bytes = arguments.hex ? bytesOfHex(arguments.value) : std::string(item.size, '\0');
    if (bytes && bytes->size() == item.size) return "";
    return "the value does not fit " + std::string(item.name) + ": give exactly " + std::to_string(item.size) +
           " bytes in hexadecimal";
}

void addSet(Command group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    Command set = group.command("set", "Change an item");
    set.argument("ITEM", arguments->item, kItemDescription).required().check(itemMistake);
    Argument value =
        set.argument("VALUE", arguments->value, "The value, in the item's form; a password is asked for without it");
    Argument file = set.argument("--file", arguments->file, "Take the bytes from a file; - is standard input")
                        .excludes(value)
                        .notEmpty("FILE");
    file.typeName("FILE");
    Argument input =
        set.flag("--stdin", arguments->fromInput, "Take the value from standard input; a terminal does not show it")
            .excludes(value);
    input.excludes(file);
    set.flag("--hex", arguments->hex, "The value is the bytes in hexadecimal").excludes(file);
    set.checkTogether([arguments, value, file] {
        arguments->fromFile = file.given();
        return settingMistake(*arguments, value.given());
    });
    set.example("vosctl item set ip-address 192.0.2.10");
    set.example("vosctl item set admin-password");
    set.onRun(context, [arguments](Output &out) { return setItem(out, *arguments); });
}

void addErase(Command group, Context &context, const std::shared_ptr<Arguments> &arguments) {
    Command erase = group.command("erase", "Erase items: all their bytes become 0xFF");
    erase.argument("ITEM", arguments->several, kItemDescription).required().check(itemMistake);
    erase.flag("--yes", arguments->yes, "Do not ask");
    erase.example("vosctl item erase ztp softflag");
    erase.onRun(context, [arguments](Output &out) { return eraseItems(out, *arguments); });
}

}  // namespace

void addItemCommands(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command group = app.group("item", "See and change the items of the data partitions");
    Command list = group.command("list", "List all items with their values");
    list.example("vosctl item list");
    list.onRun(context, listItems);

    Command get = group.command("get", "Print items");
    get.argument("ITEM", arguments->several, kItemDescription).required().check(itemMistake);
    get.example("vosctl item get ip-address");
    get.example("vosctl item get ip-address ip-mask");
    get.onRun(context, [arguments](Output &out) { return getItems(out, *arguments); });

    addSet(group, context, arguments);
    addErase(group, context, arguments);

    Command dump = group.command("dump", "Print the bytes of one item or of all, passwords included");
    dump.argument("ITEM", arguments->item, kItemDescription).check(itemMistake);
    dump.example("vosctl item dump stack");
    dump.onRun(context, [arguments](Output &out) { return dumpItems(out, *arguments); });

    addItemFileCommands(group, context);
    /* Added last: a command that is added to the group later would inherit these examples. */
    group.example("vosctl item list");
    group.example("vosctl item get ip-address");
}

}  // namespace vosctl
