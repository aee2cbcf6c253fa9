/* SPDX-License-Identifier: MIT */
/* vosctl's reader of captures and of copies. The first byte chooses the entry:
 *
 *     0  the bytes are a capture file, of which each read returns few bytes
 *     1  the same, read as a whole
 *     2  the bytes are one datagram of a tap
 *     3  datagrams, each behind its length in two bytes, in one capture: what is written must be what is read
 *     others: as their value modulo 4
 */
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../../tools/vosctl/base/failure.h"
#include "../../tools/vosctl/processes/captureFile.h"
#include "../../tools/vosctl/processes/messages.h"
#include "../../tools/vosctl/processes/traffic.h"

namespace {

using namespace vosctl;

std::size_t sink;

/* Puts copies together, as the commands do, and uses all that is known of each message. */
class Watcher {
  public:
    void add(std::string_view datagram) {
        const auto copy = copyOf(datagram);
        if (!copy) return;
        if (copy->message.size() > datagram.size() || copy->payload().size() > copy->message.size()) abort();
        sink += copy->own().size() + copy->peer().size() + requesterPid(copy->own());
        messages_.add(*copy);
        show(copy->head.ullMonotonicNs);
    }
    void show(uint64_t now) {
        while (const auto message = messages_.next(now)) {
            sink += static_cast<std::size_t>(message->error()) + message->first().thread;
            traffic_.add(*message);
        }
        for (const auto &[name, count] : messages_.takeLosses()) traffic_.addLoss(name, count);
    }
    void end() {
        show(UINT64_MAX);
        if (!messages_.empty()) abort();
        for (const auto &[name, traffic] : traffic_.take())
            if (traffic.serviceBelow(990) > traffic.longestService()) abort();
    }

  private:
    Messages messages_;
    TrafficByName traffic_;
};

CaptureReader readerOf(std::string_view file, std::size_t most) {
    return CaptureReader{"file", [file, most](char *bytes, std::size_t size) mutable {
                             const std::size_t count = std::min({size, most, file.size()});
                             memcpy(bytes, file.data(), count);
                             file.remove_prefix(count);
                             return count;
                         }};
}

void readFile(std::string_view file, std::size_t most) {
    CaptureReader reader = readerOf(file, most);
    Watcher watcher;
    try {
        while (const auto datagram = reader.next()) watcher.add(*datagram);
    } catch (const Failure &failure) {
        if (*failure.what() == '\0' || failure.nextStep().empty()) abort();
    }
    watcher.end();
}

std::vector<std::string> split(std::string_view bytes) {
    std::vector<std::string> parts;
    while (bytes.size() > 2) {
        uint16_t length = 0;
        memcpy(&length, bytes.data(), sizeof length);
        parts.emplace_back(bytes.substr(2, length));
        bytes.remove_prefix(2 + parts.back().size());
    }
    return parts;
}

/* A process's first datagram may be repeated in front of its others: those of the input must come in their order. */
void writeAndRead(std::string_view bytes) {
    CaptureWriter writer;
    std::string file = writer.begin();
    std::vector<std::string> written;
    for (std::string &datagram : split(bytes)) {
        const auto copy = copyOf(datagram);
        if (!copy) continue;
        const std::size_t before = file.size() + writer.end().size();
        const std::size_t room = writer.roomFor(*copy, datagram);
        file += writer.add(*copy, datagram);
        if (file.size() + writer.end().size() > before + room) abort();
        written.push_back(std::move(datagram));
    }
    file += writer.end();
    CaptureReader reader = readerOf(file, file.size());
    for (const std::string &datagram : written)
        if (reader.next() != datagram) abort();
    if (reader.next() || reader.cut() || writer.copies() != written.size()) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string_view rest{reinterpret_cast<const char *>(data) + 1, size - 1};
    switch (data[0] % 4) {
        case 0:
            readFile(rest, 1 + data[0] / 4);
            break;
        case 1:
            readFile(rest, rest.size());
            break;
        case 2: {
            Watcher watcher;
            watcher.add(rest);
            watcher.end();
            break;
        }
        default:
            writeAndRead(rest);
            break;
    }
    return 0;
}
