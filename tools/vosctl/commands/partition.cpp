/* SPDX-License-Identifier: MIT */
/* vosctl partition: the factory and the system partition as a whole. */
#include <fcntl.h>
#include <unistd.h>
#include <vosFile.h>
#include <vosSysConfig.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "../base/fd.h"
#include "../base/words.h"
#include "../flash/store.h"
#include "../terminal/payload.h"
#include "commands.h"

namespace vosctl {

namespace {

constexpr std::size_t kHeaderBytes = 128;
constexpr uint32_t kNeverValid = 0xFFFFFFFF; /* the checksum of an erased header */

struct Partition {
    const char *name;
    const char **path;
    std::size_t bodyBytes;
    int32_t item; /* any of its items */
};
constexpr Partition kPartitions[] = {{"factory", &szFactoryData, sizeof flashConfig, BSP_OEM_NUMBER},
                                     {"system", &szSysData, sizeof flashData, BSP_FLASH_DATA_VERSION}};

struct Arguments {
    std::string partition = "all";
    bool yes = false;
};

/* NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value does not throw, though the check thinks so */
struct State {
    bool valid = false;
    std::string reason; /* why it is not valid */
    std::string bytes;
    Json stored;
    Json computed;
};

bool wanted(const Partition &partition, const Arguments &arguments) {
    return arguments.partition == "all" || arguments.partition == partition.name;
}

uint32_t nativeWord(std::string_view bytes, std::size_t offset) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

std::string mistakeIn(const Partition &partition, State &state) {
    const std::string_view bytes = state.bytes;
    const std::size_t whole = kHeaderBytes + partition.bodyBytes;
    if (bytes.empty()) return "the file is empty";
    if (bytes.size() < whole)
        return "the file has " + std::to_string(bytes.size()) + " bytes, the partition " + std::to_string(whole);
    const uint32_t magic = nativeWord(bytes, 4);
    if (magic != VOS_PARTITION_MAGIC)
        return "its magic word is " + hexWord(magic) + ", not " + hexWord(VOS_PARTITION_MAGIC);
    const std::string_view body = bytes.substr(kHeaderBytes, partition.bodyBytes);
    const uint32_t stored = nativeWord(bytes, 8);
    const uint32_t computed = Cal_CRC(bytesOf(body), lengthOf(body));
    state.stored = stored;
    state.computed = computed;
    if (stored == kNeverValid) return "its checksum word is erased";
    if (stored != computed) return "its checksum is " + hexWord(stored) + ", its body has " + hexWord(computed);
    return "";
}

/* The library decides; the tool only finds the words for it. */
State stateOf(const Partition &partition) {
    State state;
    uint32_t value = 0;
    state.valid = vosSysConfigDataGet(partition.item, &value, sizeof value) == VOS_OK;
    try {
        state.bytes = loadFile(*partition.path);
        state.reason = mistakeIn(partition, state);
    } catch (const Failure &failure) {
        state.reason = failure.what();
    }
    if (state.valid) state.reason.clear();
    if (!state.valid && state.reason.empty()) state.reason = "the library cannot read it; see --verbose";
    return state;
}

Json describe(const Partition &partition, const State &state) {
    return Json{{"name", partition.name},
                {"path", *partition.path},
                {"valid", state.valid},
                {"reason", state.valid ? Json(nullptr) : Json(state.reason)},
                {"bytes", state.bytes.size()},
                {"storedChecksum", state.stored},
                {"computedChecksum", state.computed}};
}

int check(Output &out, const Arguments &arguments, bool bodies) {
    Json all = Json::array();
    int status = kDone;
    for (const Partition &partition : kPartitions) {
        if (!wanted(partition, arguments)) continue;
        const State state = stateOf(partition);
        if (!state.valid) status = kFailed;
        const std::string head = std::string(partition.name) + " partition " + *partition.path;
        out.line(head + (state.valid ? " is valid" : " is not valid: " + state.reason),
                 state.valid ? Style::good : Style::bad);
        if (!state.valid) out.line(std::string("  \"vosctl partition init ") + partition.name + "\" makes a fresh one");
        Json object = describe(partition, state);
        if (bodies) {
            if (!out.json()) printPayload(out, state.bytes);
            object["hex"] = hexOf(state.bytes);
        }
        all.push_back(object);
    }
    out.document(Json{{"partitions", all}});
    return status;
}

/* While it lives the library sees one partition, under another path. */
class Elsewhere {
  public:
    Elsewhere(const Partition &partition, const std::string &path) {
        for (std::size_t index = 0; index < std::size(kPartitions); ++index) {
            kept_[index] = *kPartitions[index].path;
            *kPartitions[index].path = &kPartitions[index] == &partition ? path.c_str() : "/dev/null";
        }
    }
    ~Elsewhere() {
        for (std::size_t index = 0; index < std::size(kPartitions); ++index) *kPartitions[index].path = kept_[index];
    }
    Elsewhere(const Elsewhere &) = delete;
    Elsewhere &operator=(const Elsewhere &) = delete;

