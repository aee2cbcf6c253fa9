/* SPDX-License-Identifier: MIT */
/* The items of the data partitions, and the forms in which people read and write them. */
#ifndef VOSCTL_ITEM_TABLE_H
#define VOSCTL_ITEM_TABLE_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../terminal/report.h"

namespace vosctl {

enum class Form { mac, ipv4, mask, number, byte, text, bytes };

struct Item {
    int32_t number;
    const char *name;
    const char *constant;
    bool factory; /* in the factory partition, else in the system partition */
    Form form;
    std::size_t size;   /* bytes of the value, as shown and as given */
    std::size_t offset; /* in the partition's body */
    bool secret = false;
};

std::span<const Item> items();

/* Finds an item by name, constant or number. Throws a Failure when there is none. */
const Item &itemOf(const std::string &text);

/* What is wrong with the name of an item; empty when it is right. */
std::string itemMistake(const std::string &text);

const char *nameOf(Form form);

/* Describes the values that the item can have. */
std::string limitOf(const Item &item);

/* The value in its human form, as JSON and as text. For a text item with bytes that cannot be printed, JSON has null,
 * and the text shows those bytes as \xHH. */
Cell shownValue(const Item &item, std::string_view bytes);

/* The bytes of a value in its human form. Throws a Failure that names the limit. */
std::string parseValue(const Item &item, const std::string &text);

bool erased(std::string_view bytes);

/* A line "NAME=VALUE" for people and for item import. VALUE is the human form when the same bytes can be made from it;
 * otherwise it is "hex:" and the bytes. For an erased item it is "(erased)". */
std::string exportLine(const Item &item, std::string_view bytes);

struct ItemValue {
    const Item *item;
    std::string bytes;
};

/* The items of such lines. Empty lines and those that begin with # are ignored. Throws a Failure that names the first
 * line that is wrong. */
std::vector<ItemValue> parseItemLines(std::string_view text, const std::string &file);

}  // namespace vosctl

#endif
