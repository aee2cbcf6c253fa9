/* SPDX-License-Identifier: MIT */
/* vosctl capture: messages of running processes in a file for Wireshark. */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "../base/fd.h"
#include "../base/words.h"
#include "../flash/outputFile.h"
#include "../processes/captureFile.h"
#include "watching.h"

namespace vosctl {

namespace {

constexpr uint64_t kLeastSize = 4096; /* the begin of a file must fit */

struct Arguments {
    std::string file;
    uint64_t maxSize = 0; /* 0: no limit */
    uint32_t files = 0;   /* 0: it ends when the file is full */
    uint32_t count = 0;
};

/* "4096", "512K", "10M" or "1G"; nothing for another text. */
std::optional<uint64_t> sizeOf(const std::string &text) {
    std::string digits = text;
    uint64_t factor = 1;
    constexpr std::string_view kUnits = "KMG";
    const std::size_t unit = text.empty() ? std::string::npos : kUnits.find(text.back());
    if (unit != std::string::npos) {
        digits.pop_back();
        factor = uint64_t{1024} << (10 * unit);
    }
    const auto number = wordOf(digits);
    if (!number || *number * factor < kLeastSize) return {};
    return *number * factor;
}

/* A file that grows block by block. It takes the place of an earlier one when its first blocks are in it, and only its
 * owner can read it, because passwords pass in messages. */
class CaptureFile {
  public:
    explicit CaptureFile(const std::string &path) : path_(resolved(path)) {
        struct stat earlier {};
        const bool there = stat(path_.c_str(), &earlier) == 0;
        if (there && S_ISDIR(earlier.st_mode)) throw Failure(path + " is a directory", "name a file");
        regular_ = !there || S_ISREG(earlier.st_mode);
        if (regular_) {
            fresh_ = path_ + ".XXXXXX";
            file_ = Fd{mkostemp(fresh_.data(), O_CLOEXEC)};
        } else { /* a FIFO or a device */
            file_ = Fd{open(path_.c_str(), O_WRONLY | O_CLOEXEC)};
        }
        if (!file_) {
            const std::string reason = strerror(errno);
            fresh_.clear();
            throw Failure(path + " cannot be created: " + reason, "name a file that can be written");
        }
    }
    ~CaptureFile() {
        if (!fresh_.empty()) unlink(fresh_.c_str());
    }
    CaptureFile(const CaptureFile &) = delete;
    CaptureFile &operator=(const CaptureFile &) = delete;

    /* What could not be written whole is taken back, so that the file can be read. */
    void write(std::string_view blocks) {
        for (std::string_view rest = blocks; !rest.empty();) {
            const ssize_t count = ::write(file_.get(), rest.data(), rest.size());
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) giveUp();
            rest.remove_prefix(static_cast<std::size_t>(count));
        }
        size_ += blocks.size();
        if (!fresh_.empty()) takePlace();
    }
    [[nodiscard]] uint64_t size() const { return size_; }
    [[nodiscard]] bool isRegular() const { return regular_; }

  private:
    void takePlace() {
        if (rename(fresh_.c_str(), path_.c_str()) != 0) giveUp();
        fresh_.clear();
    }
    [[noreturn]] void giveUp() {
        const int error = errno;
        if (regular_ && ftruncate(file_.get(), static_cast<off_t>(size_)) != 0) size_ = 0;
        if (error == EPIPE)
            throw ClosedPipe(path_ + " cannot be written: " + strerror(error), "keep its reader running");
        throw Failure(path_ + " cannot be written: " + strerror(error),
                      error == ENOSPC || error == EFBIG || error == EDQUOT ? "make room and run it again"
                                                                           : "name a file that can be written");
    }

    std::string path_;
    std::string fresh_; /* its name until it takes its place */
    bool regular_ = true;
    Fd file_;
    uint64_t size_ = 0;
};

class Capture {
  public:
    Capture(Output &out, const Arguments &arguments) : out_(out), arguments_(arguments) {
        if (!toOutput()) {
            file_.emplace(arguments_.file);
            if (!file_->isRegular() && arguments_.files != 0)
                throw Misuse(arguments_.file + " is no regular file, so it cannot be continued in another one",
                             "leave --files out");
        } else if (arguments_.files != 0) {
            throw Misuse("standard output cannot be continued in another file", "leave --files out");
        } else if (out_.terminal()) {
            throw Misuse("a capture is no text for a terminal", "name a file, or a pipe into another program");
        }
        put(writer_.begin());
    }

