/* SPDX-License-Identifier: MIT */
/* A tap: a socket to which running processes send copies of their messages. */
#ifndef VOSCTL_TAP_H
#define VOSCTL_TAP_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "../base/fd.h"
#include "guardian.h"

namespace vosctl {

class Tap {
  public:
    /* Begins with the file of every tap of this tool. */
    static constexpr const char *kFileBegin = "vosctlTap";
    static constexpr int kLookMs = 200; /* between two calls of look() */

    /* The processes of these names, or all without one, and how much of each payload is copied. Throws a Failure. */
    Tap(std::vector<std::string> names, uint32_t payloadBytes);
    ~Tap();
    Tap(const Tap &) = delete;
    Tap &operator=(const Tap &) = delete;

    [[nodiscard]] int fd() const { return socket_.get(); } /* readable when something came */
    /* Switches the tap on in processes that have appeared since. */
    void look();
    /* Adds the datagrams that have come, at most so many, and tells whether there may be more. */
    bool take(std::vector<std::string> &datagrams, std::size_t most);
    /* Switches it off everywhere; what came until then can still be taken. False when that failed. */
    bool switchOff();

  private:
    void bindSocket();
    void ask(const std::string &path, uint64_t inode);
    [[nodiscard]] bool wants(const std::string &file, const std::string &name) const;

    std::vector<std::string> names_;
    uint32_t payloadBytes_;
    std::string path_;
    Fd socket_;
    std::map<std::string, uint64_t> seen_;  /* sockets of the directory, by their files; the files' numbers */
    std::map<std::string, uint64_t> asked_; /* those to which the request has gone */
    bool unasked_ = false;                  /* a queue was full */
    std::vector<char> buffer_;
    std::optional<Guardian> guardian_;
};

}  // namespace vosctl

#endif