  private:
    const char *kept_[std::size(kPartitions)];
};

/* The library makes a partition of a file that is none. Returns what went wrong, nothing when it is whole. */
std::string makeAt(const Partition &partition, const std::string &path) {
    storeFile(path, "");
    const Elsewhere elsewhere{partition, path};
    vosSysConfigDataInit();
    const State state = stateOf(partition);
    const std::size_t whole = kHeaderBytes + partition.bodyBytes;
    if (state.bytes.size() < whole)
        return "only " + std::to_string(state.bytes.size()) + " of " + std::to_string(whole) +
               " bytes could be written";
    return state.reason;
}

/* The fresh partition is made beside the old one and takes its place when it is whole. */
void makeFresh(const Partition &partition) {
    const std::string path = *partition.path;
    const std::string fresh = path + ".new";
    std::string mistake;
    try {
        mistake = makeAt(partition, fresh);
    } catch (const Failure &failure) {
        mistake = failure.what();
    }
    if (mistake.empty() && rename(fresh.c_str(), path.c_str()) != 0) mistake = strerror(errno);
    if (!mistake.empty()) {
        unlink(fresh.c_str());
        throw Failure(std::string("the ") + partition.name + " partition " + path + " could not be made: " + mistake +
                          ", and it is as it was",
                      "see that its directory exists, can be written and has room");
    }
    const Fd directory{open(std::filesystem::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    fsync(directory.get()); /* the name; what is under it has been flushed */
}

void confirmErasing(const Arguments &arguments) {
    for (const Partition &partition : kPartitions) {
        if (!wanted(partition, arguments) || vosFileExist(*partition.path) == 0) continue;
        confirm(std::string("All items of the ") + partition.name + " partition " + *partition.path +
                    " will be erased. Go on?",
                arguments.yes);
    }
}

int init(Output &out, const Arguments &arguments) {
    confirmErasing(arguments);
    Json all = Json::array();
    for (const Partition &partition : kPartitions) {
        if (!wanted(partition, arguments)) continue;
        try {
            makeFresh(partition);
        } catch (const Failure &failure) {
            if (all.empty()) throw;
            throw Failure(std::string(failure.what()) + ", while the factory partition is fresh", failure.nextStep());
        }
        out.line(std::string(partition.name) + " partition " + *partition.path + " is fresh");
        all.push_back(describe(partition, stateOf(partition)));
    }
    out.document(Json{{"partitions", all}});
    return kDone;
}

CLI::Option *addPartition(CLI::App *command, const std::shared_ptr<Arguments> &arguments) {
    return command->add_option("PARTITION", arguments->partition, "factory, system or all")
        ->check(CLI::IsMember({"factory", "system", "all"}));
}

}  // namespace

void addPartitionCommands(CLI::App &app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *const group = app.add_subcommand("partition", "Check, show and renew the data partitions");
    group->require_subcommand(1);

    CLI::App *const checked = group->add_subcommand("check", "Tell whether the partitions are valid, and why not");
    addPartition(checked, arguments);
    onRun(checked, context, [arguments](Output &out) { return check(out, *arguments, false); });

    CLI::App *const show = group->add_subcommand("show", "Print the partitions' bytes");
    addPartition(show, arguments);
    onRun(show, context, [arguments](Output &out) { return check(out, *arguments, true); });

    CLI::App *const fresh = group->add_subcommand("init", "Make a fresh partition: all items erased");
    addPartition(fresh, arguments)->required();
    fresh->add_flag("--yes", arguments->yes, "Do not ask");
    onRun(fresh, context, [arguments](Output &out) { return init(out, *arguments); });
}

}  // namespace vosctl
