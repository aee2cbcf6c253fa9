/* SPDX-License-Identifier: MIT */
/* One side of a measured exchange. A program for each way to exchange messages defines serve() and connect(). peer.cpp
 * has the rest: it reads the command line, executes the commands of the driver, and measures. */
#ifndef VOS_BENCH_PEER_H
#define VOS_BENCH_PEER_H

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace bench {

/* The command line that the driver uses: peer ROLE VARIANT SIZE ID [NAME=NUMBER]... */
struct Setting {
    std::string variant; /* how the exchange is made, if a program has several ways */
    std::size_t size;    /* bytes of a request's payload, and of its answer's */
    unsigned id;         /* clients count from 1; a server has 0 */
    unsigned timers;     /* idle timers of the server's receive loop */
    unsigned sockets;    /* idle descriptors of the server's receive loop */
    unsigned workUs;     /* processor time that the server spends on each message of the normal socket */

    [[nodiscard]] bool is(std::string_view name) const { return variant == name; }
};

/* Requests are sent one after the other. Each waits for its answer, unless the variant does not. */
class Client {
  public:
    Client() = default;
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    virtual ~Client() = default;
    /* Sends the payload, and stores that of the answer in its place. True when an answer came. */
    virtual bool request(uint8_t *payload) = 0;
};

/* Defined by each program. */
std::unique_ptr<Client> connect(const Setting &setting);
/* Opens, calls ready(), and serves until it is killed. */
[[noreturn]] void serve(const Setting &setting);

/* Reports to the driver that requests may be sent. */
void ready();

/* Ends the program: what failed, and errno's text. */
[[noreturn]] void die(const char *what);
/* The result, unless it is negative. */
template <class Number>
Number must(Number result, const char *what) {
    if (result < 0) die(what);
    return result;
}

/* Makes the payload of the answer from that of the request: the first word is inverted, the rest is unchanged. */
inline void answer(void *payload) {
    uint64_t word;
    memcpy(&word, payload, sizeof word);
    word = ~word;
    memcpy(payload, &word, sizeof word);
}

/* Spends that much processor time. */
void work(unsigned us);

inline constexpr std::size_t kLargest = 64512;

}  // namespace bench

#endif
