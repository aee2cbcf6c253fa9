/* SPDX-License-Identifier: MIT */
/* vosctl listen: receives messages under a name, shows and answers them. */
#include <poll.h>
#include <sys/stat.h>
#include <vosMsg.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "../base/interrupts.h"
#include "../base/words.h"
#include "../processes/exchange.h"
#include "../processes/names.h"
#include "../terminal/payload.h"
#include "commands.h"
#include "listenScript.h"

namespace vosctl {

namespace {

struct Arguments {
    std::string name;
    int32_t code = 0;
    std::string answer;
    bool fixedAnswer = false; /* otherwise messages are sent back as they came */
    uint32_t count = 0;       /* messages until the end; 0: no end */
};

struct Message {
    VOS_MSG_PEER peer;
    std::string payload;
};

/* The pair of sockets under a name. The library has no close, so their paths are removed at the end, if they are still
 * those that were made here. */
class Mailbox {
  public:
    explicit Mailbox(const std::string &name) {
        for (const Pair which : {Pair::normal, Pair::high}) refuseToTakeOver(name, socketPath(name, which));
        int reserved = 0;
        if (vosMsgInit(name.c_str(), 1, &reserved) != VOS_OK)
            throw Failure("the sockets of " + name + " cannot be opened", "look for the cause with \"vosctl doctor\"");
        for (const Pair which : {Pair::normal, Pair::high}) {
            const std::string path = socketPath(name, which);
            own_[static_cast<std::size_t>(which)] = {path, inodeOf(path)};
        }
    }
    ~Mailbox() {
        for (const auto &[path, inode] : own_)
            if (inode != 0 && inodeOf(path) == inode) unlink(path.c_str());
    }
    Mailbox(const Mailbox &) = delete;
    Mailbox &operator=(const Mailbox &) = delete;

    /* The next application message; nothing when something else came and has been handled. */
    std::optional<Message> receive() {
        Message message{};
        const int32_t count = vosMsgRecv(0, buffer_.data(), kLargestPayload, 0, &message.peer);
        if (count < 0) return {};
        message.payload.assign(buffer_.data(), payloadSize(static_cast<std::size_t>(count), isHigh(message)));
        return message;
    }

    static bool isHigh(const Message &message) { return message.peer.iSocketFd == g_vosFdProcHigh; }

  private:
    static void refuseToTakeOver(const std::string &name, const std::string &path) {
        const Reach reach = reachOf(path);
        if (reach == Reach::tooLong) requireReachable(name, Pair::high); /* says so */
        if (reach != Reach::missing && reach != Reach::stale)
            throw Failure(path + (reach == Reach::notASocket ? " is not a socket" : " belongs to a running process"),
                          "choose a name that \"vosctl ps\" does not list");
    }

    static ino_t inodeOf(const std::string &path) {
        struct stat status {};
        return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    }

    /* On the normal socket the count is that of the datagram with its header, cut to the buffer. */
    static std::size_t payloadSize(std::size_t count, bool high) {
        if (high) return count;
        VOS_MSG_HEAD head{};
        memcpy(&head, g_vosMsgBufferRecv, sizeof head);
        return count < kLargestPayload ? count - sizeof head : std::min<std::size_t>(head.ulBufLen, kLargestPayload);
    }

    std::array<std::pair<std::string, ino_t>, 2> own_{};
    std::vector<char> buffer_ = std::vector<char>(kLargestPayload);
};

std::string senderOf(const VOS_MSG_PEER &peer) {
    const std::size_t head = offsetof(sockaddr_un, sun_path);
    if (peer.ulAddrLen <= head) return "";
    std::string path(peer.stAddr.sun_path, std::min<std::size_t>(peer.ulAddrLen - head, sizeof peer.stAddr.sun_path));
    path.resize(std::min(path.size(), path.find('\0')));
    return path;
}

void show(Output &out, const Message &message, const std::string &fate) {
    const std::string from = senderOf(message.peer);
    Json document{{"socket", Mailbox::isHigh(message) ? "high" : "normal"},
                  {"from", from.empty() ? Json(nullptr) : Json(from)},
                  {"answerWanted", message.peer.ulNoReturn != 1},
                  {"answered", fate == "answered"}};
    addPayload(document, message.payload);
    out.documentLine(document);
    out.line(document["socket"].get<std::string>() + ", " + std::to_string(message.payload.size()) + " bytes from " +
                 (from.empty() ? "an unnamed socket" : printable(from)) + ", " + fate,
             Style::heading);
    if (!out.json()) printPayload(out, message.payload);
    out.flush();
}

std::string answer(const Message &message, const Arguments &arguments) {
    if (message.peer.ulNoReturn == 1) return "no answer wanted";
    const std::string &payload = arguments.fixedAnswer ? arguments.answer : message.payload;
    const int32_t result = vosMsgResp(0, static_cast<uint32_t>(arguments.code), payload.data(),
                                      static_cast<uint32_t>(payload.size()), &message.peer);
    return result == VOS_OK ? "answered" : "nobody waits for the answer";
}

int listen(Output &out, const Arguments &arguments) {
    const Interrupts interrupts;
    Mailbox mailbox{arguments.name};
    out.line("Listening as " + printable(arguments.name) + "; Ctrl-C ends it.", Style::faint);
    out.flush();
    for (uint32_t seen = 0; arguments.count == 0 || seen < arguments.count;) {
        pollfd watched[] = {{interrupts.fd(), POLLIN, 0}, {g_vosFdProcHigh, POLLIN, 0}, {g_vosFdProc, POLLIN, 0}};
        if (poll(watched, std::size(watched), -1) == -1 && errno != EINTR) break;
        if (watched[0].revents != 0) break;
        const auto message = mailbox.receive();
        if (!message) continue;
        show(out, *message, answer(*message, arguments));
        ++seen;
    }
    return kDone;
}

}  // namespace

void addListenCommand(Command app, Context &context) {
    const auto arguments = std::make_shared<Arguments>();
    Command command = app.command("listen", "Receive under a name: show the messages that come, and answer them");
    command.name(arguments->name);
    command
        .argument(
            "--code", [arguments](const std::string &word) { arguments->code = signedOf(word).value_or(0); },
            "Code of the answers")
        .check(signedMistake)
        .typeName("CODE")
        .defaultText("0");
    Argument text = command.argument("--answer", arguments->answer,
                                     "Text of the answers; without it messages are sent back as they came");
    Argument count = command.number("-c,--count", arguments->count, "End after so many messages", 1);
    const auto script = std::make_shared<std::string>();
    Argument played =
        command.argument("--script", *script, "Expect and answer what this script or capture says, and end")
            .typeName("FILE")
            .excludes(text)
            .excludes(count);
    const auto delays = std::make_shared<bool>(false);
    command.flag("--delays", *delays, "Answer as late as the answers of the capture were").needs(played);
    command.example("vosctl listen box");
    command.example("vosctl listen box --code -3 --answer busy -c 1");
    command.example("vosctl listen box --script requests.txt");
    command.example("vosctl listen box --script box.pcapng --delays");
    command.onRun(context, [arguments, text, script, played, delays](Output &out) {
        if (played.given()) return listenByScript(out, arguments->name, *script, *delays);
        arguments->fixedAnswer = text.given();
        return listen(out, *arguments);
    });
}

}  // namespace vosctl