    /* False when the file is full, or enough has been captured. */
    bool add(const std::vector<Taken> &taken) {
        std::string blocks;
        bool wanted = !ended_;
        for (const Taken &each : taken) {
            if (!wanted) break;
            if (full(blocks.size() + writer_.roomFor(each.copy, each.datagram))) {
                put(std::exchange(blocks, ""));
                wanted = continueInNext();
                if (!wanted) break;
            }
            blocks += writer_.add(each.copy, each.datagram);
            wanted = arguments_.count == 0 || writer_.copies() < arguments_.count;
        }
        put(blocks);
        ended_ = !wanted;
        return wanted;
    }

    void end() {
        put(writer_.end());
        if (toOutput()) return;
        out_.report(Record{}
                        .add("file", "File", arguments_.file)
                        .add("files", "Files", files_)
                        .add("copies", "Copies", writer_.copies())
                        .add("lost", "Lost", {writer_.lost(), writer_.lost() > 0 ? Style::warning : Style::plain}));
    }

  private:
    [[nodiscard]] bool toOutput() const { return isStandardOutput(arguments_.file); }

    void put(std::string_view blocks) {
        if (blocks.empty()) return;
        if (file_) {
            file_->write(blocks);
        } else {
            out_.raw(blocks);
            out_.flush();
            printed_ += blocks.size();
        }
    }

    /* Room is left for the counters at the end. */
    [[nodiscard]] bool full(std::size_t more) const {
        const uint64_t size = file_ ? file_->size() : printed_;
        return arguments_.maxSize != 0 && size + more + writer_.end().size() > arguments_.maxSize;
    }

    /* FILE becomes FILE.1, that becomes FILE.2 and so on; the oldest goes. */
    bool continueInNext() {
        if (arguments_.files == 0) return false;
        put(writer_.end());
        file_.reset();
        const auto name = [&](uint32_t number) {
            return number == 0 ? arguments_.file : arguments_.file + "." + std::to_string(number);
        };
        for (uint32_t number = std::min(files_, arguments_.files - 1); number > 0; --number)
            if (rename(name(number - 1).c_str(), name(number).c_str()) != 0 && errno != ENOENT)
                throw Failure(name(number) + " cannot be created: " + strerror(errno), "look at the directory");
        files_ = std::min(files_ + 1, arguments_.files);
        file_.emplace(arguments_.file);
        put(writer_.begin());
        return true;
    }

    Output &out_;
    const Arguments &arguments_;
    std::optional<CaptureFile> file_; /* none on standard output */
    uint64_t printed_ = 0;            /* bytes on standard output */
    CaptureWriter writer_;
    uint32_t files_ = 1;
    bool ended_ = false;
};

int capture(Output &out, const Arguments &arguments, const Watched &watched) {
    Capture capture{out, arguments};
    watch(out, watched, [&](const std::vector<Taken> &taken) { return capture.add(taken); });
    capture.end();
    return kDone;
}

}  // namespace

void addCaptureCommand(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    const auto watched = std::make_shared<Watched>();
    Command command = app.command("capture", "Write the messages of running processes to a file for Wireshark");
    watched->payloadBytes = 0xFFFFFFFF;
    addWatched(command, watched);
    command.argument("-w,--write", arguments->file, "File to write; - is standard output")
        .required()
        .typeName("FILE")
        .notEmpty("FILE");
    Argument size =
        command
            .argument(
                "--max-size", [arguments](const std::string &text) { arguments->maxSize = sizeOf(text).value_or(0); },
                "Bytes of a file, such as 512K or 10M; when it is full, the capture ends")
            .check([](const std::string &text) {
                return sizeOf(text) ? std::string()
                                    : "\"" + shortened(text) + "\" is no size of 4K or more, such as 512K or 10M";
            })
            .typeName("SIZE");
    command
        .number("--files", arguments->files,
                "When the file is full, continue in a new one, and keep so many: FILE.1 is the one before", 1, 1000)
        .needs(size);
    command.number("-c,--count", arguments->count, "End after so many copies", 1);
    command.notes(
        "Each process has an interface with its name. A message between two watched\n"
        "processes is there twice: as sent and as received. The file can be read at any\n"
        "moment, also after a kill. Only its owner can read it: there may be passwords in\n"
        "messages.");
    command.example("vosctl capture -w messages.pcapng oltd mgmtd");
    command.example("vosctl capture -w ring.pcapng --max-size 10M --files 5");
    command.example("vosctl capture -w - | tshark -r -");
    command.onRun(context, [arguments, watched](Output &out) { return capture(out, *arguments, *watched); });
}

}  // namespace vosctl
