/* SPDX-License-Identifier: MIT */
/* Takes the copies of a tap as they come, while what came before is printed. */
#ifndef VOSCTL_COPY_READER_H
#define VOSCTL_COPY_READER_H

#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../base/fd.h"
#include "tap.h"

namespace vosctl {

/* The kernel keeps few datagrams for a socket, on many machines ten, so a thread does nothing but take them. */
class CopyReader {
  public:
    /* Throws a Failure. The tap must stay. */
    explicit CopyReader(Tap &tap);
    ~CopyReader();
    CopyReader(const CopyReader &) = delete;
    CopyReader &operator=(const CopyReader &) = delete;

    /* Readable when something came since the last call of take(). */
    [[nodiscard]] int fd() const { return ready_.get(); }
    std::vector<std::string> take();
    /* Ends the thread; what came until then can still be taken. */
    void stop();

  private:
    void run();

    Tap &tap_;
    Fd ready_;
    Fd end_;
    std::mutex lock_; /* of what follows */
    std::vector<std::string> taken_;
    std::size_t bytes_ = 0;
    std::thread thread_;
};

}  // namespace vosctl

#endif
