/* SPDX-License-Identifier: MIT */
/* What each name sends, receives and takes for its answers. */
#ifndef VOSCTL_TRAFFIC_H
#define VOSCTL_TRAFFIC_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "messages.h"

namespace vosctl {

struct Traffic {
    uint64_t messagesIn = 0;
    uint64_t messagesOut = 0;
    uint64_t bytesIn = 0; /* of payloads */
    uint64_t bytesOut = 0;
    uint64_t errors = 0;             /* answers with a code other than 0, and what could not be sent or did not come */
    std::vector<uint64_t> serviceNs; /* of the answers that it gave, the shortest first behind take() */
    std::map<std::string, uint64_t> askers; /* requests by the names from which they came */
    uint64_t lost = 0;                      /* copies */

    /* The time below which so many of a thousand services are; 0 without one. */
    [[nodiscard]] uint64_t serviceBelow(unsigned perThousand) const;
    [[nodiscard]] uint64_t longestService() const { return serviceNs.empty() ? 0 : serviceNs.back(); }
    /* Who has sent the most requests; empty without one. */
    [[nodiscard]] std::string asker() const;
};

class TrafficByName {
  public:
    void add(const Message &message);
    void addLoss(const std::string &name, uint64_t copies) { names_[name].lost += copies; }
    /* What came since the last call; the services are sorted. */
    std::map<std::string, Traffic> take();

  private:
    std::map<std::string, Traffic> names_;
};

}  // namespace vosctl

#endif
